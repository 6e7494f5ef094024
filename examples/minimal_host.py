#!/usr/bin/env python3
"""A whole host for `varnholt.search_templates.genetic` in one file.

    PYTHONPATH=build/release/python python examples/minimal_host.py [seconds]

It looks for a planted expression, the difference of two means of prices. The host is as small as
one can be: modules made on the spot, random graphs and two operators, an evaluator that compares a
graph's values with the planted ones, a pool that forks one child after the other, and a context
that keeps what it is given in lists. docs/python-host.md tells what each operation is called with.
"""

import copy
import logging
import math
import multiprocessing
import sys
import time
import types

PRICES = [100 + 9 * math.sin(day / 5) + 4 * math.sin(day / 17) for day in range(120)]
PLANTED = {"node": "minus", "children": [
    {"node": "mean_5", "children": [{"node": "price", "type": "feature"}]},
    {"node": "mean_20", "children": [{"node": "price", "type": "feature"}]},
]}
UNARY = {"negative": 1, "mean_5": 5, "mean_20": 20}


# What a graph means: a series of numbers.


def values(graph):
    node = graph["node"]
    series = [values(child) for child in graph.get("children", ())]
    if node == "price":
        return PRICES
    if node == "negative":
        return [-x for x in series[0]]
    if node == "minus":
        return [x - y for x, y in zip(*series)]
    length = UNARY[node]
    return [sum(series[0][max(0, day - length + 1):day + 1]) / min(day + 1, length)
            for day in range(len(PRICES))]


def correlation(left, right):
    means = sum(left) / len(left), sum(right) / len(right)
    pairs = [(x - means[0], y - means[1]) for x, y in zip(left, right)]
    scale = math.sqrt(sum(x * x for x, _ in pairs) * sum(y * y for _, y in pairs))
    return sum(x * y for x, y in pairs) / scale if scale > 1e-9 else 0.0


# Random graphs and operators.


def random_graph(rng, depth=3):
    if depth == 0 or rng.random() < 0.2:
        return {"node": "price", "type": "feature"}
    node = rng.choice([*UNARY, "minus"])
    children = 2 if node == "minus" else 1
    return {"node": node, "children": [random_graph(rng, depth - 1) for _ in range(children)]}


def random_weighted_graphs(ctx, *, rng, log_context, template_name):
    while True:
        yield random_graph(rng)


def places(graph):
    """Every list of children with the places in it."""
    for place, child in enumerate(graph.get("children", ())):
        yield graph["children"], place
        yield from places(child)


def with_part(graph, part, rng):
    """A copy of the graph with one of its parts exchanged."""
    graph = copy.deepcopy(graph)
    found = list(places(graph))
    if not found:
        return copy.deepcopy(part)
    children, place = rng.choice(found)
    children[place] = copy.deepcopy(part)
    return graph


def crossover(elite, mate, *, rng, validator):
    parts = [children[place] for children, place in places(mate)]
    return with_part(elite, rng.choice(parts or [mate]), rng)


def mutation(elite, replacements, *, rng, validator):
    return with_part(elite, rng.choice(replacements), rng)


def hoist(elite, *, rng, validator):
    return rng.choice(elite.get("children") or [elite])


def validate(graph):
    """True, or an error: the search may have put a root of two children on a graph with one."""
    children = graph.get("children", ())
    if len(children) != {"price": 0, "minus": 2}.get(graph["node"], 1):
        raise ValueError("a node with too many children or too few")
    return all(map(validate, children))


def depth(graph):
    return 1 + max(map(depth, graph.get("children", ())), default=0)


# The pool: one child after the other.


class PoolError(RuntimeError):
    pass


