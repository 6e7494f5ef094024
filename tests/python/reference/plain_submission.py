"""Pool metrics, timings, recording and submission once more, in plain Python."""

import hashlib
from collections.abc import Mapping

import plain_host as host
from plain_failures import _context_thresholds
from plain_graph import _canonical_graph_string
from plain_results import (
    _candidate_stats_payload, _context_era_config, _ensure_payload_market_era,
    _not_evaluated_verdict,
)

POOL_REASONS = (
    "pnl_mi", "pnl_mi_below_threshold", "correlation_exceeded", "missing_is_pnl_mi",
    "missing_is_correlation", "agent_pool_pnl_sync_missing",
)
PENDING = "pool_metrics_refresh_required"


# Tracking.


def _submission_mi_failure_detail(ctx, score):
    thresholds = getattr(host._engine, "_submission_mi_threshold_and_pool", None)
    if not callable(thresholds):
        raise RuntimeError("genetic search requires canonical PnL-MI thresholds")
    threshold, _pool = thresholds(
        _context_era_config(ctx), getattr(ctx, "_signal_pool_name", None), _context_thresholds(ctx)
    )
    detail = getattr(host._engine, "_recorded_failure_detail", None)
    if not callable(detail):
        raise RuntimeError("genetic search requires canonical failure evidence")
    return detail(
        "pnl_mi_below_threshold", "is_pnl_mi", score, threshold, gate="is_pnl_mi_threshold",
        operator="<", category="quality",
    )


def failed_verdict(reason, detail):
    failed_gate_verdict = getattr(host._engine, "_failed_gate_verdict", None)
    if callable(failed_gate_verdict):
        keywords = {"detail": detail}
        if isinstance(detail, Mapping):
            keywords["value"] = detail.get("value")
            keywords["threshold"] = detail.get("threshold")
        return failed_gate_verdict(reason, **keywords)
    gate_verdict = getattr(host._engine, "_gate_verdict", None)
    if callable(gate_verdict):
        return gate_verdict(False, reason, detail=detail)
    return {"passed": False, "reason": reason}


def _block_candidate_submission(candidate, reason, detail=None):
    candidate["passes"] = False
    failure = {"reason": reason}
    if detail is not None:
        failure["detail"] = detail
    candidate.setdefault("failures", {})[reason] = failure
    tracking = candidate.setdefault("tracking_metric_kwargs", {})
    tracking["failure_reason"] = "pnl_mi" if reason == "pnl_mi_below_threshold" else reason
    if detail is None:
        tracking.pop("failure_detail", None)
    else:
        tracking["failure_detail"] = detail
    key = "correlation_verdict" if reason == "correlation_exceeded" else "mi_verdict"
    tracking[key] = failed_verdict(reason, detail)
    candidate["_submission_blocked_reason"] = reason


def passed_verdict(value, threshold):
    gate_verdict = getattr(host._engine, "_gate_verdict", None)
    if callable(gate_verdict):
        return gate_verdict(True, value=value, threshold=threshold)
    return {"passed": True, "reason": None, "value": value, "threshold": threshold}


def _set_candidate_mi_tracking(ctx, candidate, score):
    tracking = candidate.setdefault("tracking_metric_kwargs", {})
    tracking["pnl_mi"] = score
    threshold = None
    thresholds = getattr(host._engine, "_submission_mi_threshold_and_pool", None)
    era_config = _context_era_config(ctx)
    signal_pool_name = getattr(ctx, "_signal_pool_name", None)
    if callable(thresholds) and era_config is not None and signal_pool_name:
        try:
            threshold = thresholds(era_config, signal_pool_name, _context_thresholds(ctx))[0]
        except Exception:
            threshold = None
    tracking["mi_verdict"] = passed_verdict(score, threshold)


