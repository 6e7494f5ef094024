"""Failures that are worth repairing once more, in plain Python."""

import json
from collections.abc import Mapping

import plain_host as host
from plain_results import _number

REACTION = (
    "turnover_max", "turnover_exceeded", "max_weight_max", "max_weight_exceeded",
    "delta_exposure_max", "delta_exposure_exceeded", "abs_weight_sum_mean_below_min",
    "sharpe_min", "gross_returns_sharpe_below_min",
)
GATE = ("correlation_exceeded", "pnl_mi_below_threshold")
SHARPE = ("sharpe_min", "gross_returns_sharpe_below_min")


def failed_for(result, reasons):
    if result.get("passes"):
        return False
    failures = result.get("failures") or {}
    return any(reason in failures for reason in reasons)


def _has_reaction_failure(result):
    return failed_for(result, REACTION)


def _has_gate_near_miss_failure(result):
    # Which of the two is asked first is visible to an odd mapping only.
    return failed_for(result, GATE)


def _has_actionable_near_miss_failure(result):
    return _has_reaction_failure(result) or _has_gate_near_miss_failure(result)


def _has_failure_reason(result, reason_names):
    failures = result.get("failures") if isinstance(result, Mapping) else None
    if not isinstance(failures, Mapping):
        return False
    return any(reason in failures for reason in reason_names)


def _context_thresholds(ctx):
    threshold_source = {}
    for attr_name in ("thresholds", "_thresholds"):
        value = getattr(ctx, attr_name, None)
        if isinstance(value, Mapping) and value:
            threshold_source.update(value)
    search_thresholds = getattr(ctx, "_search_context_thresholds", None)
    if callable(search_thresholds):
        try:
            value = search_thresholds()
        except Exception:
            value = None
        if isinstance(value, Mapping) and value:
            threshold_source.update(value)
    era_config = None
    for attr_name in ("era_config", "_era_config"):
        era_config = getattr(ctx, attr_name, None)
        if era_config is not None:
            break
    return host._engine._stats_gate_threshold_set(threshold_source, era_config)


def _stats_gate_metrics_for_result(result):
    if isinstance(result, Mapping) and result.get("stats") is not None:
        return host._engine._stats_gate_metrics(result["stats"])
    return host._engine._stats_gate_metrics(result)


def _expanded_threshold_failures(ctx, result):
    if result.get("passes"):
        return {}
    thresholds = _context_thresholds(ctx)
    if not thresholds:
        return {}
    try:
        gate_result = host._evaluate_threshold_gates(
            metrics=_stats_gate_metrics_for_result(result), threshold_set=thresholds
        )
    except Exception:
        return {}
    expanded = {}
    for failure in getattr(gate_result, "failures", ()):
        reason = host._engine.threshold_gate_failure_reason(failure)
        if reason not in REACTION:
            continue
        metric = host._engine.threshold_gate_failure_metric(failure)
        expanded[reason] = {
            "reason": reason,
            "detail": host._engine._recorded_failure_detail(
                reason,
                metric,
                getattr(failure, "actual", None),
                getattr(failure, "threshold", None),
                gate=getattr(failure, "gate", None),
                operator=getattr(failure, "operator", None),
                category=getattr(failure, "category", None),
            ),
        }
    return expanded


def _with_expanded_reaction_failures(ctx, result):
    if ctx is None or not isinstance(result, Mapping):
        return result
    expanded = _expanded_threshold_failures(ctx, result)
    if not expanded:
        return result
    failures = dict(result.get("failures") or {})
    changed = False
    for reason, failure in expanded.items():
        current = failures.get(reason)
        current_value, current_threshold = _failure_metric_pair(current)
        if not isinstance(current, Mapping) or (
            current_value is None and current_threshold is None
        ):
            failures[reason] = failure
            changed = True
    if not changed:
        return result
    enlarged = dict(result)
    enlarged["failures"] = failures
    return enlarged


def _failure_metric_pair(failure):
    if not isinstance(failure, Mapping):
        return None, None
    value, threshold = failure.get("value"), failure.get("threshold")
    if value is not None or threshold is not None:
        return value, threshold
    detail = failure.get("detail")
    if isinstance(detail, str):
        try:
            detail = json.loads(detail)
        except Exception:
            detail = None
    if not isinstance(detail, Mapping):
        return None, None
    return detail.get("value"), detail.get("threshold")


def _sharpe_reaction_value(result):
    return _sharpe_reaction_metric_pair(result)[0]


def _sharpe_reaction_metric_pair(result):
    value = _number(result.get("sharpe"), None)
    result_value = _number(_stats_gate_metrics_for_result(result).get("sharpe"), None)
    if value is None and result_value is not None:
        value = result_value
    failures = result.get("failures") if isinstance(result, Mapping) else None
    if not isinstance(failures, Mapping):
        return value, None
    for reason in SHARPE:
        failure_value, failure_threshold = _failure_metric_pair(failures.get(reason))
        failure_value = _number(failure_value, None)
        failure_threshold = _number(failure_threshold, None)
        if value is None and failure_value is not None:
            value = failure_value
        if failure_threshold is not None:
            return value, failure_threshold
    return value, None


def _is_negative_sharpe_reaction_candidate(result):
    if not _has_failure_reason(result, SHARPE):
        return False
    value, threshold = _sharpe_reaction_metric_pair(result)
    if value is None or threshold is None:
        return False
    if threshold < 0.0:
        return False
    return value < 0.0 and abs(value) >= threshold
