#!/usr/bin/env python3
"""Tells how much of what a search evaluates it has evaluated before: the bound of what a cache of
sub-expressions could save.

  benchmarks/evaluator/repeated_parts.py build/release/bin/bench_evaluator STORE...
      [--size INSTRUMENTS DAYS] [--milliseconds M]

A part of a candidate is a sub-expression with a function. It costs what bench_evaluator measures
for its function on so many instruments and days (of three windows the nearest), and counts once in
a candidate, as it is computed once. A part is repeated where an earlier candidate has it: one of
the same generation, of this or the five before, or of the whole run. With --milliseconds, the
processor time of a candidate in the whole program, the last column is the most that a cache of all
of them, free of any cost, would make that program faster.
"""

from __future__ import annotations

import argparse
import ast
import json
import sqlite3
import subprocess
from collections.abc import Iterator

GENERATIONS = 5
WINDOWS = (5, 20, 120)
NANOSECONDS_A_MILLISECOND = 1e6


def costs_of(program: str, size: list[int]) -> dict[str, float]:
    command = [program, "functions", *map(str, size)]
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    rows = [json.loads(line) for line in done.stdout.splitlines()]
    cells = size[0] * size[1]
    return {row["function"]: row["nanoseconds"] * cells for row in rows}


def cost_of(node: ast.Call, costs: dict[str, float]) -> float:
    name = node.func.id if isinstance(node.func, ast.Name) else ""
    if name in costs:
        return costs[name]
    numbers = [a.value for a in node.args if isinstance(a, ast.Constant)]
    window = numbers[-1] if numbers else WINDOWS[1]
    nearest = min(WINDOWS, key=lambda days: abs(days - window))
    return costs[f"{name}_{nearest}"]


def parts_of(text: str, costs: dict[str, float]) -> dict[str, float]:
    """Of each part its text and what it costs itself."""
    nodes = ast.walk(ast.parse(text, mode="eval"))
    return {ast.unparse(node): cost_of(node, costs) for node in nodes if isinstance(node, ast.Call)}


def candidates_of(store: str) -> Iterator[tuple[int, str]]:
    connection = sqlite3.connect(f"file:{store}?mode=ro", uri=True)
    yield from connection.execute(
        "SELECT generation, expression FROM evaluations WHERE expression IS NOT NULL ORDER BY id"
    )
    connection.close()


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("stores", nargs="+")
    parser.add_argument("--size", nargs=2, type=int, default=[4, 3270])
    parser.add_argument("--milliseconds", type=float)
    options = parser.parse_args()
    costs = costs_of(options.program, options.size)
    spans = {"its generation": 0, "the last five": GENERATIONS, "the run": None}
    for store in options.stores:
        last_seen: dict[str, int] = {}
        repeated = dict.fromkeys(spans, 0.0)
        total, count = 0.0, 0
        for generation, text in candidates_of(store):
            parts = parts_of(text, costs)
            total += sum(parts.values())
            count += 1
            for part, cost in parts.items():
                age = generation - last_seen.get(part, -1) if part in last_seen else None
                for span, most in spans.items():
                    if age is not None and (most is None or age <= most):
                        repeated[span] += cost
            last_seen.update(dict.fromkeys(parts, generation))
        own = total / count / NANOSECONDS_A_MILLISECOND
        print(f"{store}: {count} candidates, {own:.3f} ms of functions each")
        for span, cost in repeated.items():
            bound = ""
            if options.milliseconds:
                saved = cost / count / NANOSECONDS_A_MILLISECOND
                faster = options.milliseconds / (options.milliseconds - saved)
                bound = f", the whole at most {faster:.3f} times as fast"
            print(f"  repeated within {span}: {100 * cost / total:.0f} %{bound}")


if __name__ == "__main__":
    main()