def _set_candidate_correlation_tracking(ctx, candidate, correlation):
    tracking = candidate.setdefault("tracking_metric_kwargs", {})
    tracking["correlation"] = correlation
    threshold = None
    thresholds = getattr(host._engine, "_submission_correlation_threshold_and_pool", None)
    era_config = _context_era_config(ctx)
    signal_pool_name = getattr(ctx, "_signal_pool_name", None)
    if callable(thresholds):
        threshold = thresholds(era_config, signal_pool_name)[0]
    tracking["correlation_verdict"] = passed_verdict(correlation, threshold)


def drop_pool_failure(tracking):
    if any(tracking.get("failure_reason") == reason for reason in POOL_REASONS):
        tracking.pop("failure_reason", None)
        tracking.pop("failure_detail", None)


def _mark_candidate_pool_metrics_pending(candidate, payload, detail):
    candidate["_submission_pending_reason"] = PENDING
    candidate.pop("_submission_blocked_reason", None)
    payload["_submission_pending_reason"] = PENDING
    tracking = candidate.setdefault("tracking_metric_kwargs", {})
    drop_pool_failure(tracking)
    tracking["pool_metrics_pending"] = True
    tracking["pool_metrics_pending_detail"] = str(detail)


def _clear_candidate_pool_metrics_pending(candidate, payload):
    candidate.pop("_submission_pending_reason", None)
    payload.pop("_submission_pending_reason", None)
    tracking = candidate.setdefault("tracking_metric_kwargs", {})
    tracking.pop("pool_metrics_pending", None)
    tracking.pop("pool_metrics_pending_detail", None)
    drop_pool_failure(tracking)


def _refresh_candidate_submission_pool_metrics(ctx, candidate, payload):
    engine = host._engine
    backtester = getattr(ctx, "_backtester", None)
    era_config = _context_era_config(ctx)
    signal_pool_name = getattr(ctx, "_signal_pool_name", None)
    stats_payload = payload.get("is_stats")
    if not isinstance(stats_payload, Mapping):
        stats_payload = _candidate_stats_payload(ctx, candidate)
        payload["is_stats"] = stats_payload
    stats_payload.pop("is_pnl_mi", None)
    stats_payload.pop("correlation", None)
    tracking = candidate.setdefault("tracking_metric_kwargs", {})
    tracking.pop("pnl_mi", None)
    tracking.pop("correlation", None)
    tracking["mi_verdict"] = _not_evaluated_verdict()
    tracking["correlation_verdict"] = _not_evaluated_verdict()
    if backtester is None or era_config is None or not signal_pool_name:
        _mark_candidate_pool_metrics_pending(
            candidate, payload, "pool metric computation context is unavailable"
        )
        return
    if not engine._refresh_submission_manifest_membership(
        era_config, signal_pool_name, getattr(ctx, "_sync_mgr", None)
    ):
        _mark_candidate_pool_metrics_pending(
            candidate, payload, "found signal membership is not confirmed"
        )
        return
    gate_stats = candidate.get("stats")
    if engine._selected_pool_has_synced_found_signal_ids(era_config, signal_pool_name):
        try:
            engine._normalize_required_pool_pnl_matrix(gate_stats, era_config, signal_pool_name)
        except ValueError:
            if callable(getattr(backtester, "run_backtest", None)):
                metaparameters = getattr(ctx, "_evaluation_metaparameters", None)
                if metaparameters is None:
                    metaparameters = engine._evaluation_metaparameters_for_pool(
                        signal_pool_name, getattr(ctx, "_metaparameters", {}) or {}
                    )
                gate_stats = engine._call_backtester_with_transform_context(
                    backtester, "run_backtest", candidate.get("graph"), metaparameters,
                    getattr(ctx, "_named_universe", None), extra_kwargs={"return_series": True},
                )
    try:
        score, mi_passed = engine._submission_pnl_mi_from_backtest_or_compute(
            backtester, gate_stats, era_config, signal_pool_name, _context_thresholds(ctx)
        )
    except (
        engine.AgentPoolPnlSyncMissingError, engine.PoolMetricNotYetComputableError
    ) as exc:
        _mark_candidate_pool_metrics_pending(candidate, payload, exc)
        return
    try:
        correlation, passed = engine._submission_correlation_from_backtest_or_compute(
            backtester, gate_stats, era_config, signal_pool_name
        )
    except (
        engine.AgentPoolPnlSyncMissingError, engine.PoolMetricNotYetComputableError
    ) as exc:
        _mark_candidate_pool_metrics_pending(candidate, payload, exc)
        return
    stats_payload["is_pnl_mi"] = score
    stats_payload["correlation"] = correlation
    tracking["pnl_mi"] = score
    tracking["correlation"] = correlation
    _clear_candidate_pool_metrics_pending(candidate, payload)
    if not mi_passed:
        if passed:
            _set_candidate_correlation_tracking(ctx, candidate, correlation)
        detail = _submission_mi_failure_detail(ctx, score)
        _block_candidate_submission(candidate, "pnl_mi_below_threshold", detail)
        return
    _set_candidate_mi_tracking(ctx, candidate, score)
    if passed:
        _set_candidate_correlation_tracking(ctx, candidate, correlation)
        return
    threshold, _pool = engine._submission_correlation_threshold_and_pool(
        era_config, signal_pool_name
    )
    detail = engine._recorded_failure_detail(
        "correlation_exceeded", "correlation", correlation, threshold,
        gate="is_correlation_threshold", operator=">", category="quality",
    )
    _block_candidate_submission(candidate, "correlation_exceeded", detail)


