"""The module as a host sees it: constants, entry points, replaceable names, functions.

Goal: the module behaves as one written in Python would. Method: introspection, pickling,
replacement of names, and the module called.
"""

import inspect
import os
import pickle
import random
import types

import pytest


def own_functions(genetic):
    return {
        name: value
        for name, value in vars(genetic).items()
        if inspect.isfunction(value) and value.__module__ == genetic.__name__
    }


def test_the_settings_are_the_hosts(genetic):
    for name in ("BATCH_SIZE", "RESTART_THRESHOLD", "ELITE_FRACTION", "DIVERSITY_WEIGHT",
                 "PARSIMONY_WEIGHT", "OPERATOR_RATES"):
        name = "DEFAULT_" + name
        assert getattr(genetic, name) == getattr(genetic._search_settings, name)
    assert genetic.DEFAULT_OPERATOR_RATES is not genetic._search_settings.DEFAULT_OPERATOR_RATES


def test_the_hosts_operations_are_bound_under_their_names(genetic):
    from varnholt.config import search_settings
    from varnholt.search_templates import (
        _engine, eliteness, genetic_ops, process_evaluation, random_weighted, reaction_planning,
    )

    assert genetic._search_settings is search_settings
    assert genetic._engine is _engine
    assert genetic._process_evaluation is process_evaluation
    assert genetic._reaction_planning is reaction_planning
    assert genetic._evaluate_threshold_gates is _engine.evaluate_threshold_gates
    assert genetic.score_candidate is eliteness.score_candidate
    assert genetic._random_weighted_graphs is random_weighted._random_weighted_graphs
    for name in ("crossover", "hoist_mutation", "point_mutation", "subtree_mutation"):
        assert getattr(genetic, name) is getattr(genetic_ops, name)


def test_the_constants(genetic):
    assert genetic.DEFAULT_MAX_IMPROVEMENT_DEPTH == 8
    assert genetic.DEFAULT_MAX_IMPROVEMENT_CANDIDATES == 96
    assert genetic.DEFAULT_MAX_IMPROVEMENT_ROUNDS == 10
    assert genetic.DEFAULT_MAX_REACTION_PLANS_PER_SOURCE == 8
    assert genetic.DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS == 8
    assert genetic.TIE_SEMANTICS == "score_desc_then_candidate_index_asc_then_canonical_graph"
    assert genetic._GENERATED_SEED_BITS == 63
    assert type(genetic._CHILD_PARENT_OPERATION_MISSING) is object
    assert genetic._GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT == {
        "template": "genetic", "stage": "fresh_candidates", "generator": "random_weighted_graphs"
    }
    assert genetic._GENETIC_REACTION_LOG_CONTEXT == {
        "template": "genetic", "stage": "reaction_planning",
        "generator": "safe_reaction_rotations",
    }


def test_the_reason_tables(genetic):
    constraints = (
        "turnover_max", "turnover_exceeded", "max_weight_max", "max_weight_exceeded",
        "delta_exposure_max", "delta_exposure_exceeded", "abs_weight_sum_mean_below_min",
    )
    sharpe = ("sharpe_min", "gross_returns_sharpe_below_min")
    assert genetic._SEARCH_TERMINAL_IMPROVEMENT_REASONS == ("fork_unavailable",)
    assert genetic._EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS == (
        "duplicate", "max_improvement_candidates", "max_improvement_depth",
        "max_improvement_rounds", "no_improvement",
    )
    assert genetic._REACTION_FAILURE_REASONS == constraints + sharpe
    sets = {
        "_CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS": constraints,
        "_GATE_NEAR_MISS_FAILURE_REASONS": ("correlation_exceeded", "pnl_mi_below_threshold"),
        "_MINIMUM_FAILURE_REASONS":
            sharpe + ("abs_weight_sum_mean_below_min", "pnl_mi_below_threshold"),
        "_SHARPE_REACTION_FAILURE_REASONS": sharpe,
        "_PROCESS_TERMINAL_FAILURE_REASONS": ("worker_failed", "worker_timeout"),
    }
    for name, members in sets.items():
        assert getattr(genetic, name) == frozenset(members)
        assert type(getattr(genetic, name)) is frozenset


def test_the_marker(genetic):
    for marked in (genetic._GeneticTemplate, genetic._DefaultGeneticTemplate, genetic.genetic,
                   genetic._default_genetic_template, genetic.with_config(), genetic):
        assert marked._varnholt_manages_evaluation is True


def test_the_module_is_callable_and_answers_settings(genetic, monkeypatch):
    assert isinstance(genetic, types.ModuleType)
    assert type(genetic) is genetic._CallableGeneticModule
    called = []
    monkeypatch.setattr(
        genetic,
        "_default_genetic_template",
        lambda *args, **keywords: called.append((args, keywords)),
    )
    genetic(1, two=3)
    assert called == [((1,), {"two": 3})]


def test_settings_are_read_from_the_module(genetic):
    assert genetic.batch_size == 4 and genetic.seed is None and genetic.rng is None
    assert genetic.initial_candidates is None
    assert genetic.operator_rates == genetic.DEFAULT_OPERATOR_RATES
    # The module's own names come first, so none of them may be that of a setting.
    settings = {
        name for name in vars(genetic._DefaultGeneticTemplate) if not name.startswith("_")
    }
    assert len(settings) == 13 and not settings & set(vars(genetic))


