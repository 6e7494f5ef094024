"""Every name of the module, with the arguments that it takes.

Goal: a host's notebook finds each operation, constant and class under its name and can call it in
every form. Method: a list written by hand, of all that a host may rely on, compared with what
introspection shows.
"""

import inspect

import pytest

SIGNATURES = """
with_config(batch_size, initial_candidates, restart_threshold, elite_fraction, diversity_weight, \
parsimony_weight, operator_rates, max_improvement_depth, max_improvement_candidates, \
max_improvement_rounds, process_timeout_seconds)
genetic(ctx)
_positive_int(value, name)
_optional_nonnegative_int(value, name)
_positive_float(value, name)
_optional_nonnegative_float(value, name)
_nonnegative_float(value, name)
_operator_rates(operator_rates)
_generate_run_seed()
_managed_rng_state(seed)
_rng_from_state(state)
_run_genetic_search(ctx, config)
_record_search_run_metrics(ctx, config, *, process_count, candidate_count, generated_graph_count, \
unique_graph_count, duplicate_graph_count, improvement_round_count, terminal_reason, \
failure_count, elapsed_simulation_seconds)
_callable_accepts_keyword(callable_obj, keyword)
_plain_graph_data(value)
_freeze_graph_data(value)
_thaw_graph_data(value)
_plain_initial_candidates(initial_candidates)
_graph_within_max_depth(graph, max_depth)
_candidate_item_within_max_depth(item, max_depth)
_reaction_improvement_within_graph_max_depth(improvement, max_depth)
_graph_passes_validator(graph, validator)
_candidate_item_passes_validator(item, validator)
_lineage_candidate_item(factory, lineage, max_depth, validator=None)
_context_max_depth(ctx)
_structural_key(graph)
_canonical_graph_string(graph)
_deduplicate_graphs(graphs)
_run_deduplicated_batch(ctx, config, graphs, seen_graph_keys)
_candidate_eliteness(candidate, diversity_weight, parsimony_weight)
_graph_node_names(graph)
_graph_similarity(left, right)
_selected_redundancy(candidate, selected)
_diversity_adjusted_parent_score(candidate, selected, diversity_weight, parsimony_weight)
_diverse_parent_pool(prior, rng=None, elite_fraction, diversity_weight, parsimony_weight)
compose_next_batch(prior, batch_size, rng=None, fresh_random_factory=None, elite_factory=None, \
elite_fraction, diversity_weight, parsimony_weight, max_depth=None, validator=None)
_fresh_random_candidates(ctx, batch_size, rng=None)
_fresh_random_candidates_for_rng(ctx, batch_size, rng)
_graph_validator(ctx)
_choose_operator(operator_rates, rng)
_weighted_parent_index(parents, rng, diversity_weight, parsimony_weight)
_elite_derived_graph(ctx, parents, rng, operator_rates=None, elite_fraction, diversity_weight, \
parsimony_weight)
_data_graph_child_count(graph)
_restore_elite_root_node(child, elite_root_node, elite_data_child_count, validator)
_safe_reaction_rotations(ctx)
_safe_reaction_rotation_names(ctx)
_candidate_batch(ctx, config, batch_index, prior_results, force_restart=False)
_number(value, default=0.0)
_optional_correlation(value)
_evaluation_exception_failure(exc)
_candidate_exception_result(ctx, graph, exc)
_candidate_process_evaluation_error_result(graph, exc)
_process_evaluation_error_results(batch, exc)
_process_evaluation_error_is_search_fatal(exc)
_derive_candidate_failure(ctx, record, stats)
_not_evaluated_verdict()
_simulate_candidate(ctx, graph)
_candidate_stats_payload(ctx, candidate)
_context_era_config(ctx)
_positive_int_or_none(value)
_context_market_id(ctx)
_context_era_number(ctx)
_ensure_payload_market_era(payload, ctx)
_submission_mi_failure_detail(ctx, score)
_block_candidate_submission(candidate, reason, detail=None)
_set_candidate_mi_tracking(ctx, candidate, score)
_set_candidate_correlation_tracking(ctx, candidate, correlation)
_mark_candidate_pool_metrics_pending(candidate, payload, detail)
_clear_candidate_pool_metrics_pending(candidate, payload)
_refresh_candidate_submission_pool_metrics(ctx, candidate, payload)
_validated_process_backtest_timing(timing)
_consumed_process_backtest_timing(graph, payload)
_process_backtest_timing(graph, attempt_evidence, payload)
_validated_graph_process_backtest_timing(graph, timing)
_validated_graph_backtest_timing(graph, timing)
_graph_bound_process_backtest_timing(graph, timing)
_candidate_backtest_timing_payload(_ctx, candidate, *, require_process_identity=False)
_ensure_candidate_submission_payload(ctx, candidate, *, refresh_pool_metrics=False)
_candidate_eval_id(candidate)
_candidate_rejection_reason(candidate)
_record_candidate_result_in_parent(ctx, candidate)
_record_candidate_results_in_parent(ctx, candidates)
_submit_candidate(ctx, candidate)
_submit_submittable_candidates(ctx, candidates)
rank_submittable_candidates(candidates)
_has_reaction_failure(result)
_has_gate_near_miss_failure(result)
_has_actionable_near_miss_failure(result)
_field_value(value, key, default=None)
_context_thresholds(ctx)
_stats_gate_metrics_for_result(result)
_expanded_threshold_failures(ctx, result)
_with_expanded_reaction_failures(ctx, result)
_failure_metric_pair(failure)
_sharpe_reaction_value(result)
_sharpe_reaction_metric_pair(result)
_is_negative_sharpe_reaction_candidate(result)
_improvement_terminal_ends_search(reason)
_improvement_terminal_exhausts_near_misses(reason, generation_improvement_count, \
generation_round_count)
_improvement_depth(result)
_derive_reaction_improvements(ctx, result, *, max_plans=None, extra_data_graphs=())
_derive_reaction_improvement(ctx, result)
_candidate_quality(result)
_reaction_priority_key(result)
_reaction_repair_priority_key(result)
_graph_feature_names(graph)
_graph_root_family(graph)
_numeric_repair_peer_key(graph)
_peer_feature_overlap_key(source_features, peer_graph)
_has_failure_reason(result, reason_names)
_delta_exposure_peer_value(result)
_max_weight_peer_value(result)
_delta_exposure_peer_repair_key(result)
_max_weight_peer_repair_key(result)
_reaction_peer_graphs(ordered_results, source_result)
_failure_violation(reason, failure)
_failure_progress_key(result)
_is_improved_result(result, source)
_failure_signature(result)
_actionable_near_miss_key(result)
_select_actionable_near_miss_parents(ctx_or_results, results_or_batch_size, batch_size=None)
_improvement_source_pool(ctx, generation_results, current_round_results, batch_size)
_annotate_candidate_results(results, *, start_index, improvement_depth, improvements=None)
_elapsed_candidate_seconds(results)
_derive_improvement_batch(ctx, results, evaluated_keys, *, max_depth, remaining_candidates, \
max_plans_per_result=8)
_process_simulate_candidate(ctx, candidate, found_pnl_paths=(), backtest_boundary_queue=None, \
backtest_acknowledgement_queues=None)
_signal_child_backtest_boundary(boundary_queue, acknowledgement_queues, candidate_index, \
process_attempt, evaluation_state, *args, **kwargs)
_child_safe_record(ctx, graph, passed_thresholds, rejection_reason=None, stats=None, \
per_column_stats=None, expression_elapsed_seconds=None, tracking_metric_kwargs=None, **_kwargs)
_forbid_child_parent_operation(operation_name)
_replace_child_parent_operation(ctx, operation_name, replacement)
_restore_child_parent_operation(ctx, state)
_prefetch_found_pnl_files(ctx)
_candidate_result_from_process_result(process_result)
_context_optional_int(ctx, attribute_name, default=None)
_context_worker_memory_limit_bytes(ctx)
_parallel_evaluation_requested_jobs(ctx)
_parallel_evaluation_worker_resolution(ctx, batch_size)
_log_parallel_evaluation_worker_resolution(ctx, resolution)
_parallel_evaluation_workers(ctx, batch_size)
_parent_prefetch_chunk_size(ctx, batch_size)
_process_attempt_blocker(reason, detail, dispatched, backtest_started, cancelled=False)
_process_attempt_evidence(ctx, reason, detail, dispatched, backtest_started, cancelled)
_build_attempt_column_inventory(expected_columns, per_column_stats)
_attempt_json_ready(value)
_create_process_attempt(ctx, candidate_index, graph)
_finalize_process_failure_attempt(ctx, attempt_id, reason, detail=None, *, dispatched, \
backtest_started, cancelled=False)
_write_parent_process_evaluation_attempt_marker(ctx, event)
_record_process_candidate_result_in_parent(ctx, attempt_ledger, candidate_index, candidate_result)
_evaluate_candidate_batch(ctx, batch, process_timeout_seconds=None)
""".strip().splitlines()

