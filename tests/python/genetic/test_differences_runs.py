"""Whole searches against a plain Python version of the search, from the first draw to the metrics.

Goal: the same questions to the host with the same arguments in the same order, the same random
draws, the same records and the same end, whatever goes wrong on the way. Method: a host that
answers by what it is asked, whose pool runs each candidate in this process, with random settings
and one failure of a random call; a difference prints its seed and where the two logs part.
"""

import random
import secrets
import time
import types
import zlib

import plain_search
import plain_settings
import pytest
from batch_host import AnsweringQueue, BatchWorld, Interrupted, PoolError
from differences import error_shown
from hostile import shown

REASONS = ("turnover_max", "sharpe_min", "delta_exposure_max", "max_weight_exceeded")


class Fatal(Exception):
    pass


class RunWorld(BatchWorld):
    """A host of whole runs. All that it answers follows from the seed and from what it is asked."""

    def __init__(self, seed, failures=None):
        super().__init__(failures=failures, resolved=1 + seed % 3)
        self.seed = seed
        draw = random.Random(seed)
        self.turns = draw.randrange(3, 9)
        self.share_passing = draw.choice([0.0, 0.1, 0.5])
        self.share_lost = draw.choice([0.0, 0.0, 0.1])
        self.share_not_ready = draw.choice([0.0, 0.0, 0.6])
        self.nodes = draw.choice([1, 3, 8, 40])
        self.pool_fails_at = draw.choice([None, None, None, 2, 3])
        self.pool_failure = draw.choice([
            {"terminal_reason": "worker_failed", "candidate_index": 0},
            {"terminal_reason": "memory_budget_exceeded"},
            {"terminal_reason": "process_priority_failed", "candidate_index": 1},
            {"terminal_reason": "fork_unavailable", "candidate_index": 1, "failure_count": 3},
            {},
        ])
        self.batches = 0
        self.stop_asked = 0
        self.engine._held.update(self._engine_operations())
        self.context._held.update(
            _stop_event=types.SimpleNamespace(
                is_set=self.operation("is_set", self._is_stopped),
                wait=self.operation("wait", lambda timeout: self._is_stopped()),
            ),
            _derive_rejection_reason_detail=None,
            _backtester=None,
            _fatal_callback=self.operation("fatal", lambda *_: None),
            vocabulary={"functions": []},
            max_depth=draw.choice([0, 3, 9]),
            _signal_pool_name="pool",
            _era_config={"id": 4},
            market_id=3,
        )
        if draw.random() < 0.3:
            del self.context._held["_stop_event"]
            self.turns = 0
        self.process_evaluation._held["evaluate_candidate_batch"] = self._run_batch
        self.planning = types.SimpleNamespace(
            derive_reaction_improvements=self.operation("plan", self._plan))

    def number(self, *what):
        """A number in [0, 1) that follows from what it is asked for."""
        text = repr((self.seed, *map(shown, what)))
        return zlib.crc32(text.encode()) / 2**32

    def _is_stopped(self):
        self.stop_asked += 1
        return self.stop_asked > 4 * self.turns

    # The host's modules.

    def _engine_operations(self):
        plain = {
            "_graph_depth_for_attempt_marker": lambda graph: self._depth(graph),
            "_stats_gate_threshold_set": lambda thresholds, era: dict(thresholds),
            "_stats_gate_metrics": lambda stats: (
                dict(vars(stats)) if isinstance(stats, types.SimpleNamespace) else {}),
            "threshold_gate_failure_reason": lambda failure: failure.reason,
            "threshold_gate_failure_metric": lambda failure: failure.reason.split("_")[0],
            "_recorded_failure_detail": lambda reason, metric, value, threshold, **_: {
                "value": value, "threshold": threshold},
            "_annotate_submission_client_manifest": lambda payload, _: None,
            "_function_entries_for_kind": lambda vocabulary, kind: [],
            "_random_weighted_window_limit": lambda ctx, depth: depth,
            "_random_weighted_node_limit": lambda ctx: 9,
            "_random_weighted_runtime_registry": lambda ctx: {},
            "_signal_generation_safe_rotations": lambda *_, **__: [{"name": "r"}],
        }
        return {
            **{name: self.operation(name, answer) for name, answer in plain.items()},
            "SdkRuntimeNotReadyError": ZeroDivisionError,
            "_SDK_RUNTIME_NOT_READY_REJECTION_DETAIL": "Not ready.",
            "_INFRASTRUCTURE_FAILURE_THRESHOLD": 5,
            "BackgroundInfrastructureError": Fatal,
        }

    def _depth(self, graph):
        return 1 + max(map(self._depth, graph.get("children", ())), default=0)

    def _gates(self, *, metrics, threshold_set):
        failures = [
            types.SimpleNamespace(reason=reason, actual=self.number(reason, metrics),
                                  threshold=0.5, gate="g", operator="<", category="c")
            for reason in REASONS if self.number("fails", reason, metrics) < 0.3
        ]
        return types.SimpleNamespace(failures=failures)

    def _fresh(self, ctx, *, rng, log_context, template_name):
        while True:
            yield self._graph(rng, 2 if self.nodes > 1 else 0)

    def _graph(self, rng, depth):
        graph = {"node": f"n{rng.randrange(self.nodes)}", "type": "function"}
        if depth and rng.random() < 0.5:
            graph["children"] = [self._graph(rng, depth - 1) for _ in range(rng.randrange(3))]
        return graph

    def _score(self, candidate, **weights):
        return round(4 * self.number("score", candidate.get("graph")))

    def _crossed(self, elite, mate, *, rng, validator):
        return {"node": f"x{rng.randrange(self.nodes)}", "children": [elite]}

    def _mutated(self, elite, replacements=(), *, rng, validator):
        return {**elite, "window": rng.randrange(self.nodes)}

    def _plan(self, result, *, improvement_depth, extra_data_graphs, **_):
        graph = result["graph"]
        return [
            {"graph": {"node": f"plan{i}", "children": [graph]}, "source_result": result,
             "reaction_plan": f"plan {i}", "improvement_depth": improvement_depth}
            for i in range(int(3 * self.number("plans", graph)))
        ]

    # The pool: each candidate runs in this process.

    def _run_batch(self, candidates, simulate, *, config):
        self.call("evaluate_candidate_batch", len(candidates))
        self.batches += 1
        if self.batches == self.pool_fails_at:
            raise PoolError(**self.pool_failure)
        lost = []
        for candidate in candidates:
            if self.number("lost", candidate.graph, self.batches) < self.share_lost:
                lost.append(PoolError("lost", terminal_reason="worker_timeout",
                                      candidate_index=candidate.candidate_index))
                continue
            self._run(candidate, simulate, config)
        if lost:
            raise PoolError("some were lost", terminal_errors=tuple(lost), candidate_index=0)
        return self.results

    def _run(self, candidate, simulate, config):
        index = candidate.candidate_index
        event = {"candidate_index": index, "attempt": 0, "candidate": candidate}
        if index == 0 or not hasattr(self, "results"):
            self.results = []
        config.pre_dispatch_callback(event)
        config.lifecycle_callback({**event, "event": "started"})
        config.progress_callback({**event, "event": "started"})
        payload = simulate(candidate)
        result = types.SimpleNamespace(
            candidate_index=index, payload=payload, worker_pid=7, attempt=0,
            elapsed_simulation_seconds=self.number("seconds", candidate.graph))
        config.lifecycle_callback({**event, "event": "ok"})
        config.progress_callback({**event, "event": "ok"})
        config.completed_result_callback(result)
        self.results.append(result)

    def _evaluate(self, graph):
        if self.number("ready", graph) < self.share_not_ready:
            raise ZeroDivisionError("not ready")
        started = self.number("starts", graph) < 0.9
        if started:
            self.engine._write_evaluation_attempt_marker(None, graph, None, {}, "run_backtest")
        passed = started and self.number("passes", graph) < self.share_passing
        reason = REASONS[int(4 * self.number("reason", graph))]
        evidence = {"backtest_started": started, "backtest_completed": started,
                    "backtest_timing": {"seconds": self.number("timing", graph)}}
        return {
            "record": {
                "passed": passed, "rejection_reason": None if passed else reason,
                "stats": types.SimpleNamespace(
                    sharpe=self.number("sharpe", graph) - 0.2,
                    quality_score=self.number("quality", graph) - 0.2),
            },
            "submission_payloads": [],
            "attempt_evidence": evidence,
        }

    def bind(self, module, monkeypatch):
        super().bind(module, monkeypatch)
        gates = self.operation("gates", self._gates)
        monkeypatch.setattr(module, "_evaluate_threshold_gates", gates)
        monkeypatch.setattr(module, "_reaction_planning", self.planning)
        monkeypatch.setattr(module, "_random_weighted_graphs", self._fresh)
        monkeypatch.setattr(module, "score_candidate", self.operation("score", self._score))
        monkeypatch.setattr(module, "crossover", self._crossed)
        for name in ("hoist_mutation", "point_mutation", "subtree_mutation"):
            monkeypatch.setattr(module, name, self._mutated)
        checked = self.operation("timing", lambda *args: {"seconds": args[-1]["seconds"]})
        monkeypatch.setitem(
            __import__("sys").modules, "varnholt.simulation.backtest_timing",
            types.SimpleNamespace(
                validate_backtest_timing_payload=checked,
                validate_graph_backtest_timing_payload=checked,
                validate_process_backtest_timing_payload=checked,
                consume_recorded_backtest_timing_payload=self.operation(
                    "consume", lambda *_, **__: {"seconds": 1.0}),
                graph_timing_key=lambda graph: "key",
            ))
        # A run without a stop event ends when it has slept often enough.
        monkeypatch.setattr(time, "sleep", self.operation("sleep", self._sleep))
        monkeypatch.setattr(secrets, "randbits", lambda bits: 1 + self.seed)

    def _sleep(self, seconds):
        self.stop_asked += 1
        if self.stop_asked > 6:
            raise Interrupted("enough")


