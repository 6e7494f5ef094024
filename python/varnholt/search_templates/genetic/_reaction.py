"""Repairing near misses: which results, in what order, with whose graphs, and what is accepted."""

from varnholt.search_templates.genetic import (
    DEFAULT_MAX_REACTION_PLANS_PER_SOURCE,
    _host,
    _native,
)


def _improvement_terminal_ends_search(reason):
    """Tell whether the reason for which improvement ended ends the whole search."""
    return _native.improvement_terminal_ends_search(reason)


def _improvement_terminal_exhausts_near_misses(
    reason, generation_improvement_count, generation_round_count
):
    """Tell whether, after this reason, the near misses are no longer worth breeding from."""
    return _native.improvement_terminal_exhausts_near_misses(
        reason, generation_improvement_count, generation_round_count
    )


def _improvement_depth(result):
    """Return how many repairs have led to a result; 0 for anything but an integer."""
    return _native.improvement_depth(result)


def _derive_reaction_improvements(ctx, result, *, max_plans=None, extra_data_graphs=()):
    """Return what the host's planner returns for a result, as it stands.

    The planner is not asked, and an empty list returned, for a result without a failure that a
    reaction can address.
    """
    return _native.derive_reaction_improvements(_host, ctx, result, max_plans, extra_data_graphs)


def _derive_reaction_improvement(ctx, result):
    """Return the first of these improvements, or None."""
    return _native.derive_reaction_improvement(_host, ctx, result)


def _candidate_quality(result):
    """Return the quality score of a result as a float, or its sharpe where it has no such key."""
    return _native.candidate_quality(result)


def _reaction_priority_key(result):
    """Return the sort key of a result: negated quality, improvement depth, candidate index."""
    return _native.reaction_priority_key(result)


def _reaction_repair_priority_key(result):
    """Return the sort key of a result to be repaired, in which close constraint misses come first.

    (0, violation, depth, negated quality, index) for a result with a single failure, of a
    constraint, that misses by at most its threshold; (1, negated quality, depth, index) for others.
    """
    return _native.reaction_repair_priority_key(_host, result)


def _graph_feature_names(graph):
    """Return the set of the names of the graph's features."""
    return _native.graph_feature_names(graph)


def _graph_root_family(graph):
    """Return "feature" or the root's name up to its first "_", or None."""
    return _native.graph_root_family(graph)


def _numeric_repair_peer_key(graph):
    """Return 1 for a graph whose root gives no numbers, else 0."""
    return _native.numeric_repair_peer_key(graph)


def _peer_feature_overlap_key(source_features, peer_graph):
    """Return whether the features are the same (1 or 0), and the share that they have in common."""
    return _native.peer_feature_overlap_key(source_features, peer_graph)


def _delta_exposure_peer_value(result):
    """Return the magnitude of a peer's delta exposure, as far as it is known."""
    return _native.delta_exposure_peer_value(_host, result)


def _max_weight_peer_value(result):
    """Return the magnitude of a peer's maximal weight, as far as it is known."""
    return _native.max_weight_peer_value(_host, result)


def _delta_exposure_peer_repair_key(result):
    """Return whether a peer failed by its delta exposure (1 or 0), and the magnitude."""
    return _native.delta_exposure_peer_repair_key(_host, result)


def _max_weight_peer_repair_key(result):
    """Return whether a peer failed by its maximal weight (1 or 0), and the magnitude."""
    return _native.max_weight_peer_repair_key(_host, result)


def _reaction_peer_graphs(ordered_results, source_result):
    """Return the graphs of the other results, one of each structure, the best peers first."""
    return _native.reaction_peer_graphs(_host, ordered_results, source_result)


def _failure_violation(reason, failure):
    """Return by how much a failure misses its threshold, as a share of the threshold."""
    return _native.failure_violation(_host, reason, failure)


def _failure_progress_key(result):
    """Return the number of failures and their summed violation; less is nearer to passing."""
    return _native.failure_progress_key(_host, result)


def _is_improved_result(result, source):
    """Tell whether a result is nearer to passing than its source, or as near and better."""
    return _native.is_improved_result(_host, result, source)


def _failure_signature(result):
    """Return the sorted names of a result's failures as a tuple."""
    return _native.failure_signature(result)


def _actionable_near_miss_key(result):
    """Return the sort key of a near miss, with the host's score among its elements."""
    return _native.actionable_near_miss_key(_host, result)


def _select_actionable_near_miss_parents(ctx_or_results, results_or_batch_size, batch_size=None):
    """Return the near misses that are worth a repair: the best of each kind, then the nearest.

    Called as (ctx, results, batch_size), or as (results, batch_size) without a context.
    """
    return _native.select_actionable_near_miss_parents(
        _host, ctx_or_results, results_or_batch_size, batch_size
    )


def _improvement_source_pool(ctx, generation_results, current_round_results, batch_size):
    """Return the results to derive improvements from: the near misses, then the current round."""
    return _native.improvement_source_pool(
        _host, ctx, generation_results, current_round_results, batch_size
    )


def _derive_improvement_batch(
    ctx,
    results,
    evaluated_keys,
    *,
    max_depth,
    remaining_candidates,
    max_plans_per_result=DEFAULT_MAX_REACTION_PLANS_PER_SOURCE,
):
    """Return the improvements that are accepted, and what was counted, as a dict.

    The structural keys of the accepted graphs are added to the set evaluated_keys.
    """
    return _native.derive_improvement_batch(
        _host,
        ctx,
        results,
        evaluated_keys,
        max_depth,
        remaining_candidates,
        max_plans_per_result,
    )
