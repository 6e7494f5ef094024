"""Signals over daily prices: formulas, random ones and new ones from old ones, and a backtester.

A formula gives one number for each day and instrument; its weights are these numbers less their
mean, scaled to one dollar. The profit of a day is the weights of the day before times the returns.
"""

import copy
import csv
import itertools
import math
import statistics
from dataclasses import dataclass

FEATURES = ("close", "volume", "returns")
UNARY = ("ts_mean_5", "ts_mean_20", "ts_delta_5", "ts_delta_60", "cs_rank", "arithmetic_neg")
BINARY = ("arithmetic_add", "arithmetic_sub", "comparison_gt")


def read_prices(path, days):
    """The features of the first `days` days on which every symbol was traded, as rows by day."""
    by_day = {}
    with open(path, newline="") as file:
        for row in csv.DictReader(file):
            by_day.setdefault(row["date"], []).append(row)
    count = max(map(len, by_day.values()))
    whole = [rows for _, rows in sorted(by_day.items()) if len(rows) == count][:days]
    closes = [[float(row["close"]) for row in rows] for rows in whole]
    returns = [[0.0] * count] + [
        [new / old - 1 for new, old in zip(today, yesterday)]
        for yesterday, today in itertools.pairwise(closes)
    ]
    volumes = [[float(row["volume"]) for row in rows] for rows in whole]
    return {"close": closes, "volume": volumes, "returns": returns}


def node(name, *children):
    return {
        "node": name, "type": "feature" if name in FEATURES else "rotation",
        "children": list(children),
    }


def nodes_of(graph):
    return [graph, *(one for child in graph["children"] for one in nodes_of(child))]


def validate(graph):
    """True; an error for a formula that means nothing."""
    arguments = 0 if graph["node"] in FEATURES else 2 if graph["node"] in BINARY else 1
    if len(graph["children"]) != arguments:
        raise ValueError(f"{graph['node']} takes {arguments} arguments")
    return all(map(validate, graph["children"]))


def random_graph(rng, depth=3):
    if depth == 0 or rng.random() < 0.15:
        return node(rng.choice(FEATURES))
    name = rng.choice(UNARY + BINARY)
    return node(name, *(random_graph(rng, depth - 1) for _ in range(1 + (name in BINARY))))


# Operators.


def _with_part(graph, part, rng):
    graph = copy.deepcopy(graph)
    rng.choice(nodes_of(graph)).update(copy.deepcopy(part))
    return graph


def crossover(elite, mate, *, rng, validator):
    return _with_part(elite, rng.choice(nodes_of(mate)), rng)


def point_mutation(elite, replacements, *, rng, validator):
    graph = copy.deepcopy(elite)
    one = rng.choice(nodes_of(graph))
    one["node"] = rng.choice([
        name for kind in (FEATURES, UNARY, BINARY) if one["node"] in kind for name in kind
    ])
    return graph


def subtree_mutation(elite, replacements, *, rng, validator):
    return _with_part(elite, rng.choice(replacements), rng)


def hoist_mutation(elite, *, rng, validator):
    return rng.choice(nodes_of(elite))


# What a formula means.


def _ranks(row):
    ordered = sorted(row)
    return [ordered.index(value) / len(row) for value in row]


def _over_time(series, function):
    """The same function of each instrument's values up to each day."""
    return [list(row) for row in zip(*(function(list(one)) for one in zip(*series)))]


def _mean(length):
    def mean(values):
        sums = [0.0, *itertools.accumulate(values)]
        return [
            (sums[day + 1] - sums[max(0, day + 1 - length)]) / min(day + 1, length)
            for day in range(len(values))
        ]

    return mean


def _delta(length):
    return lambda values: [
        value - values[max(0, day - length)] for day, value in enumerate(values)
    ]


PAIRS = {
    "arithmetic_add": lambda left, right: left + right,
    "arithmetic_sub": lambda left, right: left - right,
    "comparison_gt": lambda left, right: float(left > right),
}


@dataclass
class Statistics:
    """What a backtest found; the series of profits only where it was asked for."""

    sharpe: float
    quality_score: float
    annualized_returns: float
    turnover: float
    drawdown: float
    max_weight: float
    correlation: float | None = None
    pnl: tuple | None = None


class Backtester:
    def __init__(self, prices):
        self._prices = prices
        self.runs = 0

    def run_backtest(self, graph, metaparameters=None, named_universe=None, *, return_series=False):
        self.runs += 1
        weights = [self._weights(row) for row in self._values(graph)]
        pnl = [0.0] + [
            sum(weight * one for weight, one in zip(held, returns))
            for held, returns in zip(weights, self._prices["returns"][1:])
        ]
        mean, deviation = statistics.fmean(pnl), statistics.pstdev(pnl)
        sharpe = math.sqrt(252) * mean / deviation if deviation > 1e-12 else 0.0
        turnover = statistics.fmean(
            sum(abs(new - old) for new, old in zip(today, yesterday))
            for yesterday, today in itertools.pairwise(weights)
        )
        equity = list(itertools.accumulate(pnl))
        highs = itertools.accumulate(equity, max)
        return Statistics(
            sharpe=sharpe, quality_score=sharpe - 0.1 * turnover, annualized_returns=252 * mean,
            turnover=turnover, drawdown=max(high - now for high, now in zip(highs, equity)),
            max_weight=max(abs(weight) for row in weights for weight in row),
            pnl=tuple(pnl) if return_series else None,
        )

    def _values(self, graph):
        name = graph["node"]
        if name in FEATURES:
            return self._prices[name]
        series = [self._values(child) for child in graph["children"]]
        if name in PAIRS:
            pair = PAIRS[name]
            return [list(map(pair, left, right)) for left, right in zip(*series)]
        if name == "cs_rank":
            return [_ranks(row) for row in series[0]]
        if name == "arithmetic_neg":
            return [[-value for value in row] for row in series[0]]
        make = _mean if name.startswith("ts_mean") else _delta
        return _over_time(series[0], make(int(name.rpartition("_")[2])))

    @staticmethod
    def _weights(row):
        mean = statistics.fmean(row)
        scale = sum(abs(value - mean) for value in row)
        return [(value - mean) / scale if scale > 1e-12 else 0.0 for value in row]
