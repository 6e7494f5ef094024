#!/usr/bin/env python3
"""What a candidate of a whole search costs, beside loops of DEAP and gplearn as a user writes them.

  benchmarks/whole_program/compare_with_peers.py build/release/bin/genetic-search PRICES.csv

The libraries are those of requirements.txt beside this file. The program runs with one job, with a
process for each candidate and with processes that are shared; the libraries search the same prices
by numpy kernels of the same functions, with neither processes, store, pool nor gates. "DEAP, fast"
takes the functions that bottleneck has from there: running sums, which drift. Everything
is processor time of a process with its children, its start included, in turns, the least of them.
"A further one" is the difference of a long and a short search, divided by that of their candidates:
what starting, reading and ending cost is no part of it. Searches differ in how large their formulas
are, so "at equal nodes" multiplies what a node costs by the nodes of a candidate of ours; nodes are
features, functions and windows.
"""

from __future__ import annotations

import argparse
import functools
import json
import math
import multiprocessing
import os
import sqlite3
import subprocess
import sys
import tempfile
import traceback
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

for threads in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
    os.environ[threads] = "1"

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "search_quality"))

SHORT, LONG = 512, 2048
ISOLATIONS = ("candidate", "chunk")


@dataclass(frozen=True)
class Cost:
    """Of one search: its processor seconds, its candidates, and the nodes of all of them."""

    seconds: float
    candidates: int
    nodes: int


def measured_child(work: Callable[[], tuple[int, int]]) -> Cost:
    """The work, which answers candidates and nodes, in a process of its own."""
    reader, writer = multiprocessing.Pipe(duplex=False)
    child = os.fork()
    if child == 0:
        status = 1
        try:
            writer.send(work())
            status = 0
        except BaseException:  # Whatever it is: the parent ends the comparison and points to it.
            traceback.print_exc()
        finally:
            sys.stderr.flush()
            os._exit(status)
    writer.close()
    # The answer is shorter than what a pipe holds.
    _, status, used = os.wait4(child, 0)
    if status != 0:
        raise SystemExit("a search has failed; see above")
    candidates, nodes = reader.recv()
    return Cost(used.ru_utime + used.ru_stime, candidates, nodes)


def search_with_ours(program: str, prices: str, isolation: str, candidates: int, seed: int) -> Cost:
    with tempfile.TemporaryDirectory(prefix="whole-loop-") as folder:
        store = Path(folder) / "runs.db"
        command = [
            program, "run", "--prices", prices, "--db", str(store), "--jobs", "1", "--quiet",
            "--seed", str(seed), "--candidates", str(candidates), "--isolation", isolation,
        ]

        def work() -> tuple[int, int]:
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
            return 0, 0

        seconds = measured_child(work).seconds
        with sqlite3.connect(store) as database:
            graphs = [row[0] for row in database.execute("SELECT graph FROM evaluations")]
        return Cost(seconds, len(graphs), sum(nodes_of(json.loads(graph)) for graph in graphs))


def nodes_of(graph: dict) -> int:
    return 1 + sum(map(nodes_of, graph["children"]))


def fast_kernels(least_known_share: float) -> dict[str, Callable]:
    import bottleneck

    def moved(function: Callable, **more: int) -> Callable:
        def kernel(x, n):
            return function(x, n, max(1, math.ceil(least_known_share * n)), 0, **more)

        return kernel

    mean, spread = moved(bottleneck.move_mean), moved(bottleneck.move_std, ddof=1)
    rank = moved(bottleneck.move_rank)
    return {
        "ts_sum": moved(bottleneck.move_sum),
        "ts_mean": mean,
        "ts_std": spread,
        "ts_zscore": lambda x, n: (x - mean(x, n)) / spread(x, n),
        "ts_min": moved(bottleneck.move_min),
        "ts_max": moved(bottleneck.move_max),
        "ts_rank": lambda x, n: (rank(x, n) + 1.0) / 2.0,
    }


class Market:
    """Prices and a backtest as a user writes them: a position without a price earns nothing."""

    def __init__(self, path: str, is_fast: bool = False) -> None:
        import numpy
        import pandas

        import panel_backtest
        import panel_kernels
        from formula_service import Function, Vocabulary

        self._numpy = numpy
        self._sharpe_of = panel_backtest.sharpe_of
        self._cost = panel_backtest.COST
        prices = pandas.read_csv(path)
        columns = {
            name: prices.pivot(index="date", columns="symbol", values=name).to_numpy(dtype=float)
            for name in ("open", "high", "low", "close", "volume")
        }
        searched = len(columns["close"]) - round(
            panel_backtest.HOLDOUT_SHARE * len(columns["close"])
        )
        features = panel_kernels.features_of(columns)
        self.features = {name: panel[:searched].copy() for name, panel in features.items()}
        returns = numpy.nan_to_num(self.features["returns"])
        self._returns = returns[panel_backtest.DELAY_DAYS + 1 :]
        tables = (panel_kernels.PLAIN, panel_kernels.WINDOWED)
        self.kernels = {name: kernel for table in tables for name, (_, kernel) in table.items()}
        if is_fast:
            self.kernels.update(fast_kernels(panel_kernels.LEAST_KNOWN_SHARE))
        functions = {
            name: Function(panels, table is panel_kernels.WINDOWED)
            for table in tables
            for name, (panels, _) in table.items()
        }
        self.vocabulary = Vocabulary(tuple(features), functions, panel_kernels.WINDOWS)

    def sharpe(self, signal) -> float:
        """Of the signal as one unit of gross exposure, traded a day later."""
        numpy = self._numpy
        with numpy.errstate(all="ignore"):
            gross = numpy.nansum(numpy.abs(signal), axis=1, keepdims=True)
            weights = numpy.nan_to_num(signal / gross, posinf=0.0, neginf=0.0)
        held = weights[: len(self._returns)]
        traded = numpy.abs(numpy.diff(held, axis=0, prepend=0.0)).sum(axis=1)
        return self._sharpe_of((held * self._returns).sum(axis=1) - self._cost * traded)


