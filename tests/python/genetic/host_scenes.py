"""Hosts of the plain comparisons: what each part of the search asks, answered at random."""

from decimal import Decimal


class NotReady(RuntimeError):
    pass


class PoolError(Exception):
    pass


FAILURES = (
    "turnover_max", "turnover_exceeded", "max_weight_max", "delta_exposure_max",
    "abs_weight_sum_mean_below_min", "sharpe_min", "gross_returns_sharpe_below_min",
    "correlation_exceeded", "pnl_mi_below_threshold", "other",
)


def weight(w):
    return w.either(0.0, 0.5, 1, 0.25)


def depth_engine(w):
    w.patch("_engine", w.namespace("engine", _graph_depth_for_attempt_marker=w.operation(
        "depth", lambda graph: w.number())))


def validator(w, failing=0.08):
    return w.either(None, lambda: w.operation(
        "validator", lambda graph: w.odd(), lambda graph: True, failing=failing))


def verdicts(w):
    w.module("varnholt.simulation.evaluation_verdicts", not_evaluated_verdict=w.operation(
        "verdict", lambda: {"status": "no"}, failing=0.02))


# Results.


def results_engine(w, **more):
    w.patch("_engine", w.namespace(
        "engine", SdkRuntimeNotReadyError=NotReady,
        _SDK_RUNTIME_NOT_READY_REJECTION_DETAIL=w.either("Not ready."),
        logger=w.namespace("logger", warning=w.operation("warning")), **more,
    ))
    verdicts(w)


def process_evaluation(w, missing=0.0):
    w.patch("_process_evaluation", w.namespace(
        "pool", missing, TERMINAL_WORKER_FAILED=w.either("worker_failed"),
        TERMINAL_PROCESS_PRIORITY_FAILED=w.either("priority"),
        TERMINAL_MEMORY_BUDGET_EXCEEDED=w.either("memory"),
    ))


def pool_error(w):
    if w.chance(w.oddity / 3):
        return w.odd()
    error = w.draw.choice([
        PoolError("why"), PoolError(), NotReady("runtime"), ValueError("v"), KeyError("k"),
    ])
    for name in ("terminal_reason", "detail", "candidate_index"):
        if w.chance(0.5):
            setattr(error, name, w.either("worker_failed", "memory", None, 3))
    return error


def evaluator_record(w):
    return w.mapping(
        stats=w.stats,
        passed=lambda: w.either(True, False, False),
        rejection_reason=lambda: w.either(None, "", "evaluate_exception", "sharpe_min"),
        tracking_metric_kwargs=lambda: w.either(None, dict, lambda: w.mapping(
            failure_reason=lambda: w.either("x", "", None), failure_detail=w.odd, other=w.odd)),
        per_column_stats=w.odd,
    )


def results_context(w, **more):
    return w.namespace(
        "ctx", 0.2,
        _last_evaluation_record=w.either(None, lambda: evaluator_record(w)),
        _safe_record=w.either(None, lambda: w.operation("safe_record")),
        _current_attempt_evidence=w.operation("evidence", w.odd),
        _derive_rejection_reason_detail=w.either(None, lambda: w.operation(
            "derive", lambda *_, **__: (w.either("sharpe_min", None, ""), w.odd()),
            lambda *_, **__: w.odd(), failing=0.3)),
        **more,
    )


# Timings, payloads and candidates.


def timings(w):
    def operation(name):
        return w.operation(
            name, lambda *args, **_: dict(args[-1]) if type(args[-1]) is dict else {"t": 1},
            lambda *args, **_: args[-1], lambda *_, **__: {"t": 1}, lambda *_, **__: w.odd(),
            failing=0.12,
        )

    w.module(
        "varnholt.simulation.backtest_timing",
        validate_backtest_timing_payload=operation("validate"),
        validate_graph_backtest_timing_payload=operation("validate_graph"),
        validate_process_backtest_timing_payload=operation("validate_process"),
        consume_recorded_backtest_timing_payload=operation("consume"),
        graph_timing_key=w.operation("key", lambda graph: "k", lambda graph: w.odd()),
    )


def timing(w):
    return w.either(None, lambda: {"t": 1}, lambda: {"t": 1.0}, lambda: {"t": 2},
                    lambda: {"t": w.number()})


def payload(w):
    return w.mapping(
        eval_id=lambda: w.either(None, "e"), market_id=lambda: w.either(None, "7", 3, "x"),
        era_number=lambda: w.either(None, 3), client_manifest_market_id=lambda: w.either(3),
        client_manifest_era_number=lambda: w.either(4), backtest_timing=lambda: timing(w),
        is_stats=lambda: w.either(None, lambda: {"correlation": 1, "x": 2}),
        _submission_pending_reason=w.odd,
    )


