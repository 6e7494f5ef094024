"""A whole host for searches on prices: gates, a planner of repairs, a signal pool, a store.

`PriceSearch` is the context of one search; `bind` puts the host's operations into the module, whose
worker pool, markers and accounts are those of the host package beside this file.
"""

import copy
import json
import os
import signal
import time
from types import SimpleNamespace

import price_signals
import small_search
from varnholt.search_templates import _engine

MINIMA = {"sharpe": "sharpe_min"}
MAXIMA = {"turnover": "turnover_max", "max_weight": "max_weight_max"}
THRESHOLDS = {"sharpe": 0.4, "turnover": 0.5, "max_weight": 0.5}
POOL_CORRELATION_MAX = 0.9
POOL_NOVELTY_MIN = 0.2

SCHEMA = """
CREATE TABLE signals (
    evaluation INTEGER UNIQUE, graph TEXT, sharpe REAL, novelty REAL, correlation REAL, seconds REAL
);
"""


# The gates, in the order in which an evaluation asks them: it stops at the first that fails.


def gate_failures(*, metrics, threshold_set):
    def failure(metric, operator):
        return SimpleNamespace(
            metric=metric, actual=metrics[metric], threshold=threshold_set[metric],
            gate=metric + "_gate", operator=operator, category="quality",
        )

    failed = [failure(name, "<") for name in MINIMA if metrics[name] < threshold_set[name]]
    failed += [failure(name, ">") for name in MAXIMA if metrics[name] > threshold_set[name]]
    return SimpleNamespace(failures=failed)


def failure_reason(failure):
    return MINIMA.get(failure.metric) or MAXIMA[failure.metric]


# The signal pool: a new signal's profits are compared with those of every member.


class SignalPool:
    def __init__(self):
        self.members = []

    def correlation(self, pnl):
        return max((_correlation(pnl, one) for one in self.members), default=0.0)


def _correlation(left, right):
    left_mean, right_mean = sum(left) / len(left), sum(right) / len(right)
    pairs = [(x - left_mean, y - right_mean) for x, y in zip(left, right)]
    scale = (sum(x * x for x, _ in pairs) * sum(y * y for _, y in pairs)) ** 0.5
    return sum(x * y for x, y in pairs) / scale if scale else 0.0


def require_series(gate_stats, era_config, signal_pool_name):
    if gate_stats.pnl is None:
        raise ValueError("the statistics have no series of profits")


def novelty(backtester, gate_stats, era_config, signal_pool_name, thresholds):
    score = 1 - backtester.pool.correlation(gate_stats.pnl) ** 2
    return score, score >= POOL_NOVELTY_MIN


def pool_correlation(backtester, gate_stats, era_config, signal_pool_name):
    correlation = backtester.pool.correlation(gate_stats.pnl)
    return correlation, correlation <= POOL_CORRELATION_MAX


def submitted_stats(stats, era_config):
    names = ("sharpe", "annualized_returns", "turnover", "drawdown", "quality_score")
    return {name: getattr(stats, name) for name in names}, None


# The planner: what is too fast is smoothed, what loses is turned round, the rest is blended.


class Planner:
    def __init__(self):
        self.planned = []

    def derive_reaction_improvements(
        self, result, *, vocabulary, safe_rotation_specs, validator, structural_key,
        improvement_depth, max_plans, extra_data_graphs,
    ):
        graph, failures = result["graph"], result["failures"]
        plans = []
        if "turnover_max" in failures:
            plans += [
                ("smooth", price_signals.node(rotation["name"], graph))
                for rotation in safe_rotation_specs if rotation["name"].startswith("ts_mean")
            ]
        if "max_weight_max" in failures:
            plans.append(("rank", price_signals.node("cs_rank", graph)))
        if "sharpe_min" in failures and result["sharpe"] < 0:
            plans.append(("reverse", price_signals.node("arithmetic_neg", graph)))
        plans += [
            ("blend", price_signals.node("arithmetic_add", graph, peer))
            for peer in extra_data_graphs[:2]
        ]
        known, improvements = {structural_key(graph)}, []
        for name, repaired in plans:
            validator(repaired)
            if structural_key(repaired) not in known:
                known.add(structural_key(repaired))
                improvements.append({
                    "graph": copy.deepcopy(repaired), "source_result": result,
                    "reaction_plan": {"name": name}, "improvement_depth": improvement_depth,
                })
        self.planned += improvements
        return improvements


