"""A candidate's record, its failure, and the evaluation of one candidate, in plain Python."""

import math
from collections.abc import Mapping

import plain_host as host
from plain_graph import CONVERSION, _plain_graph_data

CORRELATION = "candidate correlation must be a finite number or None"


def _not_evaluated_verdict():
    from varnholt.simulation.evaluation_verdicts import not_evaluated_verdict

    return not_evaluated_verdict()


def _number(value, default=0.0):
    try:
        return float(value)
    except CONVERSION:
        return default


def _optional_correlation(value):
    if value is None:
        return None
    try:
        number = float(value)
    except CONVERSION:
        raise ValueError(CORRELATION) from None
    if not math.isfinite(number):
        raise ValueError(CORRELATION)
    return number


def figures(stats):
    return {
        "sharpe": _number(getattr(stats, "sharpe", 0.0)),
        "quality_score": _number(getattr(stats, "quality_score", getattr(stats, "sharpe", 0.0))),
        "correlation": _optional_correlation(getattr(stats, "correlation", None)),
    }


def _evaluation_exception_failure(exc):
    if isinstance(exc, host._engine.SdkRuntimeNotReadyError):
        return (
            "sdk_runtime_not_ready",
            f"{host._engine._SDK_RUNTIME_NOT_READY_REJECTION_DETAIL} Cause: "
            f"{type(exc).__name__}: {exc}",
        )
    return "evaluate_exception", str(exc)


def _derive_candidate_failure(ctx, record, stats):
    tracking = dict(record.get("tracking_metric_kwargs") or {})
    rejection_reason = record.get("rejection_reason")
    should_infer_from_stats = (
        rejection_reason == "evaluate_exception"
        and not record.get("passed", False)
        and stats is not None
    )
    if rejection_reason and not should_infer_from_stats:
        tracking.setdefault("failure_reason", rejection_reason)
        return rejection_reason, tracking.get("failure_detail"), tracking
    failure_reason = tracking.get("failure_reason")
    if failure_reason:
        return str(failure_reason), tracking.get("failure_detail"), tracking
    if record.get("passed", False) or stats is None:
        return None, None, tracking

    def fallback():
        if rejection_reason:
            tracking.setdefault("failure_reason", rejection_reason)
            return rejection_reason, tracking.get("failure_detail"), tracking
        return None, None, tracking

    derive = getattr(ctx, "_derive_rejection_reason_detail", None)
    if not callable(derive):
        return fallback()
    try:
        reason, detail = derive(stats, include_correlation=False)
    except TypeError:
        try:
            reason, detail = derive(stats)
        except Exception:
            return fallback()
    except Exception:
        return fallback()
    if reason is None:
        return fallback()
    tracking.setdefault("failure_reason", reason)
    if detail is not None:
        tracking.setdefault("failure_detail", detail)
    return reason, detail, tracking


def _candidate_exception_result(ctx, graph, exc):
    failure_reason, failure_detail = _evaluation_exception_failure(exc)
    record = getattr(ctx, "_last_evaluation_record", None)
    if not isinstance(record, Mapping):
        safe_record = getattr(ctx, "_safe_record", None)
        if callable(safe_record):
            try:
                safe_record(
                    graph,
                    False,
                    rejection_reason=failure_reason,
                    tracking_metric_kwargs={
                        "failure_reason": failure_reason, "failure_detail": failure_detail,
                    },
                )
            except Exception:
                host._engine.logger.warning(
                    "Genetic candidate evaluation failure recording failed", exc_info=True
                )
            record = getattr(ctx, "_last_evaluation_record", None)
        if not isinstance(record, Mapping):
            record = {}
    stats = record.get("stats")
    derived_reason, derived_detail, tracking = _derive_candidate_failure(ctx, record, stats)
    if derived_reason is None:
        tracking.setdefault("failure_reason", failure_reason)
        tracking.setdefault("failure_detail", failure_detail)
    else:
        failure_reason, failure_detail = derived_reason, derived_detail
    tracking.setdefault("stats_verdict", _not_evaluated_verdict())
    tracking.setdefault("correlation_verdict", _not_evaluated_verdict())
    tracking.setdefault("mi_verdict", _not_evaluated_verdict())
    return {
        "graph": _plain_graph_data(graph),
        "stats": stats,
        "passes": False,
        "failures": {failure_reason: {"reason": failure_reason, "detail": failure_detail}},
        "eval_id": None,
        "submission_payload": None,
        "attempt_evidence": ctx._current_attempt_evidence(),
        "per_column_stats": record.get("per_column_stats"),
        "tracking_metric_kwargs": tracking,
        **figures(stats),
    }


def _candidate_process_evaluation_error_result(graph, exc):
    failure_reason = str(
        getattr(exc, "terminal_reason", None) or host._process_evaluation.TERMINAL_WORKER_FAILED
    )
    failure_detail = str(getattr(exc, "detail", None) or exc)
    return {
        "graph": _plain_graph_data(graph),
        "stats": None,
        "passes": False,
        "failures": {failure_reason: {"reason": failure_reason, "detail": failure_detail}},
        "eval_id": None,
        "submission_payload": None,
        "per_column_stats": None,
        "tracking_metric_kwargs": {
            "failure_reason": failure_reason,
            "failure_detail": failure_detail,
            "stats_verdict": _not_evaluated_verdict(),
            "correlation_verdict": _not_evaluated_verdict(),
            "mi_verdict": _not_evaluated_verdict(),
        },
        "sharpe": 0.0,
        "quality_score": 0.0,
        "correlation": None,
    }


