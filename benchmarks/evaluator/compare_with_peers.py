#!/usr/bin/env python3
"""Times the functions of the vocabulary, and whole expressions, beside numpy, bottleneck, numba,
pandas and polars, in one run on one processor, and tells where values differ.

  benchmarks/evaluator/compare_with_peers.py build/release/bin/bench_evaluator [INSTRUMENTS DAYS]

The peers' versions are those of requirements.txt. "numpy" are the kernels of
benchmarks/search_quality, which follow every rule of docs/vocabulary.md but that of ties. For
expressions "best peer" takes of each function the fastest peer whose values agree. Nanoseconds are
processor time a cell, the least of several turns. Above the table stands what a cell would need at
the speed of the triad of the same run, one number read and one written.
"""

from __future__ import annotations

import ast
import json
import os
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

for threads in ("OMP_NUM_THREADS", "NUMBA_NUM_THREADS", "POLARS_MAX_THREADS"):
    os.environ[threads] = "1"

import numpy as np  # noqa: E402

HERE = Path(__file__).parent
sys.path.insert(0, str(HERE.parent / "search_quality"))

import panel_kernels  # noqa: E402
import peer_kernels  # noqa: E402

Panel = np.ndarray
COLUMNS = ("close", "open", "high", "low", "volume")
WINDOW = 20
EXPRESSIONS = 40  # So many of the file, from its beginning.
TURNS = 3
SHORTEST_SECONDS = 0.01  # Of a turn.
TOLERANCE = 1e-6
BYTES_A_CELL = 16  # One number read, one written.


def measured(program: str, *arguments: object) -> list[dict]:
    command = [program, *map(str, arguments)]
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def nanoseconds(work: Callable[[], Panel]) -> tuple[float, Panel]:
    """The least of the turns. A turn calls so often that the clock's own steps do not count."""
    start = time.process_time()
    result = work()
    once = max(time.process_time() - start, 1e-7)
    calls = max(1, round(SHORTEST_SECONDS / once))
    best = float("inf") if calls > 1 else once
    for _ in range(TURNS):
        start = time.process_time()
        for _ in range(calls):
            work()
        best = min(best, (time.process_time() - start) / calls)
    return best * 1e9 / result.size, result


def difference(ours: Panel, theirs: Panel) -> tuple[float, float]:
    """The greatest relative difference where both are known, and the share of cells that only one
    of the two knows."""
    both = ~np.isnan(ours) & ~np.isnan(theirs)
    only_one = float((np.isnan(ours) != np.isnan(theirs)).mean())
    if not both.any():
        return 0.0, only_one
    a, b = ours[both], theirs[both]
    return float((np.abs(a - b) / np.maximum(1.0, np.abs(a))).max()), only_one


class Market:
    def __init__(self, folder: Path, instruments: int, days: int) -> None:
        self.folder, self.shape = folder, (instruments, days)
        columns = {name: self.read(name) for name in COLUMNS}
        made = panel_kernels.features_of(columns)
        self.features = {name: np.asfortranarray(panel) for name, panel in made.items()}

    def read(self, name: str) -> Panel:
        return np.fromfile(self.folder / f"{name}.f64").reshape(self.shape).T


def kernels_of(name: str) -> dict[str, tuple[int, Callable]]:
    """The peers that have the function, with the number of panels that it takes."""
    table = {**panel_kernels.PLAIN, **panel_kernels.WINDOWED}
    panels, kernel = table[name]
    found = {"numpy": (panels, kernel)}
    for peer, kernels in peer_kernels.PEERS.items():
        if name in kernels:
            found[peer] = (panels, kernels[name])
    return found


