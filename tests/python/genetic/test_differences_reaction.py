"""Repairs, run metrics and worker capacity against plain Python versions of them.

Goal: the same answers, objects, errors with what they carry, and questions to the host, whatever
the values are. Method: random scenes, played twice (differences.py); a difference prints its seed.
"""

import types

import plain_batch
import plain_search
from differences import Scenes
from host_scenes import gates, gates_context, result, scores

plain = plain_search.improvement
PLAIN = types.SimpleNamespace(
    _improvement_terminal_ends_search=plain.terminal_ends_search,
    _improvement_terminal_exhausts_near_misses=plain.terminal_exhausts_near_misses,
    _improvement_depth=plain.depth,
    _candidate_quality=plain.quality,
    _reaction_priority_key=plain.priority_key,
    _reaction_repair_priority_key=plain.repair_priority_key,
    _failure_violation=plain.violation,
    _failure_progress_key=plain.progress_key,
    _is_improved_result=plain.is_improved,
    _failure_signature=plain.signature,
    _graph_feature_names=plain.feature_names,
    _graph_root_family=plain.root_family,
    _numeric_repair_peer_key=plain.numeric_key,
    _peer_feature_overlap_key=plain.overlap_key,
    _reaction_peer_graphs=plain.peer_graphs,
    _actionable_near_miss_key=plain.near_miss_key,
    _select_actionable_near_miss_parents=plain.select,
    _improvement_source_pool=plain.source_pool,
    _derive_reaction_improvements=plain.derive,
    _derive_reaction_improvement=plain.derive_one,
    _derive_improvement_batch=plain.derive_batch,
    _annotate_candidate_results=plain_search._annotate_candidate_results,
    _elapsed_candidate_seconds=plain_search._elapsed_candidate_seconds,
    _callable_accepts_keyword=plain_search._callable_accepts_keyword,
    _record_search_run_metrics=plain_search._record_search_run_metrics,
    _parallel_evaluation_requested_jobs=plain_batch.requested_jobs,
    _context_worker_memory_limit_bytes=plain_batch.worker_memory_limit_bytes,
    _parallel_evaluation_workers=plain_search._parallel_evaluation_workers,
    _parent_prefetch_chunk_size=plain_batch.prefetch_chunk_size,
    _prefetch_found_pnl_files=plain_batch.prefetch_found_pnl_files,
    _candidate_result_from_process_result=plain_batch.candidate_result_from_process_result,
)
scenes = Scenes(PLAIN)


def some_result(w):
    return result(w) if w.chance(0.95) else w.odd()


@scenes.of("_improvement_terminal_ends_search")
def _(w):
    return (w.either("fork_unavailable", "duplicate", None),)


@scenes.of("_improvement_terminal_exhausts_near_misses")
def _(w):
    return (w.either("max_improvement_rounds", "duplicate", "no_improvement", None),
            w.draw.choice([0, 1, 2.5, True]), w.draw.choice([0, 1]))


@scenes.of(
    "_improvement_depth", "_candidate_quality", "_reaction_priority_key",
    "_reaction_repair_priority_key", "_failure_progress_key", "_failure_signature",
)
def _(w):
    return (some_result(w),)


@scenes.of("_failure_violation")
def _(w):
    return (w.draw.choice(["sharpe_min", "turnover_max", None, 5]), w.either(
        lambda: w.mapping(value=w.number, threshold=w.number)))


@scenes.of("_is_improved_result")
def _(w):
    return (some_result(w), some_result(w))


@scenes.of("_graph_feature_names", "_graph_root_family", "_numeric_repair_peer_key")
def _(w):
    return (w.graph(2, 0.1),)


@scenes.of("_peer_feature_overlap_key")
def _(w):
    return (w.draw.choice([set(), {"close"}, {"close", "rank"}]), w.graph(2, 0.05))


@scenes.of("_reaction_peer_graphs")
def _(w):
    gates(w)
    results = [some_result(w) for _ in range(5)]
    return (results, w.draw.choice(results) if w.chance(0.5) else some_result(w))


@scenes.of("_actionable_near_miss_key")
def _(w):
    scores(w)
    made = some_result(w)
    if type(made) is dict:  # Its depth and index are converted once, and not twice.
        made.update(improvement_depth=w.draw.choice([0, 2, "1"]), candidate_index=3)
    return (made,)


@scenes.of("_select_actionable_near_miss_parents")
def _(w):
    gates(w)
    scores(w)
    results = [some_result(w) for _ in range(5)]
    if w.chance(0.3):
        return (results, w.either(1, 3))
    return (gates_context(w), results, w.either(1, 3, "x"))