def _process_evaluation_error_results(batch, exc):
    return [_candidate_process_evaluation_error_result(graph, exc) for graph in batch]


def _process_evaluation_error_is_search_fatal(exc):
    terminal_reason = getattr(exc, "terminal_reason", None)
    if terminal_reason == host._process_evaluation.TERMINAL_PROCESS_PRIORITY_FAILED:
        return True
    if terminal_reason == host._process_evaluation.TERMINAL_MEMORY_BUDGET_EXCEEDED:
        return True
    return getattr(exc, "candidate_index", None) is None


# Evaluating one candidate.


def _simulate_candidate(ctx, graph):
    import plain_submission

    evaluate = getattr(ctx, "_evaluate_for_template", None)
    if not callable(evaluate):
        raise RuntimeError("genetic search requires the canonical SearchContext evaluator")
    try:
        outcome = evaluate(graph)
    except Exception as exc:
        return _candidate_exception_result(ctx, graph, exc)
    record = outcome.get("record") or {}
    payloads = outcome.get("submission_payloads") or []
    payload = dict(payloads[0]) if payloads else None
    stats = record.get("stats")
    rejection_reason, failure_detail, tracking = _derive_candidate_failure(ctx, record, stats)
    failures = {}
    if rejection_reason:
        failure = {"reason": rejection_reason}
        if failure_detail is not None:
            failure["detail"] = failure_detail
        failures[rejection_reason] = failure
    passed = bool(record.get("passed", False))
    attempt_evidence = outcome.get("attempt_evidence")
    backtest_completed = isinstance(attempt_evidence, Mapping) and bool(
        attempt_evidence.get("backtest_completed", False)
    )
    backtest_timing = None
    if passed or backtest_completed:
        backtest_timing = plain_submission._process_backtest_timing(
            graph, attempt_evidence, payload
        )
    result = {
        "graph": _plain_graph_data(graph),
        "stats": stats,
        "passes": passed,
        "failures": failures,
        "eval_id": None if payload is None else payload.get("eval_id"),
        "submission_payload": payload,
        "attempt_evidence": attempt_evidence,
        "per_column_stats": record.get("per_column_stats"),
        "tracking_metric_kwargs": tracking,
        **figures(stats),
    }
    if backtest_timing is not None:
        result["backtest_timing"] = backtest_timing
    return result


def _candidate_stats_payload(ctx, candidate):
    stats = candidate.get("stats")
    build = getattr(host._engine, "_submitted_stats_payload_from_backtest", None)
    if callable(build):
        try:
            payload, _reason = build(stats, _context_era_config(ctx))
        except Exception:
            payload = None
        if isinstance(payload, Mapping):
            return payload
    payload = {
        "sharpe": float(getattr(stats, "sharpe", 0.0)),
        "annualized_returns": float(getattr(stats, "annualized_returns", 0.0)),
        "turnover": float(getattr(stats, "turnover", 0.0)),
        "drawdown": float(getattr(stats, "drawdown", 0.0)),
        "quality_score": float(getattr(stats, "quality_score", getattr(stats, "sharpe", 0.0))),
    }
    correlation = _optional_correlation(getattr(stats, "correlation", None))
    if correlation is not None:
        payload["correlation"] = correlation
    return payload


# Market and era.


def _field_value(value, key, default=None):
    if isinstance(value, Mapping):
        return value.get(key, default)
    return getattr(value, key, default)


def _context_era_config(ctx):
    era_config = getattr(ctx, "_era_config", None)
    if era_config is not None:
        return era_config
    return getattr(ctx, "era_config", None)


def _positive_int_or_none(value):
    if value is None or isinstance(value, bool):
        return None
    if isinstance(value, float) and not value.is_integer():
        return None
    try:
        out = int(value)
    except CONVERSION:
        return None
    return None if out <= 0 else out


def context_number(ctx, names, config_names):
    for name in names:
        value = _positive_int_or_none(getattr(ctx, name, None))
        if value is not None:
            return value
    era_config = _context_era_config(ctx)
    for name in config_names:
        value = _positive_int_or_none(_field_value(era_config, name))
        if value is not None:
            return value
    return None


def _context_market_id(ctx):
    return context_number(ctx, ("_market_id", "market_id"), ("market_id", "market"))


def _context_era_number(ctx):
    return context_number(
        ctx, ("_era_number", "era_number", "_era_number", "era_number"),
        ("era_number", "era_number", "id"),
    )


def _ensure_payload_market_era(payload, ctx):
    market_id = _positive_int_or_none(payload.get("market_id"))
    if market_id is None:
        market_id = _context_market_id(ctx)
    if market_id is None:
        market_id = _positive_int_or_none(payload.get("client_manifest_market_id"))
    era_number = _positive_int_or_none(payload.get("era_number"))
    if era_number is None:
        era_number = _context_era_number(ctx)
    if era_number is None:
        era_number = _positive_int_or_none(payload.get("client_manifest_era_number"))
    if market_id is not None:
        payload["market_id"] = market_id
    if era_number is not None:
        payload["era_number"] = era_number
    return payload
