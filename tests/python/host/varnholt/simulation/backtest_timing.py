"""Timings of backtests."""
