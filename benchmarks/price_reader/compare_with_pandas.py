#!/usr/bin/env python3
"""Reads one long price file with the program's reader and with pandas, and tells time and memory.

The file is made when it is not there: 3,000 instruments over 1,250 weekdays, five columns of
numbers, sorted by day. Pandas reads it with read_csv, the dates parsed, and pivots each of the five
columns; each of the two runs in a process of its own, in turns, and the best time of each counts.

  benchmarks/price_reader/compare_with_pandas.py build/release/bin/bench_price_reader /tmp/long.csv
"""

from __future__ import annotations

import json
import random
import subprocess
import sys
from datetime import date, timedelta
from pathlib import Path

INSTRUMENTS = 3000
DAYS = 1250
TURNS = 3
MEBIBYTE = 1024 * 1024

WITH_PANDAS = """
import json, resource, sys, time
import pandas
before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024
start = time.perf_counter()
rows = pandas.read_csv(sys.argv[1], parse_dates=["date"])
panels = {
    name: rows.pivot(index="date", columns="symbol", values=name)
    for name in ("open", "high", "low", "close", "volume")
}
print(json.dumps({
    "seconds": time.perf_counter() - start,
    "panel_bytes": sum(panel.to_numpy().nbytes for panel in panels.values()),
    "bytes_before": before,
    "most_bytes": resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024,
}))
"""


def make_file(path: Path) -> None:
    generator = random.Random(20)
    days = [date(2018, 1, 1) + timedelta(days=i) for i in range(DAYS * 7 // 5 + 7)]
    days = [day for day in days if day.weekday() < 5][:DAYS]
    closes = [generator.uniform(5, 500) for _ in range(INSTRUMENTS)]
    with path.open("w") as out:
        out.write("date,symbol,open,high,low,close,volume\n")
        for day in days:
            text = day.isoformat()
            for number in range(INSTRUMENTS):
                opened = closes[number]
                close = closes[number] = max(0.5, opened * (1 + generator.gauss(0, 0.02)))
                high, low = max(opened, close) * 1.01, min(opened, close) * 0.99
                volume = generator.randrange(10_000, 9_000_000)
                out.write(
                    f"{text},S{number:04},{opened:.2f},{high:.2f},{low:.2f},{close:.2f},{volume}\n"
                )


def measured(command: list[str]) -> dict[str, float]:
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    return json.loads(done.stdout)


def main() -> int:
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    program, path = sys.argv[1], Path(sys.argv[2])
    if not path.exists():
        make_file(path)
    commands = {
        "ours": [program, str(path)],
        "pandas": [sys.executable, "-c", WITH_PANDAS, str(path)],
    }
    best: dict[str, dict[str, float]] = {}
    for _ in range(TURNS):
        for name, command in commands.items():
            told = measured(command)
            if name not in best or told["seconds"] < best[name]["seconds"]:
                best[name] = told
    print(f"file {path.stat().st_size / MEBIBYTE:.0f} MiB")
    for name, told in best.items():
        print(
            f"{name:7} {told['seconds']:6.2f} s, panels {told['panel_bytes'] / MEBIBYTE:.0f} MiB, "
            f"most memory {told['most_bytes'] / MEBIBYTE:.0f} MiB, "
            f"{told['bytes_before'] / MEBIBYTE:.0f} MiB of it before"
        )
    ours, pandas = best["ours"], best["pandas"]
    print(
        f"{pandas['seconds'] / ours['seconds']:.2f} times as fast as pandas, "
        f"{ours['most_bytes'] / pandas['most_bytes']:.2f} of its memory, "
        f"{ours['most_bytes'] / ours['panel_bytes']:.2f} times the panels"
    )
    return 0


if __name__ == "__main__":
    sys.exit(main())
