#!/usr/bin/env python3
"""Runs two builds of bench_evaluator in turns: how much the second costs of the first, function by
function and for whole expressions, and whether every value is the same to the last bit.

  benchmarks/evaluator/compare_builds.py OLD NEW [INSTRUMENTS DAYS] [--turns N] [--functions]

The least of the turns counts. Without --functions only expressions are measured.
"""

from __future__ import annotations

import argparse
import json
import subprocess
import sys
from pathlib import Path

EXPRESSIONS = Path(__file__).with_name("expressions.txt")
PARTS = ("signal", "weights", "backtest")

Row = dict[str, object]


def measured(program: str, *arguments: object) -> list[Row]:
    command = [program, *map(str, arguments)]
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def least(program_rows: list[list[Row]], key: str) -> list[float]:
    return [min(float(row[key]) for row in rows) for rows in zip(*program_rows)]


def different(old: list[Row], new: list[Row]) -> list[Row]:
    digests = ("digest", "net_digest")
    return [n for o, n in zip(old, new) if any(o.get(d) != n.get(d) for d in digests)]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("old")
    parser.add_argument("new")
    parser.add_argument("size", nargs="*", type=int, default=[20, 8313])
    parser.add_argument("--turns", type=int, default=3)
    parser.add_argument("--functions", action="store_true")
    options = parser.parse_args()
    programs = (options.old, options.new)
    what = ["functions", *options.size]
    if not options.functions:
        what = ["expressions", *options.size, EXPRESSIONS]
    runs: dict[str, list[list[Row]]] = {program: [] for program in programs}
    for _ in range(options.turns):
        for program in programs:
            runs[program].append(measured(program, *what))
    old, new = (runs[program] for program in programs)
    print(f"{options.size[0]} instruments, {options.size[1]} days, nanoseconds a cell")
    if options.functions:
        times = zip(old[0], least(old, "nanoseconds"), least(new, "nanoseconds"))
        for row, before, after in times:
            print(f"{row['function']:22}{before:8.2f}{after:8.2f}  {before / after:5.2f} times")
    else:
        before, after = ([sum(least(rows, part)) for part in PARTS] for rows in (old, new))
        rows = [*zip(PARTS, before, after), ("all", sum(before), sum(after))]
        for part, was, now in rows:
            count = len(old[0])
            print(f"{part:10}{was / count:8.2f}{now / count:8.2f}  {was / now:5.2f} times")
    changed = different(old[0], new[0])
    print(f"{len(changed)} of {len(old[0])} differ")
    for row in changed[:10]:
        print("  ", row)
    return 1 if changed else 0


if __name__ == "__main__":
    sys.exit(main())
