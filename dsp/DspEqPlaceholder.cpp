// Equaliser units are listed here as they land.