def test_an_unknown_name_is_told_by_its_name_alone(genetic):
    with pytest.raises(AttributeError) as caught:
        genetic.no_such_name
    assert caught.value.args == ("no_such_name",)
    assert caught.value.__suppress_context__ is True and caught.value.__cause__ is None
    assert not hasattr(genetic, "compose")


def test_every_function_is_a_python_function_of_this_module(genetic):
    functions = own_functions(genetic)
    assert len(functions) > 100
    for name, function in functions.items():
        if name in ("_take_in", "_DEFAULT_FRESH_RANDOM_CANDIDATES"):
            continue
        assert function.__name__ == function.__qualname__ == name
        assert function.__doc__, name
        assert pickle.loads(pickle.dumps(function)) is function
        assert inspect.signature(function)


@pytest.mark.parametrize(
    "name, signature",
    [
        ("genetic", "(ctx)"),
        ("_number", "(value, default=0.0)"),
        ("_lineage_candidate_item", "(factory, lineage, max_depth, validator=None)"),
        ("_run_deduplicated_batch", "(ctx, config, graphs, seen_graph_keys)"),
        ("_fresh_random_candidates", "(ctx, batch_size, rng=None)"),
        ("_candidate_batch", "(ctx, config, batch_index, prior_results, force_restart=False)"),
        ("_annotate_candidate_results",
         "(results, *, start_index, improvement_depth, improvements=None)"),
        ("_context_optional_int", "(ctx, attribute_name, default=None)"),
        ("_callable_accepts_keyword", "(callable_obj, keyword)"),
        ("_field_value", "(value, key, default=None)"),
        ("_block_candidate_submission", "(candidate, reason, detail=None)"),
        ("_candidate_backtest_timing_payload",
         "(_ctx, candidate, *, require_process_identity=False)"),
        ("_ensure_candidate_submission_payload",
         "(ctx, candidate, *, refresh_pool_metrics=False)"),
        ("rank_submittable_candidates", "(candidates)"),
        ("with_config",
         "(batch_size=4, initial_candidates=None, restart_threshold=3, elite_fraction=0.25, "
         "diversity_weight=0.5, parsimony_weight=0.125, operator_rates=None, "
         "max_improvement_depth=8, max_improvement_candidates=96, max_improvement_rounds=10, "
         "process_timeout_seconds=30.0)"),
    ],
)
def test_signatures(genetic, name, signature):
    assert str(inspect.signature(getattr(genetic, name))) == signature


def test_the_template_takes_what_with_config_takes(genetic):
    template = inspect.signature(genetic._GeneticTemplate)
    assert template.parameters == inspect.signature(genetic.with_config).parameters


def test_the_hosts_names_are_looked_up_at_each_call(genetic, monkeypatch):
    engine = types.SimpleNamespace(_graph_depth_for_attempt_marker=lambda graph: 99)
    assert genetic._graph_within_max_depth({}, 3) is True
    monkeypatch.setattr(genetic, "_engine", engine)
    assert genetic._graph_within_max_depth({}, 3) is False
    engine._graph_depth_for_attempt_marker = lambda graph: 1
    assert genetic._graph_within_max_depth({}, 3) is True

    monkeypatch.setattr(
        genetic, "_process_evaluation",
        types.SimpleNamespace(DEFAULT_WORKER_MEMORY_LIMIT_BYTES=11),
    )
    assert genetic._context_worker_memory_limit_bytes(object()) == 11

    monkeypatch.setattr(genetic, "_random_weighted_graphs", lambda ctx, **rest: iter([{"own": 1}]))
    assert genetic._fresh_random_candidates(None, 5) == [{"own": 1}]


def test_a_name_that_was_removed_is_a_name_error(genetic, monkeypatch):
    monkeypatch.delattr(genetic, "_engine")
    with pytest.raises(NameError, match="name '_engine' is not defined"):
        genetic._graph_within_max_depth({}, 3)


def test_with_config_is_looked_up_by_both_entries(genetic, monkeypatch):
    monkeypatch.setattr(genetic, "with_config", lambda: lambda ctx: ("replaced", ctx))
    assert genetic.genetic(1) == ("replaced", 1)
    assert genetic(2) == ("replaced", 2)


def test_the_terminal_reasons_of_processes_are_read_from_the_module(
    genetic, make_context, make_event, monkeypatch
):
    """A reason of the table neither grows nor breaks the row of runtimes that were not ready."""
    asked = []

    class Reasons:
        def __contains__(self, reason):
            asked.append(reason)
            return True

    monkeypatch.setattr(genetic, "_PROCESS_TERMINAL_FAILURE_REASONS", Reasons())
    context = make_context(
        _stop_event=make_event(set_after=2),
        _evaluate_for_template=lambda graph: {
            "record": {"rejection_reason": "plain"}, "attempt_evidence": {}
        },
        _safe_record=lambda *args, **keywords: 1,
        _activate_existing_attempt=lambda attempt_id, evidence: None,
    )
    genetic.with_config(batch_size=2)(context)
    assert asked == ["plain", "plain"]


def test_forked_children_leave_the_parents_objects_alone(genetic):
    graph = {"children": [{}]}
    child = os.fork()
    if child == 0:
        ok = genetic._plain_graph_data(graph) == graph and bool(random.random())
        os._exit(0 if ok else 1)
    assert os.waitpid(child, 0)[1] == 0