# Timings.


def guarded(operation, *args, **keywords):
    try:
        return operation(*args, **keywords)
    except (TypeError, ValueError, OverflowError) as exc:
        raise RuntimeError(f"genetic candidate has invalid backtest timing: {exc}") from exc


def _validated_process_backtest_timing(timing):
    from varnholt.simulation.backtest_timing import validate_backtest_timing_payload

    return guarded(validate_backtest_timing_payload, timing)


def _consumed_process_backtest_timing(graph, payload):
    from varnholt.simulation.backtest_timing import consume_recorded_backtest_timing_payload

    def consume():
        if isinstance(payload, Mapping) and "backtest_timing" in payload:
            return consume_recorded_backtest_timing_payload(
                graph, payload["backtest_timing"], include_identity=True
            )
        return consume_recorded_backtest_timing_payload(graph, include_identity=True)

    return guarded(consume)


def _validated_graph_process_backtest_timing(graph, timing):
    from varnholt.simulation.backtest_timing import validate_process_backtest_timing_payload

    return guarded(validate_process_backtest_timing_payload, graph, timing)


def _validated_graph_backtest_timing(graph, timing):
    from varnholt.simulation.backtest_timing import validate_graph_backtest_timing_payload

    return guarded(validate_graph_backtest_timing_payload, graph, timing)


def _graph_bound_process_backtest_timing(graph, timing):
    from varnholt.simulation.backtest_timing import graph_timing_key

    normalized = _validated_graph_backtest_timing(graph, timing)
    normalized["graph_key"] = graph_timing_key(graph)
    return normalized


def _process_backtest_timing(graph, attempt_evidence, payload):
    if (
        isinstance(attempt_evidence, Mapping)
        and attempt_evidence.get("backtest_timing") is not None
    ):
        timing = _graph_bound_process_backtest_timing(graph, attempt_evidence["backtest_timing"])
        if isinstance(payload, Mapping) and "backtest_timing" in payload:
            payload_timing = _graph_bound_process_backtest_timing(
                graph, payload["backtest_timing"]
            )
            if payload_timing != timing:
                raise RuntimeError(
                    "genetic candidate attempt evidence backtest timing disagrees with "
                    "submission payload backtest timing"
                )
        return timing
    return _consumed_process_backtest_timing(graph, payload)


