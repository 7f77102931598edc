// Equaliser tests are listed here as they land.
