// Equaliser benchmarks are listed here as they land.