# Defaults that are settings of the host.
SETTINGS = {
    "batch_size": "DEFAULT_BATCH_SIZE", "restart_threshold": "DEFAULT_RESTART_THRESHOLD",
    "elite_fraction": "DEFAULT_ELITE_FRACTION", "diversity_weight": "DEFAULT_DIVERSITY_WEIGHT",
    "parsimony_weight": "DEFAULT_PARSIMONY_WEIGHT",
    "max_improvement_depth": "DEFAULT_MAX_IMPROVEMENT_DEPTH",
    "max_improvement_candidates": "DEFAULT_MAX_IMPROVEMENT_CANDIDATES",
    "max_improvement_rounds": "DEFAULT_MAX_IMPROVEMENT_ROUNDS",
}
WITH_SETTINGS = (
    "with_config", "compose_next_batch", "_diverse_parent_pool", "_elite_derived_graph",
)

LEDGER = """
__init__(self, ctx, indexed_batch)
prepare_for_processes(self)
poll_backtest_boundaries(self)
pre_dispatch(self, event)
lifecycle(self, event)
progress(self, event)
apply_child_evidence(self, candidate_index, evidence)
source_attempt_id(self, candidate_index)
failure_evidence(self, candidate_index, reason, detail=None)
mark_parent_finalized(self, candidate_index)
acknowledge_parent_persistence_failure(self, candidate_index)
finalize_all_open(self, reason, detail=None)
_state_for_event(self, event)
_start_backtest_attempt(self, candidate_index, attempt_number)
_drain_backtest_boundaries(self)
_finalize_state(self, state, reason, detail=None)
_clear_marker(self, state)
""".strip().splitlines()

