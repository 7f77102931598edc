// Numeric floor tests are listed here as they land.
