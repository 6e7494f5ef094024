"""Random generations of results, with everything in them that is easily got wrong, and a host that
answers every question by what it is asked, so that two tellers of one story get the same answers.
"""

import json
import math
import types
import zlib
from collections import OrderedDict
from fractions import Fraction
from types import SimpleNamespace

REASONS = [
    "turnover_max", "turnover_exceeded", "max_weight_max", "max_weight_exceeded",
    "delta_exposure_max", "delta_exposure_exceeded", "abs_weight_sum_mean_below_min",
    "sharpe_min", "gross_returns_sharpe_below_min", "correlation_exceeded",
    "pnl_mi_below_threshold", "evaluate_exception",
]
METRICS = {
    "turnover": "turnover_max", "max_weight": "max_weight_max",
    "delta_exposure": "delta_exposure_max", "sharpe": "sharpe_min", "drawdown": "drawdown_max",
}


class Text(str):
    """A text of a host's own type."""


class Number(float):
    """A real of a host's own type."""


class Record:
    """No mapping, but read as one."""

    def __init__(self, entries):
        self.entries = entries

    def get(self, key, default=None):
        return self.entries.get(key, default)


class Refusing:
    """A figure whose conversion fails as nobody expects."""

    def __init__(self, error):
        self.error = error

    def __float__(self):
        raise self.error

    __int__ = __float__


class World:
    """Draws values, results and graphs. `oddity` is the share of things that are not as usual."""

    def __init__(self, draw, oddity=0.15):
        self.draw = draw
        self.oddity = oddity
        self.nan = math.nan

    def odd(self):
        return self.draw.random() < self.oddity

    def figure(self):
        if not self.odd():
            return round(self.draw.uniform(-2, 3), self.draw.choice((0, 1, 3)))
        return self.draw.choice([
            None, self.nan, float("nan"), math.inf, -math.inf, 0.0, -0.0, True, 3, "0.5", " 1.5 ",
            "x", "nan", [], {}, 10**30, -(10**400), Number(1.25), Fraction(1, 3), 1e-12, 1e-13,
            Text("0.75"),
        ] + ([Refusing(self.draw.choice((KeyError("refused"), OverflowError("too large"))))]
             if self.draw.random() < 0.05 else []))

    def integer(self):
        if not self.odd():
            return self.draw.randrange(6)
        return self.draw.choice(
            [None, "2", "x", 1.9, -3, self.nan, math.inf, True, 10**25, Text("4"), Fraction(7, 2)]
        )

    def name(self):
        if not self.odd():
            return self.draw.choice("abcdefgh")
        return self.draw.choice(["", None, 3, "comparison_gt", "comparison", "ts_mean_5", "\ud800"])

    def graph(self, depth=3):
        node = {"node": self.name(), "type": self.draw.choice(["feature", "function", "rotation"])}
        if depth and node["type"] != "feature":
            children = [self.graph(depth - 1) for _ in range(self.draw.randrange(3))]
            node["children"] = children
        if self.odd():
            change = self.draw.randrange(7)
            if change == 0:
                node.pop("type")
            elif change == 1:
                node["children"] = "feature"
            elif change == 2:
                node["children"] = {"feature": 1}
            elif change == 3:
                node["children"] = [[self.graph(0)], self.graph(0), 5]
            elif change == 4:
                node["extra"] = self.nan
            elif change == 5:
                node["extra"] = self.draw.choice([1, 1.0, True])
            elif self.draw.random() < 0.02:
                node["children"] = self.draw.choice([None, (self.graph(0),), 7])
        return node

    def failure(self):
        record = {}
        if self.draw.random() < 0.8:
            record["value"] = self.figure()
        if self.draw.random() < 0.8:
            record["threshold"] = self.figure()
        if not self.odd():
            return record
        detail = {"value": self.draw.uniform(-1, 2), "threshold": self.draw.uniform(0, 1)}
        return self.draw.choice([
            {"detail": detail}, {"detail": json.dumps(detail)}, {"detail": "no json"}, None, 5,
            "text", OrderedDict(record), types.MappingProxyType(record), {},
            {"value": None, "threshold": None, "detail": OrderedDict(detail)},
        ])

    def failures(self):
        count = self.draw.choice((0, 1, 1, 1, 2, 2, 3))
        failures = {self.draw.choice(REASONS): self.failure() for _ in range(count)}
        if not self.odd():
            return failures
        if self.draw.random() < 0.1:  # No mapping, which an enlargement cannot copy.
            return self.draw.choice([list(failures), tuple(failures), "sharpe_min",
                                     frozenset(failures)])
        return self.draw.choice([
            None, [], 0, OrderedDict(failures), types.MappingProxyType(failures),
            {**failures, 5: {}, Text("zz"): None},
            {Text("turnover_max"): {"value": 1.5, "threshold": 1.0}},
        ])

    def result(self, index):
        stats = {name: self.figure() for name in METRICS if self.draw.random() < 0.8}
        result = {
            "graph": self.graph(),
            "stats": stats,
            "passes": self.draw.random() < 0.15,
            "failures": self.failures(),
            "sharpe": abs(self.draw.uniform(0, 2)) if self.draw.random() < 0.7 else self.figure(),
            "quality_score": self.draw.uniform(0, 2) if self.draw.random() < 0.7 else self.figure(),
            "candidate_index": index if self.draw.random() < 0.8 else self.integer(),
            "improvement_depth": self.integer(),
            "correlation": self.draw.choice([None, 0.5]),
            "number": index,
        }
        for key in ("stats", "passes", "failures", "sharpe", "quality_score", "candidate_index",
                    "improvement_depth"):
            if self.odd() and self.draw.random() < 0.5:
                del result[key]
        if self.odd():
            result["graph"] = self.draw.choice([None, [], 5, self.graph(), self.graph()])
        if self.draw.random() < self.oddity * 0.02:
            result["graph"] = OrderedDict(node="no plain data")
        return result

    def results(self, count):
        results = []
        for index in range(count):
            result = self.result(index)
            if results and self.draw.random() < 0.15:
                other = self.draw.choice(results)
                if self.draw.random() < 0.5:
                    results.append(other)
                    continue
                result["graph"] = other.get("graph")
            if self.odd() and self.draw.random() < 0.3:
                result = self.draw.choice([OrderedDict, types.MappingProxyType, Record])(result)
            results.append(result)
        return results


