"""Graphs, settings, results and failures against plain Python versions of them.

Goal: the same answers, objects, errors with what they carry, and questions to the host, whatever
the values are. Method: random scenes, played twice (differences.py); a difference prints its seed.
"""

import plain_failures
import plain_graph
import plain_results
import plain_settings
from differences import Scenes
from host_scenes import (
    depth_engine, era, evaluator_record, evidence, failure, gates, gates_context, payload,
    pool_error, process_evaluation, result, results_context, results_engine, timings, validator,
)
from hostile import Reason, Text

scenes = Scenes(plain_graph, plain_settings, plain_results, plain_failures)


@scenes.of(
    "_plain_graph_data", "_freeze_graph_data", "_structural_key", "_canonical_graph_string",
)
def _(w):
    return (w.graph(3, 0.1),)


@scenes.of("_thaw_graph_data")
def _(w):
    graph = w.graph(2, 0.0)
    graph.pop("window", None)
    frozen = plain_graph._freeze_graph_data(graph)
    return (w.either(
        lambda: frozen, lambda: list(frozen), lambda: frozen + (1,), lambda: ("what", 1),
        lambda: ("dict", (("a", frozen),)), lambda: ("list", [frozen]),
    ),)


@scenes.of("_plain_initial_candidates")
def _(w):
    return (w.either(None, lambda: [w.graph(1) for _ in range(2)]),)


@scenes.of("_graph_within_max_depth")
def _(w):
    depth_engine(w)
    return (w.dressed({"node": 1}) if w.chance(0.7) else w.odd(), w.either(None, 3, 2))


@scenes.of("_candidate_item_within_max_depth", "_reaction_improvement_within_graph_max_depth")
def _(w):
    depth_engine(w)
    item = w.mapping(graph=lambda: w.graph(1)) if w.chance(0.8) else w.odd()
    return (item, w.either(None, 3, 2))


@scenes.of("_graph_passes_validator")
def _(w):
    return (w.graph(1), validator(w))


@scenes.of("_candidate_item_passes_validator")
def _(w):
    return (w.mapping(graph=lambda: w.graph(1)) if w.chance(0.8) else w.odd(), validator(w))


@scenes.of("_lineage_candidate_item")
def _(w):
    depth_engine(w)
    factory = w.operation("factory", lambda: w.mapping(graph=lambda: w.graph(1)), w.odd)
    return (factory, w.odd(), w.either(None, 3), validator(w))


@scenes.of("_context_max_depth")
def _(w):
    return (w.namespace("ctx", 0.2, max_depth=w.number()),)


@scenes.of("_graph_validator")
def _(w):
    backtester = w.namespace("backtester", 0.3, validate_graph=w.either(None, lambda: len))
    return (w.namespace(
        "ctx", 0.3, _graph_validator=w.either(None, lambda: len),
        _backtester=w.either(lambda: backtester)),)


@scenes.of("_deduplicate_graphs")
def _(w):
    return (w.either(lambda: [w.graph(1) for _ in range(5)],
                     lambda: tuple(w.graph(1) for _ in range(5))),)


# Settings.


@scenes.of(
    "_positive_int", "_optional_nonnegative_int", "_positive_float",
    "_optional_nonnegative_float", "_nonnegative_float",
)
def _(w):
    return (w.number(), "setting")


@scenes.of("_operator_rates")
def _(w):
    names = ["crossover", "point_mutation", "hoist_mutation"]
    odd_names = ["zz", Text("crossover"), 5, None, Reason.SHARPE, ("a",)]
    return (w.either(None, lambda: w.dressed({
        w.draw.choice(names if w.chance(0.9) else odd_names): w.number() for _ in range(3)
    })),)


@scenes.of("_rng_from_state")
def _(w):
    return (w.either(None, lambda: (3, (1,) * 625, None)),)


# Results.


@scenes.of("_number")
def _(w):
    return (w.number(), w.odd()) if w.chance(0.5) else (w.number(),)


@scenes.of("_optional_correlation", "_positive_int_or_none")
def _(w):
    return (w.number(),)