def settings_of(seed):
    draw = random.Random(-seed)
    return {
        "batch_size": draw.choice([1, 3, 6]),
        "initial_candidates": draw.choice([None, None, [], [{"node": "seed"}, {"node": "seed"}]]),
        "restart_threshold": draw.choice([1, 2, 5]),
        "elite_fraction": draw.choice([0.3, 1.0]),
        "diversity_weight": draw.choice([0.0, 0.5]),
        "parsimony_weight": 0.01,
        "operator_rates": draw.choice([None, {"crossover": 0.0}, {"hoist_mutation": 3}]),
        "max_improvement_depth": draw.choice([None, 0, 1, 3]),
        "max_improvement_candidates": draw.choice([None, 0, 2, 10]),
        "max_improvement_rounds": draw.choice([None, 0, 1, 3]),
        "process_timeout_seconds": 5.0,
    }


def line_shown(value):
    """A line of a log, without what the two do not share: callbacks and classes of their own."""
    if isinstance(value, dict):
        return {key: line_shown(item) for key, item in value.items()}
    if isinstance(value, (tuple, list)):
        return [line_shown(item) for item in value]
    return value if value is None or isinstance(value, str) else shown(value)


def told(world, genetic, monkeypatch, run):
    with monkeypatch.context() as patches:
        world.bind(genetic, patches)
        plain_search.bind(genetic)
        try:
            end = run()
        except BaseException as error:
            end = error_shown(error)
    return [line_shown(line) for line in world.log] + [["end", end]]