def score_candidate(
    candidate, *, sibling_correlations, pool_correlation, diversity_weight=0.0, parsimony_weight=0.0
):
    nodes = len(price_signals.nodes_of(candidate["graph"]))
    return (
        candidate["quality_score"] - diversity_weight * (pool_correlation or 0.0)
        - parsimony_weight * nodes
    )


def random_weighted_graphs(ctx, *, rng, log_context, template_name):
    while True:
        yield price_signals.random_graph(rng)


def bind(genetic, monkeypatch):
    """Put the operations of this host where the module looks for them; return its planner."""
    planner = Planner()
    engine = {
        "threshold_gate_failure_reason": failure_reason,
        "_selected_pool_has_synced_found_signal_ids": lambda era_config, pool: True,
        "_normalize_required_pool_pnl_matrix": require_series,
        "_submission_pnl_mi_from_backtest_or_compute": novelty,
        "_submission_mi_threshold_and_pool": lambda era, pool, _: (POOL_NOVELTY_MIN, pool),
        "_submission_correlation_from_backtest_or_compute": pool_correlation,
        "_submission_correlation_threshold_and_pool": (
            lambda era, pool: (POOL_CORRELATION_MAX, pool)),
        "_submitted_stats_payload_from_backtest": submitted_stats,
    }
    module = {
        "_evaluate_threshold_gates": gate_failures,
        "score_candidate": score_candidate,
        "_random_weighted_graphs": random_weighted_graphs,
        "_reaction_planning": planner,
        **{name: getattr(price_signals, name) for name in (
            "crossover", "hoist_mutation", "point_mutation", "subtree_mutation")},
    }
    for name, operation in engine.items():
        monkeypatch.setattr(_engine, name, operation)
    for name, operation in module.items():
        monkeypatch.setattr(genetic, name, operation)
    return planner


class PriceSearch(small_search.SearchContext):
    """The context of one search on prices, which ends after so many generations.

    With `interrupt_at`, Ctrl-C is pressed while the attempt of that number, the only one under way,
    is in its backtest.
    """

    _signal_pool_name = "signals"
    _era_config = {"id": 2, "market": 3}
    _graph_validator = staticmethod(price_signals.validate)
    max_depth = 6
    vocabulary = {"functions": [
        {"name": name, "kind": "rotation"}
        for name in (*price_signals.UNARY, *price_signals.BINARY)
    ]}

    def __init__(self, folder, prices, generations, *, jobs=2, interrupt_at=None):
        super().__init__(folder, jobs=jobs, _thresholds=THRESHOLDS)
        self._tracker._database.executescript(SCHEMA)
        self._backtester = price_signals.Backtester(prices)
        self._backtester.pool = SignalPool()
        self._generations_left = generations
        self._interrupt_at = interrupt_at
        self._stop_event = SimpleNamespace(
            is_set=lambda: self._generations_left <= 0, wait=self._end_generation)

    def _end_generation(self, seconds):
        self._generations_left -= 1
        return self._stop_event.is_set()

    # What a child calls.

    def _evaluate_for_template(self, graph):
        _engine._write_evaluation_attempt_marker(self._tracker, graph, None, {}, "run_backtest")
        attempt = self._template_evaluation_state.attempt_id
        if attempt == self._interrupt_at:
            time.sleep(0.2)  # By then the parent does nothing but wait for this child.
            os.kill(os.getppid(), signal.SIGINT)
            time.sleep(60)
        stats = self._backtester.run_backtest(graph)
        failures = gate_failures(metrics=vars(stats), threshold_set=THRESHOLDS).failures
        record = {"passed": not failures, "stats": stats, "rejection_reason": None}
        if failures:
            record["rejection_reason"] = failure_reason(failures[0])
            record["tracking_metric_kwargs"] = {
                "failure_detail": {
                    "value": failures[0].actual, "threshold": failures[0].threshold},
            }
        return {
            "record": record,
            "attempt_evidence": {
                "attempt_id": attempt, "backtest_started": True, "backtest_completed": True,
            },
        }

    # What only the parent calls.

    def _enqueue_deferred_submission_payload(self, payload):
        super()._enqueue_deferred_submission_payload(payload)
        figures = payload["is_stats"]
        self._tracker.execute(
            "INSERT INTO signals VALUES (?, ?, ?, ?, ?, ?)", payload["eval_id"],
            json.dumps(payload["graph"]), figures["sharpe"], figures["is_pnl_mi"],
            figures["correlation"], payload["backtest_timing"]["seconds"],
        )
        self._backtester.pool.members.append(
            self._backtester.run_backtest(payload["graph"], return_series=True).pnl)
