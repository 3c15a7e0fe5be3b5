// Keeps the helper library non-empty before any shared helper exists.