def _candidate_backtest_timing_payload(_ctx, candidate, *, require_process_identity=False):
    timings = []
    timing = candidate.get("backtest_timing")
    if timing is not None:
        timings.append(("candidate", _validated_process_backtest_timing(timing)))
    attempt_evidence = candidate.get("attempt_evidence")
    if isinstance(attempt_evidence, Mapping):
        timing = attempt_evidence.get("backtest_timing")
        if timing is not None:
            timings.append(("attempt evidence", _validated_process_backtest_timing(timing)))
    payload = candidate.get("submission_payload")
    if isinstance(payload, Mapping):
        timing = payload.get("backtest_timing")
        if timing is not None:
            timings.append(("submission payload", _validated_process_backtest_timing(timing)))
    if not timings:
        raise RuntimeError("genetic candidate is missing serialized backtest timing")
    normalized = timings[0][1]
    for source, other in timings[1:]:
        if other != normalized:
            raise RuntimeError(
                f"genetic candidate backtest timing disagrees with {source} backtest timing"
            )
    validator = (
        _validated_graph_process_backtest_timing if require_process_identity
        else _validated_graph_backtest_timing
    )
    return validator(candidate.get("graph"), normalized)


# Payloads, recording and submission.


def _candidate_eval_id(candidate):
    eval_id = candidate.get("eval_id")
    if eval_id is not None:
        return eval_id
    candidate_index = candidate.get("candidate_index")
    if candidate_index is not None:
        return f"genetic-candidate-{candidate_index}"
    text = _canonical_graph_string(candidate.get("graph"))
    return "genetic-graph-" + hashlib.sha256(text.encode("utf-8")).hexdigest()[:16]


def _candidate_rejection_reason(candidate):
    failures = candidate.get("failures") or {}
    if isinstance(failures, Mapping) and failures:
        return next(iter(failures))
    return None


def _ensure_candidate_submission_payload(ctx, candidate, *, refresh_pool_metrics=False):
    if not candidate.get("passes", False):
        return None
    backtest_timing = _candidate_backtest_timing_payload(ctx, candidate)
    candidate["backtest_timing"] = backtest_timing
    payload = candidate.get("submission_payload")
    if not isinstance(payload, Mapping):
        payload = {
            "eval_id": _candidate_eval_id(candidate),
            "submission_type": "signal",
            "graph": candidate.get("graph"),
            "named_universe": getattr(ctx, "_named_universe", ""),
            "signal_pool_name": getattr(ctx, "_signal_pool_name", None),
            "is_stats": _candidate_stats_payload(ctx, candidate),
            "metaparameters": getattr(ctx, "_metaparameters", {}),
            "search_state": {},
            "expression_elapsed_seconds": candidate.get("elapsed_simulation_seconds"),
            "backtest_timing": backtest_timing,
        }
        _ensure_payload_market_era(payload, ctx)
        host._engine._annotate_submission_client_manifest(
            payload, getattr(ctx, "_sync_mgr", None)
        )
        _ensure_payload_market_era(payload, ctx)
        owner = getattr(ctx, "_submission_owner", None)
        if owner is not None:
            payload["_submission_owner"] = owner
        if candidate.get("source_attempt_id") is not None:
            payload["_source_attempt_id"] = candidate["source_attempt_id"]
        candidate["submission_payload"] = payload
    else:
        if payload.get("eval_id") is None and candidate.get("eval_id") is not None:
            payload["eval_id"] = candidate["eval_id"]
        if candidate.get("source_attempt_id") is not None:
            payload["_source_attempt_id"] = candidate["source_attempt_id"]
        _ensure_payload_market_era(payload, ctx)
        payload["backtest_timing"] = backtest_timing
    if refresh_pool_metrics:
        _refresh_candidate_submission_pool_metrics(ctx, candidate, payload)
    return payload if candidate.get("passes", False) else None


def has_timing(value):
    return isinstance(value, Mapping) and value.get("backtest_timing") is not None