CONSTANTS = {
    "DEFAULT_MAX_IMPROVEMENT_DEPTH": 8,
    "DEFAULT_MAX_IMPROVEMENT_CANDIDATES": 96,
    "DEFAULT_MAX_IMPROVEMENT_ROUNDS": 10,
    "DEFAULT_MAX_REACTION_PLANS_PER_SOURCE": 8,
    "DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS": 8,
    "TIE_SEMANTICS": "score_desc_then_candidate_index_asc_then_canonical_graph",
    "_GENERATED_SEED_BITS": 63,
    "_SEARCH_TERMINAL_IMPROVEMENT_REASONS": ("fork_unavailable",),
    "_NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES": frozenset({"comparison"}),
}


def parameters(signature):
    """[(name, default or None)] of a written signature, in order; "*" stands for itself."""
    inside = signature[signature.index("(") + 1:-1]
    # The one default with a comma or a bracket in it is the empty tuple.
    parts = [part.strip() for part in inside.split(",") if part.strip()]
    return [tuple(part.split("=")) if "=" in part else (part, None) for part in parts]


def shown(function):
    found = []
    star = False
    for one in inspect.signature(function).parameters.values():
        if one.kind is one.KEYWORD_ONLY and not star:
            found.append(("*", None))
            star = True
        prefix = {one.VAR_POSITIONAL: "*", one.VAR_KEYWORD: "**"}.get(one.kind, "")
        star = star or prefix == "*"
        assert one.kind is not one.POSITIONAL_ONLY
        found.append((prefix + one.name, None if one.default is one.empty else repr(one.default)))
    return found


