#!/usr/bin/env python3
"""Counts depths and families of fresh random expressions, as Markdown tables.

usage: describe_fresh_graphs.py PROGRAM PRICES [--candidates N] [--seed N]

Runs the program with a gate that no signal passes, so that every generation is fresh, and reads the
expressions of its candidates.
"""
import argparse
import collections
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

IMPOSSIBLE_SHARPE = "1e9"


def expressions(program, prices, candidates, seed):
    """Return the expressions of one run."""
    with tempfile.TemporaryDirectory() as folder:
        command = [
            program, "run", "--prices", prices, "--db", str(Path(folder) / "runs.db"),
            "--seed", str(seed), "--candidates", str(candidates), "--batch-size", "128",
            "--min-sharpe", IMPOSSIBLE_SHARPE, "--json",
        ]
        output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    events = map(json.loads, output.splitlines())
    return [event["expression"] for event in events if event["event"] == "recorded"]


def depth(expression):
    """Return the nodes on the longest way down; windows count as nodes."""
    deepest = level = 1
    for character in expression:
        level += {"(": 1, ")": -1}.get(character, 0)
        deepest = max(deepest, level)
    return deepest


def table(title, counts, total):
    """Return a Markdown table of the counts and their shares."""
    lines = [f"| {title} | count | share |", "|---|---|---|"]
    lines += [f"| {name} | {count} | {count / total:.1%} |" for name, count in counts]
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("prices")
    parser.add_argument("--candidates", type=int, default=1024)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()

    found = expressions(arguments.program, arguments.prices, arguments.candidates, arguments.seed)
    depths = collections.Counter(map(depth, found))
    functions = [name for text in found for name in re.findall(r"([a-z_]+)\(", text)]
    families = collections.Counter(name.split("_")[0] for name in functions)
    print(f"{len(found)} expressions, {len(functions)} functions.\n")
    print(table("depth", sorted(depths.items()), len(found)) + "\n")
    print(table("family", families.most_common(), len(functions)))


if __name__ == "__main__":
    sys.exit(main())