def _record_candidate_result_in_parent(ctx, candidate):
    if candidate.get("_parent_recorded", False):
        return True
    evidence = candidate.get("attempt_evidence")
    backtest_completed = bool(candidate.get("passes", False)) or (
        isinstance(evidence, Mapping) and bool(evidence.get("backtest_completed", False))
    )
    backtest_timing = None
    if backtest_completed:
        payload = candidate.get("submission_payload")
        evidence = candidate.get("attempt_evidence")
        is_process_result = "worker_pid" in candidate
        has_serialized_timing = (
            candidate.get("backtest_timing") is not None
            or has_timing(evidence)
            or has_timing(payload)
        )
        if is_process_result or has_serialized_timing:
            backtest_timing = _candidate_backtest_timing_payload(
                ctx, candidate, require_process_identity=is_process_result
            )
        else:
            backtest_timing = _consumed_process_backtest_timing(
                candidate.get("graph"), payload if has_timing(payload) else None
            )
        if not backtest_timing:
            if candidate.get("passes", False):
                raise RuntimeError("genetic candidate is missing serialized backtest timing")
            backtest_timing = None
        candidate["backtest_timing"] = backtest_timing
    if "process_attempt" in candidate:
        source_attempt_id = candidate.get("source_attempt_id")
        if source_attempt_id is not None:
            ctx._activate_existing_attempt(source_attempt_id, candidate.get("attempt_evidence"))
    safe_record = ctx._safe_record
    if candidate.get("passes", False):
        _ensure_candidate_submission_payload(ctx, candidate, refresh_pool_metrics=True)
    passed = bool(candidate.get("passes", False))
    eval_id = safe_record(
        candidate.get("graph"),
        passed,
        rejection_reason=None if passed else _candidate_rejection_reason(candidate),
        stats=candidate.get("stats"),
        per_column_stats=candidate.get("per_column_stats"),
        expression_elapsed_seconds=candidate.get("elapsed_simulation_seconds"),
        backtest_timing=backtest_timing,
        tracking_metric_kwargs=candidate.get("tracking_metric_kwargs") or {},
    )
    last_record = getattr(ctx, "_last_evaluation_record", None)
    write_succeeded = eval_id is not None or (
        isinstance(last_record, Mapping) and bool(last_record.get("recording_succeeded", False))
    )
    if not write_succeeded:
        return False
    candidate["_parent_recorded"] = True
    if eval_id is not None:
        candidate["eval_id"] = eval_id
    payload = candidate.get("submission_payload")
    if isinstance(payload, Mapping) and eval_id is not None:
        payload["eval_id"] = eval_id
    return True


def _record_candidate_results_in_parent(ctx, candidates):
    for candidate in candidates:
        if not _record_candidate_result_in_parent(ctx, candidate):
            raise RuntimeError("genetic candidate parent evaluation persistence failed")


def rank_submittable_candidates(candidates):
    submittable = [candidate for candidate in candidates if candidate.get("passes", False)]
    return sorted(
        submittable,
        key=lambda candidate: (
            -host.score_candidate(
                candidate,
                sibling_correlations=(),
                pool_correlation=candidate.get("correlation"),
            ),
            int(candidate.get("candidate_index", 0)),
            _canonical_graph_string(candidate.get("graph")),
        ),
    )


def _submit_candidate(ctx, candidate):
    if candidate.get("_submission_enqueued", False):
        return
    if not candidate.get("_parent_recorded", False):
        raise RuntimeError("genetic candidate cannot enqueue before parent evaluation persistence")
    payload = _ensure_candidate_submission_payload(ctx, candidate)
    if not payload:
        return
    enqueue = getattr(ctx, "_enqueue_deferred_submission_payload", None)
    if not callable(enqueue):
        raise RuntimeError("genetic search requires canonical submission enqueue")
    result = enqueue(payload)
    if result is not False:
        candidate["_submission_enqueued"] = True


def _submit_submittable_candidates(ctx, candidates):
    for candidate in rank_submittable_candidates(candidates):
        _submit_candidate(ctx, candidate)