@pytest.mark.parametrize("signature", SIGNATURES, ids=lambda line: line.split("(")[0])
def test_operations(genetic, signature):
    name = signature.split("(")[0]
    function = getattr(genetic, name)
    written = parameters(signature)
    real = shown(function)
    assert [one for one, _ in real] == [one for one, _ in written]
    for (one, default), (_, told) in zip(written, real):
        if name in WITH_SETTINGS and default is None and one in SETTINGS:
            assert told == repr(getattr(genetic, SETTINGS[one]))
        elif name == "with_config":
            expected = genetic._process_evaluation.DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS
            assert told == ("None" if one in ("initial_candidates", "operator_rates")
                            else repr(expected))
        else:
            assert told == default, one
    assert function.__doc__ and function.__doc__.strip()


@pytest.mark.parametrize("signature", LEDGER, ids=lambda line: line.split("(")[0])
def test_operations_of_the_ledger(genetic, signature):
    function = getattr(genetic._ProcessAttemptLedger, signature.split("(")[0])
    assert shown(function) == parameters(signature)


def test_other_classes(genetic):
    assert shown(genetic._ChildSyncSnapshot.__init__) == parameters(
        "(self, sync_mgr, found_pnl_paths)")
    assert callable(genetic._ChildSyncSnapshot.request_for_sync)
    assert callable(genetic._ChildSyncSnapshot.get_manifest)
    assert list(genetic._ProcessAttemptLedger._new_state()) == [
        "attempt_id", "dispatched", "worker_started", "backtest_started", "finalized",
        "failure_reason", "failure_detail", "marker_attempt_id",
    ]
    template = genetic._GeneticTemplate
    assert shown(template.__setattr__) == parameters("(self, name, value)")
    assert shown(template._store_rng_state) == parameters("(self, rng)")
    assert shown(template._rng_for_batch) == parameters("(self)")
    assert shown(template.__init__)[1:] == shown(genetic.with_config)
    for name in (*SETTINGS, "seed", "process_timeout_seconds", "initial_candidates", "rng",
                 "operator_rates"):
        assert isinstance(vars(template)[name], property), name
        assert isinstance(vars(genetic._DefaultGeneticTemplate)[name], property), name
    assert type(genetic) is genetic._CallableGeneticModule
    assert isinstance(genetic._default_genetic_template, genetic._DefaultGeneticTemplate)
    for one in (template, genetic._DefaultGeneticTemplate, genetic.genetic):
        assert one._varnholt_manages_evaluation is True


def test_every_class_says_what_it_is_for(genetic):
    for name in ("_GeneticTemplate", "_DefaultGeneticTemplate", "_CallableGeneticModule",
                 "_ChildSyncSnapshot", "_ProcessAttemptLedger"):
        own = getattr(genetic, name)
        assert own.__doc__, name
        for member, value in vars(own).items():
            if member == "__call__" or not member.startswith("__"):
                if callable(value) or isinstance(value, property):
                    assert value.__doc__, f"{name}.{member}"


@pytest.mark.parametrize("name", CONSTANTS)
def test_constants(genetic, name):
    value = getattr(genetic, name)
    assert value == CONSTANTS[name] and type(value) is type(CONSTANTS[name])


def test_tables_and_markers(genetic):
    assert genetic._GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT == {
        "template": "genetic", "stage": "fresh_candidates", "generator": "random_weighted_graphs"}
    assert genetic._GENETIC_REACTION_LOG_CONTEXT == {
        "template": "genetic", "stage": "reaction_planning", "generator": "safe_reaction_rotations"}
    assert genetic._DEFAULT_FRESH_RANDOM_CANDIDATES is genetic._fresh_random_candidates
    assert type(genetic._CHILD_PARENT_OPERATION_MISSING) is object
    for name in ("_REACTION_FAILURE_REASONS", "_EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS"):
        assert type(getattr(genetic, name)) is tuple
    for name in ("_CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS", "_GATE_NEAR_MISS_FAILURE_REASONS",
                 "_MINIMUM_FAILURE_REASONS", "_SHARPE_REACTION_FAILURE_REASONS",
                 "_PROCESS_TERMINAL_FAILURE_REASONS"):
        assert type(getattr(genetic, name)) is frozenset