def evaluate_batch(candidates, simulate, *, config):
    results = []
    for candidate in candidates:
        event = {"candidate_index": candidate.candidate_index, "attempt": 0,
                 "candidate": candidate}
        config.pre_dispatch_callback(event)
        reader, writer = multiprocessing.Pipe(duplex=False)
        child = multiprocessing.get_context("fork").Process(
            target=lambda: writer.send(simulate(candidate)))
        start = time.monotonic()
        child.start()
        writer.close()
        config.lifecycle_callback({**event, "event": "started"})
        # The child waits at its backtest until the parent has polled.
        while not reader.poll(0.001):
            config.parent_poll_callback()
        payload = reader.recv()
        child.join()
        config.lifecycle_callback({**event, "event": "ok"})
        results.append(types.SimpleNamespace(
            candidate_index=candidate.candidate_index, payload=payload, worker_pid=child.pid,
            attempt=0, elapsed_simulation_seconds=time.monotonic() - start))
        config.completed_result_callback(results[-1])
    return results


# The context and the tracker.


class Tracker:
    def __init__(self):
        self.attempts = []

    def create_simulation_attempt(self, *, graph, **fields):
        self.attempts.append("created")
        return len(self.attempts) - 1

    def mark_simulation_attempt_dispatched(self, attempt):
        self.attempts[attempt] = "dispatched"

    def mark_simulation_attempt_backtest_started(self, attempt):
        self.attempts[attempt] = "started"

    def finalize_simulation_attempt(self, attempt, *, terminal_disposition, **fields):
        self.attempts[attempt] = terminal_disposition


class Context:
    _product_run_id, _era_number, _market_id = 1, 1, 1
    _attempt_expected_columns, _thresholds = [], {}
    _era_config, _signal_pool_name, _backtester = {"id": 1}, "signals", None
    _graph_validator = staticmethod(validate)
    max_depth = 6

    def __init__(self, seconds):
        self._tracker = Tracker()
        self._stop_event = self
        self._template_evaluation_state = types.SimpleNamespace(attempt_id=None)
        self._end = time.monotonic() + seconds
        self.recorded = []
        self.submitted = []

    # The stop event: time is up, or the planted expression is found.

    def is_set(self):
        return time.monotonic() > self._end or self.best() > 0.9999

    def wait(self, timeout):
        return self.is_set()

    def best(self):
        return max((quality for quality, _ in self.recorded), default=0.0)

    def _submission_cancelled(self):
        return False

    def _evaluate_for_template(self, graph):
        _engine._write_evaluation_attempt_marker(None, graph, None, {}, "run_backtest")
        quality = correlation(values(graph), values(PLANTED))
        passed = quality > 0.9
        timing = {"seconds": 0.0}
        return {
            "record": {
                "passed": passed, "rejection_reason": None if passed else "unlike",
                "stats": types.SimpleNamespace(sharpe=quality, quality_score=quality),
            },
            "attempt_evidence": {
                "backtest_started": True, "backtest_completed": True, "backtest_timing": timing},
        }

    def _current_attempt_evidence(self):
        return {"backtest_started": False, "backtest_completed": False}

    def _activate_existing_attempt(self, attempt, evidence):
        self._tracker.attempts[attempt] = "evaluated"

    def _safe_record(self, graph, passed, *, stats=None, **fields):
        self.recorded.append((getattr(stats, "sharpe", 0.0), graph))
        return len(self.recorded)

    def _enqueue_deferred_submission_payload(self, payload):
        self.submitted.append(payload)

    def record_search_run_metrics(self, **metrics):
        self.metrics = metrics


# The host's modules.


def without_key(*arguments):
    return {"seconds": arguments[-1]["seconds"]}


