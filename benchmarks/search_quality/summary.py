#!/usr/bin/env python3
"""Makes the tables of docs/search-quality.md of the results of the benchmark.

    python3 benchmarks/search_quality/summary.py RESULTS.csv [MORE.csv ...]

The figures are of all runs of an arm. A search that did not find counts with all of its backtests
where evaluations to find are told. Beside a median stands its 95 % interval, of medians of runs
drawn again and again from those that there are; the draws are those of a fixed seed.
"""

from __future__ import annotations

import argparse
import csv
import random
import statistics
import sys
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path

DRAWS = 2000
SEED = 1
# The arms in the order of the tables; others follow by name.
ORDER = ("ours", "fresh", "gplearn", "deap")


class ResultError(Exception):
    """A line of the results is not what it should be."""


@dataclass(frozen=True)
class Run:
    arm: str
    effect: str
    seed: int
    found_after: int | None
    best: float
    best_fresh: float
    book_holdout: float
    book_fresh: float
    oracle: float
    oracle_fresh: float
    structures: int
    behaviours: int

    def evaluations(self, budget: int) -> int:
        return budget if self.found_after is None else min(self.found_after, budget)


def read_runs(path: Path) -> list[Run]:
    with path.open(encoding="utf-8", newline="") as lines:
        rows = csv.DictReader(lines)
        runs = []
        for row in rows:
            try:
                runs.append(
                    Run(
                        row["arm"],
                        row["effect"],
                        int(row["seed"]),
                        int(row["found_after"]) if row["found_after"] else None,
                        float(row["best_sharpe"]),
                        float(row["best_fresh_sharpe"]),
                        float(row["book_holdout_sharpe"]),
                        float(row["book_fresh_sharpe"]),
                        float(row["oracle_sharpe"]),
                        float(row["oracle_fresh_sharpe"]),
                        int(row["structures"]),
                        int(row["behaviours"]),
                    )
                )
            except (KeyError, TypeError, ValueError) as error:
                raise ResultError(f"{path}, line {rows.line_num}: {error!r}: {row}") from None
    return runs


def check_runs(runs: Sequence[Run]) -> None:
    seen: set[tuple[str, str, int]] = set()
    for run in runs:
        key = (run.arm, run.effect, run.seed)
        if key in seen:
            raise ResultError(f"{', '.join(map(str, key))} is there twice; leave one out")
        seen.add(key)
    if not runs:
        raise ResultError("there are no runs")


def of_arms(runs: Sequence[Run]) -> dict[str, list[Run]]:
    names = {run.arm for run in runs}
    ordered = [name for name in ORDER if name in names] + sorted(names - set(ORDER))
    return {name: [run for run in runs if run.arm == name] for name in ordered}


def median_with_interval(values: Sequence[float], digits: int = 2) -> str:
    """`median (low to high)`, the 2.5th and the 97.5th of a hundred medians of draws."""
    draw = random.Random(SEED)
    medians = sorted(
        statistics.median(draw.choices(values, k=len(values))) for _ in range(DRAWS)
    )
    low, high = medians[round(0.025 * (DRAWS - 1))], medians[round(0.975 * (DRAWS - 1))]
    median, low, high = (
        f"{value:,.{digits}f}" for value in (statistics.median(values), low, high)
    )
    return f"{median} ({low} to {high})"


# Title and figure of a run, of the columns with medians: whole numbers, and what has two digits.
COUNTS: tuple[tuple[str, Callable[[Run], float]], ...] = (
    ("distinct structures", lambda run: run.structures),
    ("distinct behaviours", lambda run: run.behaviours),
)
MEDIANS: tuple[tuple[str, Callable[[Run], float]], ...] = (
    ("best Sharpe in sample", lambda run: run.best),
    ("the same later", lambda run: run.best_fresh),
    ("book in the hold-out", lambda run: run.book_holdout),
    ("book later", lambda run: run.book_fresh),
    ("book later, share of the oracle's", lambda run: share(run.book_fresh, run.oracle_fresh)),
)


def share(part: float, whole: float) -> float:
    return part / whole if whole > 0.0 else 0.0


def row(cells: Sequence[str]) -> str:
    return "| " + " | ".join(cells) + " |"


def table(titles: Sequence[str], rows: Sequence[Sequence[str]]) -> list[str]:
    return [row(titles), row(["---"] * len(titles)), *map(row, rows)]


def arm_table(runs: Sequence[Run], budget: int) -> list[str]:
    titles = ["arm", "runs", "found", "mean evaluations to find", "median evaluations"]
    # The mean of the runs stands beside the share's median: the one is what is aimed at.
    titles += [title for title, _ in MEDIANS] + ["mean of the share"]
    titles += [title for title, _ in COUNTS]
    rows = []
    for arm, own in of_arms(runs).items():
        found = sum(run.found_after is not None for run in own)
        evaluations = [run.evaluations(budget) for run in own]
        cells = [arm, str(len(own)), f"{found} ({100 * found / len(own):.0f} %)"]
        cells += [f"{statistics.fmean(evaluations):,.0f}", median_with_interval(evaluations, 0)]
        for _, figure in MEDIANS:
            cells.append(median_with_interval([figure(run) for run in own]))
        shares = [share(run.book_fresh, run.oracle_fresh) for run in own]
        cells.append(f"{statistics.fmean(shares):.2f}")
        cells += [median_with_interval([figure(run) for run in own], 0) for _, figure in COUNTS]
        rows.append(cells)
    return table(titles, rows)


def effect_table(runs: Sequence[Run], budget: int) -> list[str]:
    """Found of runs, and mean evaluations to find, of each arm for each effect."""
    arms = of_arms(runs)
    rows = []
    for effect in dict.fromkeys(run.effect for run in runs):
        cells = [effect]
        for own in arms.values():
            there = [run for run in own if run.effect == effect]
            if not there:
                cells.append("")
                continue
            found = sum(run.found_after is not None for run in there)
            evaluations = statistics.fmean(run.evaluations(budget) for run in there)
            cells.append(f"{found} of {len(there)}, {evaluations:,.0f}")
        rows.append(cells)
    return table(["effect", *arms], rows)


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(description="Make tables of the results of the benchmark.")
    parser.add_argument("results", type=Path, nargs="+", help="CSV files of results")
    parser.add_argument(
        "--backtests", type=int, default=2048, help="of a search; default: 2048"
    )
    options = parser.parse_args(arguments)
    try:
        runs = [run for path in options.results for run in read_runs(path)]
        check_runs(runs)
    except (ResultError, OSError) as error:
        print(f"summary: {error}", file=sys.stderr)
        return 1
    print("\n".join(arm_table(runs, options.backtests)))
    print()
    print("\n".join(effect_table(runs, options.backtests)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
