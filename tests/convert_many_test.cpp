// The window's Convert Many dialog.
