// Numeric floor units are listed here as they land.
