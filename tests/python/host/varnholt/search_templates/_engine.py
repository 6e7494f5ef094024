"""The helpers that the small host shares with its search templates."""

import logging
from types import SimpleNamespace

logger = logging.getLogger("varnholt.search_templates")

_INFRASTRUCTURE_FAILURE_THRESHOLD = 3
_SDK_RUNTIME_NOT_READY_REJECTION_DETAIL = "The runtime was not ready."


class SdkRuntimeNotReadyError(RuntimeError):
    pass


class BackgroundInfrastructureError(RuntimeError):
    pass


def _graph_depth_for_attempt_marker(graph):
    return 1 + max(map(_graph_depth_for_attempt_marker, graph.get("children", ())), default=0)


# Markers of evaluations under way are kept by the tracker, when the context has one.


def _write_evaluation_attempt_marker(tracker, graph, named_universe, metaparameters, phase):
    return None if tracker is None else tracker.open_marker(graph, phase)


def _clear_evaluation_attempt_marker(tracker, marker_attempt_id):
    tracker.close_marker(marker_attempt_id)


def _attempt_declared_data_shape(expected_columns):
    return {"columns": len(expected_columns)}


class AgentPoolPnlSyncMissingError(RuntimeError):
    pass


class PoolMetricNotYetComputableError(RuntimeError):
    pass


# The gates: of each metric with a threshold, the most that it may be.


def _stats_gate_threshold_set(thresholds, era_config):
    return dict(thresholds)


def _stats_gate_metrics(stats):
    return dict(stats) if isinstance(stats, dict) else dict(vars(stats))


def evaluate_threshold_gates(*, metrics, threshold_set):
    return SimpleNamespace(
        failures=[
            SimpleNamespace(
                metric=metric, actual=metrics[metric], threshold=threshold,
                gate=metric + "_gate", operator=">", category="quality",
            )
            for metric, threshold in threshold_set.items()
            if metrics.get(metric, 0.0) > threshold
        ]
    )


def threshold_gate_failure_reason(failure):
    return failure.metric + "_exceeded"


def threshold_gate_failure_metric(failure):
    return failure.metric


def _recorded_failure_detail(reason, metric, value, threshold, *, gate, operator, category):
    return {
        "reason": reason, "metric": metric, "value": value, "threshold": threshold,
        "gate": gate, "operator": operator, "category": category,
    }


def _gate_verdict(passed, reason=None, **figures):
    return {"passed": passed, "reason": reason, **figures}


def _failed_gate_verdict(reason, **figures):
    return {"passed": False, "reason": reason, "failed": True, **figures}


# The pool: in sync, and with nothing in it that a signal could resemble.


def _refresh_submission_manifest_membership(era_config, signal_pool_name, sync_mgr):
    return True


def _selected_pool_has_synced_found_signal_ids(era_config, signal_pool_name):
    return False


def _normalize_required_pool_pnl_matrix(gate_stats, era_config, signal_pool_name):
    raise ValueError("no matrix")


def _evaluation_metaparameters_for_pool(signal_pool_name, metaparameters):
    return {**metaparameters, "pool": signal_pool_name}


def _call_backtester_with_transform_context(
    backtester, operation, graph, metaparameters, named_universe, *, extra_kwargs
):
    return getattr(backtester, operation)(graph, metaparameters, named_universe, **extra_kwargs)


def _submission_pnl_mi_from_backtest_or_compute(
    backtester, gate_stats, era_config, signal_pool_name, thresholds
):
    return 0.75, True


def _submission_mi_threshold_and_pool(era_config, signal_pool_name, thresholds):
    return 0.25, signal_pool_name


def _submission_correlation_from_backtest_or_compute(
    backtester, gate_stats, era_config, signal_pool_name
):
    return 0.125, True


def _submission_correlation_threshold_and_pool(era_config, signal_pool_name):
    return 0.5, signal_pool_name


def _submitted_stats_payload_from_backtest(stats, era_config):
    return None, "this host makes none"


def _annotate_submission_client_manifest(payload, sync_mgr):
    payload["client_manifest_market_id"] = 7


def _function_entries_for_kind(vocabulary, kind):
    return [entry for entry in vocabulary.get("functions", ()) if entry.get("kind") == kind]


def _random_weighted_window_limit(ctx, max_depth):
    return 8 * max_depth


def _random_weighted_node_limit(ctx):
    return 16


def _random_weighted_runtime_registry(ctx):
    return {}


def _signal_generation_safe_rotations(
    functions, window_limit, node_limit, registry, *, log_context, template_name, stage, generator
):
    return iter(functions)