@scenes.of("_field_value")
def _(w):
    return (w.either(lambda: w.mapping(a=w.odd), lambda: w.namespace("v", 0.3, a=w.odd())), "a",
            w.odd())


@scenes.of("_evaluation_exception_failure")
def _(w):
    results_engine(w)
    return (pool_error(w),)


@scenes.of("_derive_candidate_failure")
def _(w):
    results_engine(w)
    return (results_context(w), evaluator_record(w), w.stats())


@scenes.of("_candidate_exception_result")
def _(w):
    results_engine(w)
    return (results_context(w), w.graph(2), pool_error(w))


@scenes.of("_candidate_process_evaluation_error_result")
def _(w):
    results_engine(w)
    process_evaluation(w)
    return (w.graph(1), pool_error(w))


@scenes.of("_process_evaluation_error_results")
def _(w):
    results_engine(w)
    process_evaluation(w)
    return (w.either(lambda: [w.graph(1), w.graph(1)]), pool_error(w))


@scenes.of("_process_evaluation_error_is_search_fatal")
def _(w):
    process_evaluation(w, 0.05)
    return (pool_error(w),)


@scenes.of("_simulate_candidate")
def _(w):
    results_engine(w)
    timings(w)

    def outcome(graph):
        return w.mapping(
            record=lambda: w.either(None, lambda: evaluator_record(w)),
            submission_payloads=lambda: w.either(
                None, list, lambda: [payload(w)], lambda: (payload(w),)),
            attempt_evidence=lambda: evidence(w),
        )

    evaluate = w.operation("evaluate", outcome, outcome, outcome, lambda graph: w.odd())
    return (results_context(w, _evaluate_for_template=evaluate), w.graph(1))


@scenes.of("_candidate_stats_payload")
def _(w):
    more = {}
    if w.chance(0.8):
        more["_submitted_stats_payload_from_backtest"] = w.either(None, lambda: w.operation(
            "build", lambda *_: (w.mapping(a=w.odd), None), lambda *_: w.odd(), failing=0.2))
    results_engine(w, **more)
    return (w.namespace("ctx", 0.3, _era_config=w.odd(), era_config=w.odd()),
            w.mapping(stats=w.stats))


# Market and era.


def market_context(w):
    return w.namespace(
        "ctx", 0.4, _market_id=w.number(), market_id=w.number(), _era_number=w.number(),
        era_number=w.number(), _era_config=era(w), era_config=era(w))


@scenes.of("_context_era_config", "_context_market_id", "_context_era_number")
def _(w):
    return (market_context(w),)


@scenes.of("_ensure_payload_market_era")
def _(w):
    return (payload(w), market_context(w))


# Failures.


@scenes.of(
    "_has_reaction_failure", "_has_gate_near_miss_failure", "_has_actionable_near_miss_failure",
)
def _(w):
    return (result(w) if w.chance(0.9) else w.odd(),)


@scenes.of("_has_failure_reason")
def _(w):
    return (result(w) if w.chance(0.9) else w.odd(),
            w.either(lambda: plain_failures.REACTION, lambda: ["x", "sharpe_min"]))


@scenes.of("_context_thresholds")
def _(w):
    gates(w)
    return (gates_context(w),)


@scenes.of(
    "_stats_gate_metrics_for_result", "_sharpe_reaction_value", "_sharpe_reaction_metric_pair",
    "_is_negative_sharpe_reaction_candidate",
)
def _(w):
    gates(w)
    return (result(w) if w.chance(0.9) else w.odd(),)


@scenes.of("_expanded_threshold_failures", "_with_expanded_reaction_failures")
def _(w):
    gates(w)
    return (gates_context(w) if w.chance(0.95) else None,
            result(w) if w.chance(0.9) else w.odd())


@scenes.of("_failure_metric_pair")
def _(w):
    return (failure(w),)


@scenes.cases(80)
def test_equal_to_plain_python(genetic, name, oddity, seeds):
    scenes.compare(genetic, name, oddity, seeds)
