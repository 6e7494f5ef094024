#!/usr/bin/env python3
"""Compares searches that repair near misses with searches that do not.

usage: compare_repairs.py PROGRAM PRICES [--seeds N] [--candidates N] [--jobs N] [OPTION ...]

For each seed the program runs twice, each time with an empty pool: once as it is, and once with
--repairs 0. Both are judged by their first N candidates: how many of them joined the pool, and what
Sharpe ratio the median of these has on the hold-out, which no search ever sees. Further options are
given to the run that repairs. Prints a line a seed, the medians of the differences and what each
plan rescued, as Markdown.
"""
import argparse
import json
import statistics
import subprocess
import sys
import tempfile
from collections import Counter
from pathlib import Path


def run(arguments, seed, extra):
    """Return the submitted signals of one run and the outcome of its repairs, by plan."""
    with tempfile.TemporaryDirectory() as folder:
        command = [
            arguments.program, "run", "--prices", arguments.prices,
            "--db", str(Path(folder) / "runs.db"), "--seed", str(seed),
            "--candidates", str(arguments.candidates), "--jobs", str(arguments.jobs), "--json",
            *extra,
        ]
        output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    submitted = {}
    plans = Counter()
    plan_of = {}
    for line in output.splitlines():
        event = json.loads(line)
        if event["event"] == "recorded" and event["candidate_number"] <= arguments.candidates:
            plan = event["repaired_by"]
            plan_of[event["eval_id"]] = plan
            if plan:
                plans[plan, "tried"] += 1
                plans[plan, "rescued"] += event["passed"]
        if event["event"] == "ended":
            submitted = {signal["eval_id"]: signal for signal in event["submitted"]
                         if signal["eval_id"] in plan_of}
    for eval_id in submitted:
        if plan_of[eval_id]:
            plans[plan_of[eval_id], "submitted"] += 1
    return list(submitted.values()), plans


def holdout_median(signals):
    """Return the median Sharpe ratio on the hold-out, or None without signals."""
    ratios = [signal["holdout"]["sharpe"] for signal in signals]
    return statistics.median(ratios) if ratios else None


def shown(figure):
    """Return a Sharpe ratio as the table has it."""
    return "-" if figure is None else f"{figure:.2f}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("prices")
    parser.add_argument("--seeds", type=int, default=20)
    parser.add_argument("--candidates", type=int, default=2560)
    parser.add_argument("--jobs", type=int, default=2)
    arguments, extra = parser.parse_known_args()

    counts, ratios, plans = [], [], Counter()
    everything = {"with": [], "without": []}
    print("| seed | submitted, with | without | difference | hold-out, with | without |")
    print("|---|---|---|---|---|---|")
    for seed in range(1, arguments.seeds + 1):
        repaired, outcome = run(arguments, seed, extra)
        plain, _ = run(arguments, seed, ["--repairs", "0"])
        plans += outcome
        everything["with"] += repaired
        everything["without"] += plain
        counts.append(len(repaired) - len(plain))
        with_median, without_median = holdout_median(repaired), holdout_median(plain)
        if with_median is not None and without_median is not None:
            ratios.append(with_median - without_median)
        print(f"| {seed} | {len(repaired)} | {len(plain)} | {counts[-1]:+d} "
              f"| {shown(with_median)} | {shown(without_median)} |", flush=True)
    wins = sum(1 for count in counts if count > 0)
    better = sum(1 for ratio in ratios if ratio > 0)
    print(f"\nMedian difference {statistics.median(counts):+g} signals; with repairs more are "
          f"submitted for {wins} of {len(counts)} seeds.")
    if ratios:
        print(f"Median difference of the hold-out's Sharpe ratio {statistics.median(ratios):+.2f}; "
              f"it is better with repairs for {better} of {len(ratios)} seeds.")
    for name, signals in everything.items():
        positive = sum(1 for signal in signals if signal["holdout"]["sharpe"] > 0)
        print(f"All {name} repairs: {len(signals)} signals, hold-out median "
              f"{shown(holdout_median(signals))}, above 0 {positive}.")

    print("\n| plan | tried | rescued | rate | submitted |")
    print("|---|---|---|---|---|")
    for plan in sorted({plan for plan, _ in plans}, key=lambda name: -plans[name, "rescued"]):
        tried = plans[plan, "tried"]
        rescued = plans[plan, "rescued"]
        print(f"| `{plan}` | {tried} | {rescued} | {100 * rescued / tried:.0f} % "
              f"| {plans[plan, 'submitted']} |")


if __name__ == "__main__":
    sys.exit(main())