def evidence(w):
    if w.chance(0.2):
        return w.odd()
    return w.mapping(
        backtest_completed=lambda: w.either(True, False), backtest_started=lambda: w.either(True),
        backtest_timing=lambda: timing(w),
    )


def era(w):
    figures = {name: w.number for name in ("market_id", "market", "era_number", "id")}
    return w.either(
        None, lambda: w.mapping(**figures),
        lambda: w.namespace("era", 0.4, **{name: make() for name, make in figures.items()}),
    )


def failure(w):
    return w.either(None, lambda: w.mapping(
        value=w.number, threshold=w.number,
        detail=lambda: w.either(
            None, '{"value":1.5,"threshold":2}', "{bad", "[1]",
            lambda: w.mapping(value=w.number, threshold=w.number)),
    ))


def failures(w):
    return w.either(
        None, dict, lambda: list(FAILURES[:2]),
        lambda: w.dressed({w.draw.choice(FAILURES): failure(w) for _ in range(3)}),
    )


def result(w):
    return w.mapping(
        graph=lambda: w.graph(1), stats=w.stats,
        passes=lambda: w.either(False, False, True, None), failures=lambda: failures(w),
        sharpe=w.number, quality_score=w.number,
        correlation=lambda: w.either(None, 0.5, -0.25, w.number),
        candidate_index=w.number, improvement_depth=w.number,
    )


def candidate(w):
    return w.mapping(
        passes=lambda: w.either(True, True, False), graph=lambda: w.graph(1), stats=w.stats,
        per_column_stats=w.odd, elapsed_simulation_seconds=w.number,
        tracking_metric_kwargs=lambda: w.either(None, lambda: w.mapping(
            failure_reason=lambda: w.either("pnl_mi", "x"), failure_detail=w.odd, pnl_mi=w.odd,
            pool_metrics_pending=w.odd)),
        failures=lambda: failures(w), correlation=w.number,
        candidate_index=lambda: w.either(1, 2, 3), attempt_evidence=lambda: evidence(w),
        submission_payload=lambda: w.either(None, lambda: payload(w)),
        source_attempt_id=lambda: w.either(None, "attempt"),
        eval_id=lambda: w.either(None, "evaluation"), backtest_timing=lambda: timing(w),
        _submission_pending_reason=w.odd,
        **({"worker_pid": w.odd} if w.chance(0.2) else {}),
        **({"process_attempt": w.odd} if w.chance(0.4) else {}),
        **({"_parent_recorded": lambda: w.either(True, False)} if w.chance(0.5) else {}),
        **({"_submission_enqueued": lambda: w.either(True, False)} if w.chance(0.2) else {}),
    )


def submission_engine(w, missing=0.1):
    def metric(name):
        return w.operation(name, lambda *_: (w.number(), w.either(True, False)),
                           lambda *_: (w.number(), w.either(True, False)), lambda *_: w.odd(),
                           failing=0.2)

    w.patch("_engine", w.namespace(
        "engine", missing * w.draw.random(),
        _submission_mi_threshold_and_pool=w.operation(
            "mi_threshold", lambda *_: (w.number(), "p"), lambda *_: w.odd(), failing=0.2),
        _submission_correlation_threshold_and_pool=w.operation(
            "correlation_threshold", lambda *_: (w.number(), "p"), lambda *_: w.odd()),
        _recorded_failure_detail=w.operation(
            "detail", lambda *_, **__: w.odd(),
            lambda *args, **_: {"value": args[2], "threshold": args[3]}),
        _failed_gate_verdict=w.either(None, lambda: w.operation(
            "failed_gate", lambda *_, **__: {"f": 1})),
        _gate_verdict=w.either(None, lambda: w.operation("gate", lambda *_, **__: {"g": 1})),
        _stats_gate_threshold_set=w.operation("threshold_set", lambda *_: {"a": 1}),
        _refresh_submission_manifest_membership=w.operation(
            "membership", lambda *_: w.either(True, True, False)),
        _selected_pool_has_synced_found_signal_ids=w.operation(
            "synced", lambda *_: w.either(True, False)),
        _normalize_required_pool_pnl_matrix=w.operation("normalize", failing=0.5),
        _evaluation_metaparameters_for_pool=w.operation("metaparameters", lambda *_: {"m": 1}),
        _call_backtester_with_transform_context=w.operation("rerun", lambda *_, **__: w.stats()),
        _submission_pnl_mi_from_backtest_or_compute=metric("mi"),
        _submission_correlation_from_backtest_or_compute=metric("correlation"),
        AgentPoolPnlSyncMissingError=w.draw.choice([RuntimeError, KeyError]),
        PoolMetricNotYetComputableError=w.draw.choice([ArithmeticError, IndexError]),
        _submitted_stats_payload_from_backtest=w.either(None, lambda: w.operation(
            "build", lambda *_: ({"sharpe": 1}, None), failing=0.2)),
        _annotate_submission_client_manifest=w.operation(
            "manifest", lambda p, _: p.update(client_manifest_market_id=w.number())),
    ))
    verdicts(w)


