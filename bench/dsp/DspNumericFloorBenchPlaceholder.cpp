// Numeric floor benchmarks are listed here as they land.
