#!/usr/bin/env python3
"""Compares searches that breed with searches that only draw fresh random graphs.

usage: compare_breeding.py PROGRAM PRICES [--seeds N] [--candidates N] [--jobs N]

For each seed the program runs twice over the same number of candidates: once as it is, and once
with a gate that no signal passes, so that there is never a parent and every generation is fresh.
The figure of a run is the best quality score among all its candidates, passing or not; what a gate
refuses counts on both sides. Prints a line a seed and the median of the differences, as Markdown.
"""
import argparse
import json
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

# Above every annualised Sharpe ratio that prices can give.
IMPOSSIBLE_SHARPE = "1e9"


def best_quality(program, prices, seed, candidates, jobs, extra):
    """Return the best quality score of one run."""
    with tempfile.TemporaryDirectory() as folder:
        command = [
            program, "run", "--prices", prices, "--db", str(Path(folder) / "runs.db"),
            "--seed", str(seed), "--candidates", str(candidates), "--jobs", str(jobs),
            "--json", *extra,
        ]
        output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    qualities = []
    for line in output.splitlines():
        event = json.loads(line)
        if event["event"] == "recorded" and event["statistics"]:
            qualities.append(event["statistics"]["quality_score"])
    return max(qualities[:candidates])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("prices")
    parser.add_argument("--seeds", type=int, default=20)
    parser.add_argument("--candidates", type=int, default=2560)
    parser.add_argument("--jobs", type=int, default=2)
    arguments = parser.parse_args()

    def run(seed, *extra):
        return best_quality(arguments.program, arguments.prices, seed, arguments.candidates,
                            arguments.jobs, extra)

    differences = []
    print("| seed | bred | fresh only | difference |")
    print("|---|---|---|---|")
    for seed in range(1, arguments.seeds + 1):
        bred = run(seed)
        fresh = run(seed, "--min-sharpe", IMPOSSIBLE_SHARPE)
        differences.append(bred - fresh)
        print(f"| {seed} | {bred:.3f} | {fresh:.3f} | {bred - fresh:+.3f} |", flush=True)
    wins = sum(1 for difference in differences if difference > 0)
    print(f"\nMedian difference {statistics.median(differences):+.3f}; "
          f"bred is better for {wins} of {len(differences)} seeds.")


if __name__ == "__main__":
    sys.exit(main())