@scenes.of("_improvement_source_pool")
def _(w):
    gates(w)
    scores(w)
    results = [some_result(w) for _ in range(4)]
    current = results[:2] + [some_result(w)]
    if w.chance(0.1):
        return (results, w.draw.choice([1, 3, "x"]), current, None)
    return (gates_context(w), results, current, w.draw.choice([1, 3, "x", None]))


def planner(w):
    def plans(source, **_):
        return [
            w.mapping(graph=lambda: w.graph(1, 0.02), source_result=lambda: source,
                      reaction_plan=w.odd, improvement_depth=w.number)
            for _ in range(3)
        ]

    w.patch("_reaction_planning", w.namespace("planning", derive_reaction_improvements=w.operation(
        "derive", plans, plans, lambda *_, **__: w.odd())))


@scenes.of("_derive_reaction_improvements", "_derive_reaction_improvement")
def _(w):
    gates(w)
    planner(w)
    return (gates_context(w), some_result(w))


@scenes.of("_derive_improvement_batch")
def _(w):
    gates(w)
    planner(w)
    return (gates_context(w), [some_result(w) for _ in range(4)], set()), {
        "max_depth": w.draw.choice([None, 0, 1, 5]),
        "remaining_candidates": w.draw.choice([None, 0, 2]),
        "max_plans_per_result": w.either(None, 1, 8, "2"),
    }


@scenes.of("_annotate_candidate_results")
def _(w):
    improvement = {"source_result": result(w), "reaction_plan": w.odd(),
                   "improvement_depth": w.number()}
    return ([some_result(w) for _ in range(3)],), {
        "start_index": w.number(), "improvement_depth": w.number(),
        "improvements": w.draw.choice([None, [], [improvement]]),
    }


@scenes.of("_elapsed_candidate_seconds")
def _(w):
    return ([w.mapping(elapsed_simulation_seconds=w.number) for _ in range(3)],)


RECORDERS = (
    lambda **metrics: None, lambda terminal_reason, **metrics: None, len, "no recorder", None,
)


@scenes.of("_callable_accepts_keyword")
def _(w):
    return (w.either(*[lambda one=one: one for one in RECORDERS]), w.draw.choice(["seed", "obj"]))


@scenes.of("_record_search_run_metrics")
def _(w):
    ctx = w.namespace("ctx", 0.1, record_search_run_metrics=w.either(
        None, lambda: w.operation("metrics")))
    config = w.namespace("config", _batch_size=w.odd(), _seed=w.odd())
    return (ctx, config), {
        name: w.number() if name == "terminal_reason" else w.draw.choice([0, 1, 5, 2.5])
        for name in (
            "process_count", "candidate_count", "generated_graph_count", "unique_graph_count",
            "duplicate_graph_count", "improvement_round_count", "terminal_reason",
            "failure_count", "elapsed_simulation_seconds",
        )
    }


def capacity(w):
    w.patch("_engine", w.namespace("engine", logger=w.odd()))
    w.patch("_process_evaluation", w.namespace(
        "pool",
        resolve_process_worker_count_details=w.operation("resolve", lambda **_: w.namespace(
            "resolution", resolved=w.draw.choice([0, 1, 2, 9]))),
        log_worker_count_reduction=w.operation("log"),
        DEFAULT_WORKER_MEMORY_LIMIT_BYTES=w.odd(),
    ))
    return w.namespace("ctx", 0.2, _n_jobs=w.number(), _worker_memory_limit_bytes=w.number())


@scenes.of("_parallel_evaluation_requested_jobs", "_context_worker_memory_limit_bytes")
def _(w):
    return (capacity(w),)


@scenes.of("_parallel_evaluation_workers", "_parent_prefetch_chunk_size")
def _(w):
    return (capacity(w), w.draw.choice([0, 1, 3, 8]))


@scenes.of("_prefetch_found_pnl_files")
def _(w):
    w.patch("_engine", w.namespace("engine", logger=w.namespace(
        "logger", warning=w.operation("warning"))))
    manager = w.either(None, lambda: w.namespace("manager", 0.2, request_for_sync=w.either(
        None, lambda: w.operation("request", lambda: ["a"], lambda: ("a",), w.odd, failing=0.3))))
    return (w.namespace("ctx", 0.2, _sync_mgr=manager),)


@scenes.of("_candidate_result_from_process_result")
def _(w):
    payload = w.mapping(
        candidate_index=w.odd,
        submission_payload=lambda: w.draw.choice([None, {}, {"worker_pid": w.odd()}, [], "x"]),
        graph=lambda: w.graph(1))
    return (w.namespace(
        "result", 0.03, payload=payload if w.chance(0.9) else w.odd(), candidate_index=w.odd(),
        worker_pid=w.odd(), elapsed_simulation_seconds=w.odd(), attempt=w.odd()),)


@scenes.cases(80)
def test_equal_to_plain_python(genetic, name, oddity, seeds):
    scenes.compare(genetic, name, oddity, seeds)
