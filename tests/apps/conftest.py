"""A small price file, and the store of a run on it."""

from __future__ import annotations

import math
import random
from pathlib import Path

import pytest

from program import a_run


@pytest.fixture
def prices(tmp_path: Path) -> Path:
    """Random walks of five instruments over 150 weekdays, the last one without a first month."""
    generator = random.Random(7)
    path = tmp_path / "prices.csv"
    days = [f"2020-{month:02}-{day:02}" for month in range(1, 7) for day in range(1, 26)]
    rows = ["date,symbol,open,high,low,close,volume"]
    for name in ("AAA", "BBB", "CCC", "DDD", "EEE"):
        close = 100.0
        for day in days[25:] if name == "EEE" else days:
            opened, close = close, close * math.exp(generator.gauss(0.0005, 0.02))
            high, low = max(opened, close) * 1.01, min(opened, close) * 0.99
            volume = generator.randrange(1000, 9000)
            rows.append(f"{day},{name},{opened:.4f},{high:.4f},{low:.4f},{close:.4f},{volume}")
    path.write_text("\n".join(rows) + "\n")
    return path


@pytest.fixture
def store(tmp_path: Path, prices: Path) -> Path:
    """The store of a run of several generations, in a folder of its own."""
    folder = tmp_path / "stored"
    folder.mkdir()
    return a_run(folder, prices)[0]