def submission_context(w):
    return w.namespace(
        "ctx", 0.15,
        _backtester=w.either(None, lambda: w.namespace(
            "backtester", 0.3, run_backtest=w.either(None, lambda: len))),
        _signal_pool_name=w.either("pool", "pool", "pool", None), _sync_mgr=w.odd(),
        _era_config=era(w), era_config=era(w),
        _evaluation_metaparameters=w.either(None, lambda: {"e": 1}),
        _metaparameters=w.either(None, lambda: {"m": 1}), _named_universe=w.odd(),
        thresholds=w.either(lambda: {"t": 1}), _market_id=w.number(), _era_number=w.number(),
        _submission_owner=w.either(None, "owner"),
        _safe_record=w.operation("safe_record", lambda *_, **__: w.either("id", None, 0)),
        _activate_existing_attempt=w.operation("activate"),
        _last_evaluation_record=w.either(None, lambda: w.mapping(
            recording_succeeded=lambda: w.either(True, False))),
        _enqueue_deferred_submission_payload=w.either(lambda: w.operation(
            "enqueue", lambda _: w.either(False, None, True, 0))),
    )


# Gates.


def gates(w):
    def gate_failure():
        return w.namespace(
            "failure", 0.1, reason=w.either(*FAILURES[:7]), actual=w.number(),
            threshold=w.number(), gate=w.odd(), operator=w.odd(), category=w.odd())

    w.patch("_engine", w.namespace(
        "engine",
        _stats_gate_threshold_set=w.operation(
            "threshold_set", lambda *_: w.either(lambda: {"a": 1}, dict)),
        _stats_gate_metrics=w.operation(
            "metrics", lambda _: w.mapping(sharpe=w.number, delta_exposure=w.number),
            lambda _: w.odd()),
        threshold_gate_failure_reason=w.operation("reason", lambda f: f.reason, failing=0.03),
        threshold_gate_failure_metric=w.operation("metric", lambda _: "m", failing=0.03),
        _recorded_failure_detail=w.operation(
            "detail", lambda *_, **__: w.odd(), lambda *args, **_: {"value": args[2]},
            failing=0.03),
    ))
    w.patch("_evaluate_threshold_gates", w.operation("evaluate", lambda **_: w.namespace(
        "gates", 0.1, failures=w.either(
            lambda: [gate_failure() for _ in range(3)], lambda: iter([gate_failure()])))))


def gates_context(w):
    return w.namespace(
        "ctx", 0.3, thresholds=w.either(None, lambda: {"a": 1}),
        _thresholds=w.either(lambda: w.mapping(b=w.odd)),
        _search_context_thresholds=w.either(None, lambda: w.operation(
            "thresholds", w.odd, lambda: {"c": 1}, failing=0.2)),
        era_config=era(w), _era_config=era(w),
    )


# Population.


def scores(w):
    w.patch("score_candidate", w.operation("score", lambda *_, **__: w.number(), failing=0.03))


def fresh(w):
    w.patch("_random_weighted_graphs", w.operation(
        "fresh", lambda *_, **__: iter([w.graph(1, 0.02) for _ in range(3)]),
        lambda *_, **__: w.either(None, lambda: iter([]))))


def operators(w):
    for name in ("crossover", "point_mutation", "subtree_mutation", "hoist_mutation"):
        w.patch(name, w.operation(
            name, lambda *_, **__: w.graph(2, 0.05), lambda *args, **_: args[0], failing=0.1))


def parent(w):
    return w.mapping(
        graph=lambda: w.either(lambda: w.graph(2, 0.02), lambda: w.graph(1, 0.02)),
        correlation=lambda: w.draw.choice([None, 0.5, -0.5, "0.25", Decimal("0.75"), 1]),
        sharpe=w.number)


def parents(w, count=4):
    return [parent(w) for _ in range(count)]


def generator(w):
    return w.namespace("rng", random=w.operation("random", lambda: w.draw.random()))


def config(w):
    return w.namespace(
        "config", 0.0, _batch_size=w.draw.choice([1, 2, 4]),
        _initial_candidates=w.draw.choice([None, tuple(
            ("dict", (("node", ("scalar", f"seed {i}")),)) for i in range(3))]),
        _elite_fraction=w.draw.choice([0.5, 1.0]), _diversity_weight=weight(w),
        _parsimony_weight=weight(w),
        _operator_rates=w.draw.choice([{"hoist_mutation": 1.0}, {"crossover": 0.5}]),
        _rng_for_batch=w.operation("rng_for_batch", lambda: generator(w)),
        _store_rng_state=w.operation("store"),
    )