def compare(genetic, monkeypatch, seed, failures=None):
    ours, theirs = RunWorld(seed, failures), RunWorld(seed, failures)
    state = {}

    def run():
        template = genetic.with_config(**settings_of(seed))
        template(ours.context)
        state["ours"] = template._rng_state

    def run_plainly():
        template = plain_settings.plain_template(**settings_of(seed))
        plain_search._run_genetic_search(theirs.context, template)
        state["plain"] = template._rng_state

    left = told(ours, genetic, monkeypatch, run)
    right = told(theirs, genetic, monkeypatch, run_plainly)
    for place, (line, plain) in enumerate(zip(left, right)):
        assert line == plain, f"seed {seed}, line {place} of {len(right)}, failures {failures}"
    assert len(left) == len(right), f"seed {seed}"
    assert state.get("ours") == state.get("plain"), f"seed {seed}"
    return theirs


@pytest.mark.parametrize("first", range(0, 120, 20))
def test_runs(genetic, monkeypatch, first):
    for seed in range(first, first + 20):
        compare(genetic, monkeypatch, seed)


def test_a_call_of_the_host_fails(genetic, monkeypatch):
    """Calls of a few runs, one at a time: with an error, with the pool's, with an interrupt."""
    for seed in range(6):
        calls = next(compare(genetic, monkeypatch, seed)._calls)
        draw = random.Random(seed)
        for number in sorted(draw.sample(range(calls), min(calls, 15))):
            error = draw.choice([
                ValueError("v"), TypeError("t"), Interrupted("i"),
                PoolError("p", terminal_reason="worker_failed"), StopIteration("s"),
            ])
            compare(genetic, monkeypatch, seed, {number: (error, draw.random() < 0.5)})


def test_the_runs_reach_what_they_are_for(genetic, monkeypatch):
    """Every way in which a run ends, and repairs, restarts and lost workers."""
    ends, called = set(), set()
    for seed in range(120):
        world = compare(genetic, monkeypatch, seed)
        for line in world.log:
            called.add(line[0])
            if line[0] == "record_search_run_metrics":
                ends.add(dict(line[2])["terminal_reason"])
    assert {"stopped", "duplicate", "sdk_runtime_not_ready", "memory_budget_exceeded"} <= ends
    assert {"plan", "fatal", "sleep", "_enqueue_deferred_submission_payload"} <= called
