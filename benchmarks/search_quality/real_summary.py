#!/usr/bin/env python3
"""Makes the table of real prices in docs/search-quality.md of what bench_real_prices measured.

    python3 benchmarks/search_quality/real_summary.py RESULTS.csv [MORE.csv ...]

A line for each arm on each universe: medians over the seeds, each with its 95 % interval as
summary.py makes it, and the figures of the market, which no seed changes. The interval tells what
another seed would give on this one history, not what another history would.
"""

from __future__ import annotations

import argparse
import csv
import sys
from collections.abc import Sequence
from pathlib import Path

from summary import ResultError, median_with_interval, table

FIGURES = (
    ("signals", "submitted"),
    ("best in sample", "best_sharpe"),
    ("the same in the hold-out", "best_holdout_sharpe"),
    ("book in sample", "book_sharpe"),
    ("book in the hold-out", "book_holdout_sharpe"),
    ("market in the hold-out", "market_holdout_sharpe"),
)


def read_rows(path: Path) -> list[dict[str, str]]:
    with path.open(encoding="utf-8", newline="") as lines:
        rows = list(csv.DictReader(lines))
    for row in rows:
        for _, column in FIGURES:
            try:
                float(row[column])
            except (KeyError, TypeError, ValueError) as error:
                raise ResultError(f"{path}: {error!r}: {row}") from None
    return rows


def real_table(rows: Sequence[dict[str, str]]) -> list[str]:
    if not rows:
        raise ResultError("there are no runs")
    groups: dict[tuple[str, str], list[dict[str, str]]] = {}
    for row in sorted(rows, key=lambda row: row["universe"]):
        groups.setdefault((row["universe"], row["arm"]), []).append(row)
    cells = []
    for (universe, arm), runs in groups.items():
        values = [[float(run[column]) for run in runs] for _, column in FIGURES]
        cells.append([universe, arm, str(len(runs)), *map(median_with_interval, values)])
    return table(["prices", "arm", "seeds", *(title for title, _ in FIGURES)], cells)


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(description="Make the table of the searches of real prices.")
    parser.add_argument("results", type=Path, nargs="+", help="CSV files of bench_real_prices")
    options = parser.parse_args(arguments)
    try:
        lines = real_table([row for path in options.results for row in read_rows(path)])
    except (ResultError, OSError) as error:
        print(f"real_summary: {error}", file=sys.stderr)
        return 1
    print("\n".join(lines))
    return 0


if __name__ == "__main__":
    sys.exit(main())