def search_with_deap(
    prices: str, candidates: int, seed: int, is_fast: bool = False
) -> tuple[int, int]:
    import random

    import numpy

    from deap import algorithms, gp

    import peer_arms

    market = Market(prices, is_fast)
    panels = list(market.features.values())
    primitives = peer_arms.deap_primitives(market.vocabulary, market.kernels)
    counted = [0, 0]

    def evaluate(tree) -> tuple[float]:
        if counted[0] == candidates:
            raise peer_arms.Spent
        counted[0] += 1
        counted[1] += len(tree)
        with numpy.errstate(all="ignore"):
            return (market.sharpe(gp.compile(tree, primitives)(*panels)),)

    toolbox = peer_arms.deap_toolbox(primitives, evaluate)
    random.seed(seed)
    population = toolbox.population(n=peer_arms.DEAP_POPULATION)
    try:
        while True:
            algorithms.eaSimple(
                population, toolbox, peer_arms.DEAP_CROSSOVER, peer_arms.DEAP_MUTATION,
                peer_arms.DEAP_GENERATIONS, verbose=False,
            )
    except peer_arms.Spent:
        return counted[0], counted[1]


def search_with_gplearn(prices: str, candidates: int, seed: int) -> tuple[int, int]:
    import numpy
    from gplearn.fitness import make_fitness
    from gplearn.genetic import SymbolicRegressor
    from sklearn import config_context

    import peer_arms

    market = Market(prices)
    instruments = market.features["close"].shape[1]

    def flat(kernel: Callable, *window: int) -> Callable:
        return lambda *columns: kernel(
            *(column.reshape(-1, instruments) for column in columns), *window
        ).ravel()

    functions = peer_arms.gplearn_functions(market.vocabulary)
    for function in functions:
        kernel = market.kernels.get(function.name)
        window = []
        if kernel is None:  # The window is a part of the name.
            name, days = function.name.rsplit("_", 1)
            kernel, window = market.kernels[name], [int(days)]
        function.function = flat(kernel, *window)
    metric = make_fitness(function=lambda y, signal, w: 0.0, greater_is_better=True, wrap=False)
    metric.function = lambda y, signal, w: market.sharpe(signal.reshape(-1, instruments))
    samples = numpy.column_stack([panel.ravel() for panel in market.features.values()])
    regressor = SymbolicRegressor(
        function_set=functions, metric=metric, random_state=seed, stopping_criteria=numpy.inf,
        warm_start=True, **peer_arms.GPLEARN,
    )
    samples = numpy.asfortranarray(samples)
    nothing_to_fit = numpy.zeros(len(samples))
    counted = nodes = 0
    for generation in range(1, candidates // peer_arms.GPLEARN["population_size"] + 1):
        regressor.set_params(generations=generation)
        with config_context(assume_finite=True):
            regressor.fit(samples, nothing_to_fit)
        counted += len(regressor._programs[-1])
        nodes += sum(nodes_of_program(program.program) for program in regressor._programs[-1])
    return counted, nodes


def nodes_of_program(program: list) -> int:
    """With the windows that are a part of names."""
    return len(program) + sum(
        getattr(node, "name", "").rsplit("_", 1)[-1].isdigit() for node in program
    )


PEERS = {
    "DEAP": search_with_deap,
    "DEAP, fast": functools.partial(search_with_deap, is_fast=True),
    "gplearn": search_with_gplearn,
}


def least(turns: list[Cost]) -> Cost:
    return min(turns, key=lambda cost: cost.seconds / cost.candidates)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program")
    parser.add_argument("prices")
    parser.add_argument("--turns", type=int, default=3)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    costs: dict[tuple[str, int], list[Cost]] = {}
    for _ in range(options.turns):
        for candidates in (SHORT, LONG):
            for isolation in ISOLATIONS:
                costs.setdefault((f"ours, {isolation}", candidates), []).append(
                    search_with_ours(
                        options.program, options.prices, isolation, candidates, options.seed
                    )
                )
            for name, search in PEERS.items():
                costs.setdefault((name, candidates), []).append(
                    measured_child(lambda: search(options.prices, candidates, options.seed))
                )
    ours = least(costs[f"ours, {ISOLATIONS[0]}", LONG])
    ours_nodes = ours.nodes / ours.candidates
    print(f"{options.turns} turns of {SHORT} and {LONG} candidates; milliseconds of processor time")
    print(f"{'':18}{'candidates':>11}{'nodes each':>11}{'whole search':>13}{'a further one':>14}"
          f"{'at equal nodes':>15}")
    for name in dict.fromkeys(name for name, _ in costs):
        short, whole = (least(costs[name, candidates]) for candidates in (SHORT, LONG))
        nodes = whole.nodes / whole.candidates
        further = (whole.seconds - short.seconds) / (whole.candidates - short.candidates)
        further_nodes = (whole.nodes - short.nodes) / (whole.candidates - short.candidates)
        print(f"{name:18}{whole.candidates:11}{nodes:11.2f}"
              f"{1e3 * whole.seconds / whole.candidates:13.3f}{1e3 * further:14.3f}"
              f"{1e3 * further / further_nodes * ours_nodes:15.3f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