def compare_functions(rows: list[dict], market: Market) -> dict[str, Callable]:
    """Prints the table; the fastest peer of each function whose values agree."""
    best: dict[str, Callable] = {}
    panels = [market.features["returns"], market.features["range"]]
    print(f"{'function':16}{'ours':>8}  {'best peer':20}{'times':>6}  the others")
    for name in (*panel_kernels.PLAIN, *panel_kernels.WINDOWED):
        is_windowed = name in panel_kernels.WINDOWED
        own_name = f"{name}_{WINDOW}" if is_windowed else name
        own = next(row for row in rows if row["function"] == own_name)["nanoseconds"]
        ours = market.read(own_name)
        times, notes = {}, []
        for peer, (count, kernel) in kernels_of(name).items():
            arguments = [*panels[:count], *([WINDOW] if is_windowed else [])]
            kernel(*arguments)  # Compiled, where it is to be.
            times[peer], theirs = nanoseconds(lambda: kernel(*arguments))
            off, only_one = difference(ours, theirs)
            if off > TOLERANCE:
                notes.append(f"{peer} differs by {off:.1g}")
            if only_one > 0.0:
                notes.append(f"{peer} knows {100 * only_one:.2f} % of the cells otherwise")
            if off <= TOLERANCE and times[peer] == min(times.values()):
                best[name] = kernel
        first, *others = sorted(times, key=times.get)
        rest = ", ".join(f"{peer} {times[peer]:.1f}" for peer in others)
        print(
            f"{own_name:16}{own:8.2f}  {first + f' {times[first]:.2f}':20}"
            f"{times[first] / own:6.2f}  {rest}{'; ' if notes else ''}{'; '.join(notes)}"
        )
    return best


def evaluated(node: ast.expr, features: dict[str, Panel], kernels: dict[str, Callable]) -> object:
    if isinstance(node, ast.Name):
        return features[node.id]
    if isinstance(node, ast.Constant):
        return node.value
    assert isinstance(node, ast.Call) and isinstance(node.func, ast.Name)
    arguments = [evaluated(argument, features, kernels) for argument in node.args]
    return kernels[node.func.id](*arguments)


def compare_expressions(program: str, market: Market, best: dict[str, Callable]) -> None:
    instruments, days = market.shape
    texts = (HERE / "expressions.txt").read_text().replace("\n ", " ").splitlines()[:EXPRESSIONS]
    few = market.folder / "expressions.txt"
    few.write_text("\n".join(texts) + "\n")
    rows = measured(program, "expressions", instruments, days, few, market.folder)
    table = {**panel_kernels.PLAIN, **panel_kernels.WINDOWED}
    plain = {name: kernel for name, (_, kernel) in table.items()}
    own, numpy_time, best_time, off = 0.0, 0.0, 0.0, 0
    for number, (text, row) in enumerate(zip(texts, rows)):
        tree = ast.parse(text, mode="eval").body
        passed, values = nanoseconds(lambda: evaluated(tree, market.features, plain))
        passed_best, _ = nanoseconds(lambda: evaluated(tree, market.features, {**plain, **best}))
        own += row["signal"]
        numpy_time += passed
        best_time += passed_best
        furthest, only_one = difference(market.read(f"expression_{number}"), values)
        if furthest > TOLERANCE or only_one > 0.0:
            off += 1
            print(f"  differs by {furthest:.1g}, {100 * only_one:.2f} % known otherwise: {text}")
    count = len(texts)
    print(
        f"{count} expressions: ours {own / count:.1f}, best peer {best_time / count:.1f} "
        f"({best_time / own:.2f} times), numpy {numpy_time / count:.1f} "
        f"({numpy_time / own:.2f} times); {off} differ from numpy"
    )


def main() -> int:
    if len(sys.argv) not in (2, 4):
        print(__doc__, file=sys.stderr)
        return 2
    program = sys.argv[1]
    sizes = [(4, 3270), (500, 2500)]
    if len(sys.argv) == 4:
        sizes = [(int(sys.argv[2]), int(sys.argv[3]))]
    for instruments, days in sizes:
        with tempfile.TemporaryDirectory() as folder:
            rows = measured(program, "functions", instruments, days, folder)
            market = Market(Path(folder), instruments, days)
            speed = measured(program, "memory")[0]["triad_bytes_a_nanosecond"]
            print(
                f"\n{instruments} instruments, {days} days; the triad would need "
                f"{BYTES_A_CELL / speed:.2f} nanoseconds a cell"
            )
            best = compare_functions(rows, market)
            compare_expressions(program, market, best)
    return 0


if __name__ == "__main__":
    sys.exit(main())