class Host:
    """Answers by what it is asked and writes down every call."""

    def __init__(self, world, results, errors=0.0):
        self.log = []
        self.errors = errors
        self.raised = {}
        # Objects are told by their places, so that two logs can be compared.
        self.places = {}
        self.kept = []
        for result in results:
            self.keep("result", result)
            if isinstance(result.get("graph"), dict):
                self.keep("graph", result.get("graph"))
        draw = world.draw
        self.salt = draw.randrange(1 << 30)
        self.scores = [draw.choice([0.5, 0.5, 1, 1.5, Fraction(1, 2), math.nan, 2.25, True, -1.0])
                       for _ in range(7)]
        self.replaced = [world.graph() for _ in range(6)]
        for graph in self.replaced:
            self.keep("planned", graph)
        self.limits = {name: draw.uniform(-0.5, 1.5) for name in METRICS if draw.random() < 0.6}

    def keep(self, kind, thing):
        self.kept.append(thing)
        self.places.setdefault(id(thing), (kind, len(self.kept)))

    def known(self, value):
        """What of a value can be compared between two runs."""
        if id(value) in self.places:
            return self.places[id(value)]
        if isinstance(value, (dict, types.MappingProxyType)):
            return (type(value).__name__,
                    tuple((repr(key), self.known(one)) for key, one in value.items()))
        if isinstance(value, (list, tuple)):
            return (type(value).__name__, tuple(self.known(one) for one in value))
        if isinstance(value, (set, frozenset)):
            return ("set", tuple(sorted(map(repr, value))))
        if isinstance(value, Record):
            return ("Record", self.known(value.entries))
        if isinstance(value, SimpleNamespace):
            return self.known(vars(value))
        if callable(value):
            return ("callable", id(value))
        return (type(value).__name__, repr(value))

    def note(self, name, *arguments, **keywords):
        line = (name, self.known(arguments), self.known(keywords))
        self.log.append(line)
        number = zlib.crc32(repr((self.salt, line)).encode())
        if self.errors and number % 1000 < self.errors * 1000:
            raise self.raised.setdefault(line, RuntimeError(f"{name} fails"))
        return number

    # The gates.

    def _stats_gate_threshold_set(self, thresholds, era_config):
        self.note("threshold_set", thresholds, era_config)
        return self.limits

    def _stats_gate_metrics(self, stats):
        self.note("metrics", stats)
        return stats if isinstance(stats, dict) and "graph" not in stats else {}

    def evaluate_threshold_gates(self, *, metrics, threshold_set):
        self.note("gates", metrics=metrics, threshold_set=threshold_set)
        failures = []
        for name, limit in threshold_set.items():
            value = metrics.get(name)
            if isinstance(value, float) and not value <= limit:
                failures.append(SimpleNamespace(metric=name, actual=value, threshold=limit))
        return SimpleNamespace(failures=failures)

    def threshold_gate_failure_reason(self, failure):
        self.note("reason", failure)
        return METRICS[failure.metric]

    def threshold_gate_failure_metric(self, failure):
        self.note("metric", failure)
        return failure.metric

    def _recorded_failure_detail(self, reason, metric, value, threshold, **keywords):
        number = self.note("detail", reason, metric, value, threshold, **keywords)
        detail = {"value": value, "threshold": threshold}
        return json.dumps(detail) if number % 3 == 0 else detail

    # Scores, depths, rotations.

    def score_candidate(self, candidate, **keywords):
        number = self.note("score", candidate, **keywords)
        return self.scores[number % len(self.scores)]

    def _graph_depth_for_attempt_marker(self, graph):
        return 1 + self.note("depth", graph) % 5

    def _function_entries_for_kind(self, vocabulary, kind):
        self.note("functions", vocabulary, kind)
        return [{"name": "rotation_a"}, {"name": ""}, {"name": "rotation_b"}]

    def _random_weighted_window_limit(self, ctx, max_depth):
        self.note("window", max_depth)
        return 3

    def _random_weighted_node_limit(self, ctx):
        self.note("nodes")
        return 4

    def _random_weighted_runtime_registry(self, ctx):
        self.note("registry")
        return {}

    def _signal_generation_safe_rotations(self, functions, *limits, **keywords):
        self.note("rotations", functions, *limits, **keywords)
        return functions

    # The planner.

    def derive_reaction_improvements(self, result, **keywords):
        number = self.note("plans", result, **keywords)
        plans = []
        for plan in range(number % 5):
            graph = self.replaced[(number >> plan) % len(self.replaced)]
            if (number >> plan) % 3 == 0:
                graph = {"node": f"smooth_{plan}", "children": [result["graph"]]}
            plans.append({
                "graph": graph, "source_result": result, "reaction_plan": f"plan {plan}",
                "improvement_depth": keywords["improvement_depth"],
            })
        if number % 11 == 0:
            plans.append("no mapping")
        if number % 97 == 0:
            plans.append({"source_result": result})
        return tuple(plans) if number % 2 else plans

    def install(self, genetic, monkeypatch):
        """Puts the host in the place of the module's own."""
        monkeypatch.setattr(genetic, "_engine", self)
        monkeypatch.setattr(genetic, "_reaction_planning", self)
        monkeypatch.setattr(genetic, "score_candidate", self.score_candidate)
        monkeypatch.setattr(genetic, "_evaluate_threshold_gates", self.evaluate_threshold_gates)

    def outcome_of(self, call):
        """What a call returns or raises, in a form that can be compared, and the calls it made."""
        self.log = []
        try:
            outcome = ("returned", self.known(call()))
        except Exception as error:
            mine = any(error is raised for raised in self.raised.values())
            outcome = ("raised", type(error).__name__, id(error) if mine else str(error))
        return outcome, self.log
