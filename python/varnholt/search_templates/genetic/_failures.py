"""Which failures are worth repairing, and how far a result is from passing."""

from varnholt.search_templates.genetic import _host, _native


def _has_reaction_failure(result):
    """Tell whether a failed result has a failure that a reaction can address."""
    return _native.has_reaction_failure(result)


def _has_gate_near_miss_failure(result):
    """Tell whether a failed result has a failure against the signal pool."""
    return _native.has_gate_near_miss_failure(result)


def _has_actionable_near_miss_failure(result):
    """Tell whether a failed result has either."""
    return _native.has_actionable_near_miss_failure(result)


def _has_failure_reason(result, reason_names):
    """Tell whether the failures of a result, passing or not, name one of these reasons."""
    return _native.has_failure_reason(result, reason_names)


def _stats_gate_metrics_for_result(result):
    """Return the host's metrics of a result's statistics, or of the result itself."""
    return _native.stats_gate_metrics_for_result(_host, result)


def _expanded_threshold_failures(ctx, result):
    """Return every reaction failure that the gates find in a failed result, by reason."""
    return _native.expanded_threshold_failures(_host, ctx, result)


def _with_expanded_reaction_failures(ctx, result):
    """Return the result, or a copy of it with these failures beside its own."""
    return _native.with_expanded_reaction_failures(_host, ctx, result)


def _failure_metric_pair(failure):
    """Return value and threshold of a failure, or of its detail, as they stand."""
    return _native.failure_metric_pair(_host, failure)


def _sharpe_reaction_value(result):
    """Return the sharpe of a result, or None."""
    return _native.sharpe_reaction_value(_host, result)


def _sharpe_reaction_metric_pair(result):
    """Return the sharpe of a result and the threshold that it missed, each or None."""
    return _native.sharpe_reaction_metric_pair(_host, result)


def _is_negative_sharpe_reaction_candidate(result):
    """Tell whether a result's sharpe is so negative that its reversal would pass."""
    return _native.is_negative_sharpe_reaction_candidate(_host, result)