MODULES = {
    "varnholt.config.search_settings": dict(
        DEFAULT_BATCH_SIZE=24, DEFAULT_RESTART_THRESHOLD=4, DEFAULT_ELITE_FRACTION=0.3,
        DEFAULT_DIVERSITY_WEIGHT=0.2, DEFAULT_PARSIMONY_WEIGHT=0.01, DEFAULT_PROCESS_PRIORITY=0,
        DEFAULT_OPERATOR_RATES={"crossover": 0.5, "point_mutation": 0.3, "subtree_mutation": 0.2,
                                "hoist_mutation": 0.1}),
    "varnholt.search_templates._engine": dict(
        logger=logging.getLogger("host"), SdkRuntimeNotReadyError=type("NotReady", (OSError,), {}),
        _SDK_RUNTIME_NOT_READY_REJECTION_DETAIL="Not ready.", _INFRASTRUCTURE_FAILURE_THRESHOLD=9,
        BackgroundInfrastructureError=RuntimeError, _graph_depth_for_attempt_marker=depth,
        _write_evaluation_attempt_marker=lambda *_: None,
        _clear_evaluation_attempt_marker=lambda *_: None,
        _attempt_declared_data_shape=lambda columns: {},
        _stats_gate_threshold_set=lambda thresholds, era: thresholds,
        _stats_gate_metrics=lambda stats: {},
        _annotate_submission_client_manifest=lambda payload, manager: None,
        evaluate_threshold_gates=lambda **_: types.SimpleNamespace(failures=())),
    "varnholt.search_templates.process_evaluation": dict(
        DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS=30.0, DEFAULT_WORKER_MEMORY_LIMIT_BYTES=1 << 30,
        TERMINAL_WORKER_FAILED="worker_failed", TERMINAL_WORKER_TIMEOUT="worker_timeout",
        TERMINAL_PROCESS_PRIORITY_FAILED="process_priority_failed",
        TERMINAL_MEMORY_BUDGET_EXCEEDED="memory_budget_exceeded",
        ProcessEvaluationError=PoolError, ProcessEvaluationConfig=types.SimpleNamespace,
        CandidateEvaluation=lambda **fields: types.SimpleNamespace(metadata={}, **fields),
        resolve_process_worker_count_details=lambda **_: types.SimpleNamespace(resolved=1),
        log_worker_count_reduction=lambda *_, **__: None,
        prefetch_candidate_features=lambda ctx, graphs: None,
        _fork_context=lambda: multiprocessing.get_context("fork"),
        evaluate_candidate_batch=evaluate_batch),
    "varnholt.search_templates.reaction_planning": dict(
        derive_reaction_improvements=lambda result, **_: []),
    "varnholt.search_templates.eliteness": dict(
        score_candidate=lambda candidate, **_: candidate["sharpe"]),
    "varnholt.search_templates.genetic_ops": dict(
        crossover=crossover, hoist_mutation=hoist, point_mutation=mutation,
        subtree_mutation=mutation),
    "varnholt.search_templates.random_weighted": dict(
        _random_weighted_graphs=random_weighted_graphs),
    "varnholt.simulation.evaluation_verdicts": dict(
        not_evaluated_verdict=lambda: {"evaluated": False}),
    "varnholt.simulation.attempt_accounting": dict(
        build_column_inventory=lambda columns, stats: {}, json_ready=lambda value: value),
    "varnholt.simulation.backtest_timing": dict(
        validate_backtest_timing_payload=without_key,
        validate_graph_backtest_timing_payload=without_key,
        validate_process_backtest_timing_payload=without_key,
        consume_recorded_backtest_timing_payload=lambda *_, **__: {"seconds": 0.0},
        graph_timing_key=str),
}


def install_modules():
    """Makes the host's modules importable; their packages are made where there are none."""
    for name, members in MODULES.items():
        package = name.rpartition(".")[0]
        if package not in ("varnholt", "varnholt.search_templates"):
            sys.modules.setdefault(package, types.ModuleType(package))
        module = types.ModuleType(name)
        vars(module).update(members)
        sys.modules[name] = module
        parent = sys.modules.get(package) or __import__(package, fromlist=["_"])
        setattr(parent, name.rpartition(".")[2], module)
    return sys.modules["varnholt.search_templates._engine"]


def main():
    global _engine
    _engine = install_modules()
    from varnholt.search_templates import genetic

    context = Context(seconds=float(sys.argv[1]) if len(sys.argv) > 1 else 20.0)
    genetic(context)
    quality, graph = max(context.recorded, key=lambda pair: pair[0])
    print(f"{context.metrics['candidate_count']} candidates, {len(context.submitted)} submitted")
    print(f"best: {quality:.4f} {graph}")
    print("attempts:", sorted(set(context._tracker.attempts)))


if __name__ == "__main__":
    main()
