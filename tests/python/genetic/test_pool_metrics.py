"""Measuring a candidate against the pool, on Python objects.

Goal: records are changed in place as told, host operations are asked in their order with the very
objects, and failures pass as Python raises them. Method: engines that note their calls and what the
record was at that moment, and a plain version of the rules over random outcomes.
"""

import copy
import random
import sys
import types
from collections import OrderedDict

import pytest

PENDING = "pool_metrics_refresh_required"
POOL_REASONS = [
    "pnl_mi", "pnl_mi_below_threshold", "correlation_exceeded", "missing_is_pnl_mi",
    "missing_is_correlation", "agent_pool_pnl_sync_missing",
]


class SyncMissing(Exception):
    pass


class NotComputable(ValueError):
    pass


def answers(**others):
    """What a host with a filled pool answers; a candidate passes both gates."""
    return {
        "_stats_gate_threshold_set": lambda thresholds, era: ("set", thresholds, era),
        "_submission_mi_threshold_and_pool": (0.25, "pool"),
        "_submission_correlation_threshold_and_pool": (0.5, "pool"),
        "_recorded_failure_detail": lambda *args, **keywords: {
            "value": args[2], "threshold": args[3], **keywords
        },
        "_failed_gate_verdict": lambda reason, **figures: {"failed": reason, **figures},
        "_gate_verdict": lambda *args, **figures: {"passed": args[0], **figures},
        "_refresh_submission_manifest_membership": True,
        "_selected_pool_has_synced_found_signal_ids": False,
        "_normalize_required_pool_pnl_matrix": None,
        "_evaluation_metaparameters_for_pool": lambda pool, given: {"of": pool, **given},
        "_call_backtester_with_transform_context": lambda *args, extra_kwargs: {"again": args},
        "_submission_pnl_mi_from_backtest_or_compute": (0.75, True),
        "_submission_correlation_from_backtest_or_compute": (0.125, True),
        "_submitted_stats_payload_from_backtest": lambda stats, era: ({"sharpe": 1.0}, None),
        "AgentPoolPnlSyncMissingError": SyncMissing,
        "PoolMetricNotYetComputableError": NotComputable,
        **others,
    }


def without(*names, **others):
    return {name: answer for name, answer in answers(**others).items() if name not in names}


def pool_context(**attributes):
    backtester = types.SimpleNamespace(run_backtest=lambda *args, **keywords: None)
    return types.SimpleNamespace(**{
        "_backtester": backtester, "_era_config": {"era": 1}, "_signal_pool_name": "pool",
        "_sync_mgr": object(), **attributes,
    })


# Blocking.


@pytest.mark.parametrize(
    "reason, tracked, verdict",
    [
        ("pnl_mi_below_threshold", "pnl_mi", "mi_verdict"),
        ("correlation_exceeded", "correlation_exceeded", "correlation_verdict"),
        ("anything else", "anything else", "mi_verdict"),
        (7, 7, "mi_verdict"),
        (None, None, "mi_verdict"),
    ],
)
def test_blocking(genetic, make_engine, reason, tracked, verdict):
    engine = make_engine(**answers())
    detail = {"value": 1, "other": 2}
    candidate = {"passes": True, "graph": 1}
    assert genetic._block_candidate_submission(candidate, reason, detail) is None
    given = {"detail": detail, "value": 1, "threshold": None}
    assert engine.calls == [("_failed_gate_verdict", (reason,), given)]
    assert engine.calls[0][2]["detail"] is detail
    assert list(candidate.items()) == [
        ("passes", False), ("graph", 1),
        ("failures", {reason: {"reason": reason, "detail": detail}}),
        ("tracking_metric_kwargs", {
            "failure_reason": tracked, "failure_detail": detail,
            verdict: {"failed": reason, **given},
        }),
        ("_submission_blocked_reason", reason),
    ]
    assert candidate["failures"][reason]["detail"] is detail
    assert list(candidate["tracking_metric_kwargs"]) == [
        "failure_reason", "failure_detail", verdict
    ]


def test_a_second_block_keeps_the_first_failure_and_the_same_mappings(genetic, make_engine):
    make_engine(**answers())
    failures, tracking = OrderedDict(), {"own": 1}
    candidate = {"failures": failures, "tracking_metric_kwargs": tracking}
    genetic._block_candidate_submission(candidate, "pnl_mi_below_threshold", "why")
    assert tracking["failure_detail"] == "why"
    genetic._block_candidate_submission(candidate, "correlation_exceeded")
    assert candidate["failures"] is failures and candidate["tracking_metric_kwargs"] is tracking
    assert list(failures) == ["pnl_mi_below_threshold", "correlation_exceeded"]
    assert failures["correlation_exceeded"] == {"reason": "correlation_exceeded"}
    assert "failure_detail" not in tracking and tracking["own"] == 1
    assert candidate["_submission_blocked_reason"] == "correlation_exceeded"
    assert set(tracking) >= {"mi_verdict", "correlation_verdict"}


def test_the_hosts_without_verdicts(genetic, make_engine):
    engine = make_engine(**without("_failed_gate_verdict"))
    candidate = {}
    genetic._block_candidate_submission(candidate, "r", {"value": 1})
    assert engine.calls == [("_gate_verdict", (False, "r"), {"detail": {"value": 1}})]
    genetic._block_candidate_submission(candidate, "r")
    assert engine.calls[1] == ("_gate_verdict", (False, "r"), {"detail": None})
    engine = make_engine(_gate_verdict=int)
    engine._gate_verdict = engine._failed_gate_verdict = "cannot be called"
    genetic._block_candidate_submission(candidate, "r", "d")
    assert candidate["tracking_metric_kwargs"]["mi_verdict"] == {"passed": False, "reason": "r"}


def test_a_detail_of_any_mapping_kind_gives_its_figures(genetic, make_engine):
    for detail in (OrderedDict(value=1), types.MappingProxyType({"value": 1})):
        engine = make_engine(**answers())
        genetic._block_candidate_submission({}, "r", detail)
        assert engine.calls[0][2]["detail"] is detail and engine.calls[0][2]["value"] == 1
    for detail in ("text", [("value", 1)], types.SimpleNamespace(value=1), 5):
        engine = make_engine(**answers())
        genetic._block_candidate_submission({}, "r", detail)
        assert engine.calls[0][2] == {"detail": detail}


def test_records_that_cannot_be_written(genetic, make_engine):
    make_engine(**answers())
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        genetic._block_candidate_submission({}, [])
    with pytest.raises(TypeError, match="'NoneType' object does not support item assignment"):
        genetic._block_candidate_submission({"failures": None}, "r")
    with pytest.raises(TypeError, match="'mappingproxy' object does not support item assignment"):
        genetic._block_candidate_submission(types.MappingProxyType({}), "r")


# Tracking of what passed.


def test_the_mutual_information(genetic, make_engine):
    engine = make_engine(**answers())
    context, candidate = pool_context(thresholds={"a": 1}), {}
    score = object()
    assert genetic._set_candidate_mi_tracking(context, candidate, score) is None
    assert engine.called == [
        "_stats_gate_threshold_set", "_submission_mi_threshold_and_pool", "_gate_verdict"
    ]
    era = context._era_config
    assert engine.calls[1][1] == (era, "pool", ("set", {"a": 1}, era))
    assert engine.calls[1][1][0] is era
    assert engine.calls[2][1:] == ((True,), {"value": score, "threshold": 0.25})
    tracking = candidate["tracking_metric_kwargs"]
    assert list(tracking) == ["pnl_mi", "mi_verdict"] and tracking["pnl_mi"] is score


@pytest.mark.parametrize(
    "others, attributes",
    [
        ({"_submission_mi_threshold_and_pool": KeyError("x")}, {}),
        ({"_submission_mi_threshold_and_pool": 5}, {}),
        ({"_submission_mi_threshold_and_pool": ()}, {}),
        ({"_stats_gate_threshold_set": ValueError("x")}, {}),
        ({}, {"_era_config": None}), ({}, {"_signal_pool_name": ""}),
        ({}, {"_signal_pool_name": None}),
    ],
    ids=repr,
)
def test_a_threshold_that_is_not_to_be_had_is_absent(genetic, make_engine, others, attributes):
    make_engine(**answers(**others))
    candidate = {}
    genetic._set_candidate_mi_tracking(pool_context(**attributes), candidate, 0.5)
    assert candidate["tracking_metric_kwargs"]["mi_verdict"] == {
        "passed": True, "value": 0.5, "threshold": None
    }


def test_an_interrupt_there_and_a_failure_of_the_reads_pass(genetic, make_engine):
    make_engine(**answers(_submission_mi_threshold_and_pool=KeyboardInterrupt()))
    with pytest.raises(KeyboardInterrupt):
        genetic._set_candidate_mi_tracking(pool_context(), {}, 0.5)
    error = LookupError("pool name")

    class Context:
        @property
        def _signal_pool_name(self):
            raise error

    candidate = {}
    with pytest.raises(LookupError) as caught:
        genetic._set_candidate_mi_tracking(Context(), candidate, 0.5)
    assert caught.value is error
    assert candidate == {"tracking_metric_kwargs": {"pnl_mi": 0.5}}


def test_the_correlation_asks_always_and_catches_nothing(genetic, make_engine):
    engine = make_engine(**answers())
    candidate = {}
    genetic._set_candidate_correlation_tracking(object(), candidate, 0.1)
    assert engine.calls[0] == ("_submission_correlation_threshold_and_pool", (None, None), {})
    assert candidate["tracking_metric_kwargs"] == {
        "correlation": 0.1,
        "correlation_verdict": {"passed": True, "value": 0.1, "threshold": 0.5},
    }
    error = ValueError("x")
    make_engine(**answers(_submission_correlation_threshold_and_pool=error))
    with pytest.raises(ValueError) as caught:
        genetic._set_candidate_correlation_tracking(object(), {}, 0.1)
    assert caught.value is error
    make_engine(**answers(_submission_correlation_threshold_and_pool=5))
    with pytest.raises(TypeError, match="'int' object is not subscriptable"):
        genetic._set_candidate_correlation_tracking(object(), {}, 0.1)
    make_engine()
    candidate = {}
    genetic._set_candidate_correlation_tracking(object(), candidate, 0.1)
    verdict = candidate["tracking_metric_kwargs"]["correlation_verdict"]
    assert list(verdict.items()) == [
        ("passed", True), ("reason", None), ("value", 0.1), ("threshold", None)
    ]


def test_the_detail_of_a_failed_mutual_information(genetic, make_engine):
    engine = make_engine(**answers())
    context, score = pool_context(), object()
    detail = genetic._submission_mi_failure_detail(context, score)
    assert detail["value"] is score and detail["threshold"] == 0.25
    assert engine.calls[-1] == (
        "_recorded_failure_detail", ("pnl_mi_below_threshold", "is_pnl_mi", score, 0.25),
        {"gate": "is_pnl_mi_threshold", "operator": "<", "category": "quality"},
    )
    made = {}
    make_engine(**answers(_recorded_failure_detail=lambda *args, **keywords: made))
    assert genetic._submission_mi_failure_detail(context, score) is made
    for missing, text in (
        ("_submission_mi_threshold_and_pool", "genetic search requires canonical PnL-MI thresholds"),
        ("_recorded_failure_detail", "genetic search requires canonical failure evidence"),
    ):
        make_engine(**without(missing))
        with pytest.raises(RuntimeError) as caught:
            genetic._submission_mi_failure_detail(context, score)
        assert caught.value.args == (text,)
    for pair, kind in ((5, TypeError), ((1,), ValueError), ((1, 2, 3), ValueError)):
        make_engine(**answers(_submission_mi_threshold_and_pool=pair))
        with pytest.raises(kind):
            genetic._submission_mi_failure_detail(context, score)


# The pending mark.


@pytest.mark.parametrize("reason", [*POOL_REASONS, "turnover_max", None, [1], "absent"])
def test_marking_and_clearing(genetic, reason):
    tracking = {"failure_detail": "d", "kept": 1}
    if reason != "absent":
        tracking["failure_reason"] = reason
    for change in ("mark", "clear"):
        candidate = {
            "passes": False, "failures": {"f": 1}, "_submission_blocked_reason": "b",
            "_submission_pending_reason": "p", "tracking_metric_kwargs": dict(tracking),
        }
        payload = {"_submission_pending_reason": "old"}
        if change == "mark":
            genetic._mark_candidate_pool_metrics_pending(candidate, payload, ValueError("why"))
            assert candidate["_submission_pending_reason"] == PENDING == payload.pop(
                "_submission_pending_reason"
            )
            assert "_submission_blocked_reason" not in candidate
            assert candidate["tracking_metric_kwargs"].pop("pool_metrics_pending") is True
            assert candidate["tracking_metric_kwargs"].pop("pool_metrics_pending_detail") == "why"
        else:
            candidate["tracking_metric_kwargs"].update(
                pool_metrics_pending=True, pool_metrics_pending_detail="x"
            )
            genetic._clear_candidate_pool_metrics_pending(candidate, payload)
            assert "_submission_pending_reason" not in candidate
            assert candidate["_submission_blocked_reason"] == "b"
        assert payload == {} and candidate["passes"] is False and candidate["failures"] == {"f": 1}
        left = {"kept": 1} if reason in POOL_REASONS else tracking
        assert candidate["tracking_metric_kwargs"] == left


def test_both_work_on_bare_records(genetic):
    candidate, payload = {}, OrderedDict()
    genetic._mark_candidate_pool_metrics_pending(candidate, payload, "text \udcff")
    assert candidate == {
        "_submission_pending_reason": PENDING,
        "tracking_metric_kwargs": {
            "pool_metrics_pending": True, "pool_metrics_pending_detail": "text \udcff"
        },
    }
    assert payload == {"_submission_pending_reason": PENDING}
    genetic._clear_candidate_pool_metrics_pending(candidate, payload)
    assert candidate == {"tracking_metric_kwargs": {}} and payload == {}


# The refresh.


def test_the_order_of_a_clear_refresh(genetic, make_engine):
    candidate = {"passes": True, "stats": object(), "graph": {}}
    payload = {"is_stats": {"is_pnl_mi": "stale", "correlation": "stale", "sharpe": 2}}
    stats_payload = payload["is_stats"]
    seen = []

    def score(*args):
        seen.append(copy.deepcopy((payload, candidate["tracking_metric_kwargs"])))
        return [0.75, "true"]

    engine = make_engine(**answers(_submission_pnl_mi_from_backtest_or_compute=score))
    context = pool_context()
    assert genetic._refresh_candidate_submission_pool_metrics(context, candidate, payload) is None
    era = context._era_config
    assert engine.called == [
        "_refresh_submission_manifest_membership", "_selected_pool_has_synced_found_signal_ids",
        "_stats_gate_threshold_set", "_submission_pnl_mi_from_backtest_or_compute",
        "_submission_correlation_from_backtest_or_compute",
        "_stats_gate_threshold_set", "_submission_mi_threshold_and_pool", "_gate_verdict",
        "_submission_correlation_threshold_and_pool", "_gate_verdict",
    ]
    assert engine.calls[0][1] == (era, "pool", context._sync_mgr)
    assert engine.calls[3][1] == (
        context._backtester, candidate["stats"], era, "pool", ("set", {}, era)
    )
    assert engine.calls[4][1] == (context._backtester, candidate["stats"], era, "pool")
    # What was stale is gone before anything is measured.
    not_evaluated = {"status": "not_evaluated"}
    assert seen == [(
        {"is_stats": {"sharpe": 2}},
        {"mi_verdict": not_evaluated, "correlation_verdict": not_evaluated},
    )]
    assert payload["is_stats"] is stats_payload
    assert stats_payload == {"sharpe": 2, "is_pnl_mi": 0.75, "correlation": 0.125}
    assert candidate["tracking_metric_kwargs"]["mi_verdict"]["threshold"] == 0.25
    assert candidate["passes"] is True and "_submission_blocked_reason" not in candidate


def test_the_not_evaluated_verdict_is_asked_for_twice(genetic, make_engine, monkeypatch):
    make_engine(**answers())
    made = []
    verdicts = types.SimpleNamespace(not_evaluated_verdict=lambda: made.append({}) or made[-1])
    monkeypatch.setitem(sys.modules, "varnholt.simulation.evaluation_verdicts", verdicts)
    candidate = {}
    genetic._refresh_candidate_submission_pool_metrics(object(), candidate, {})
    tracking = candidate["tracking_metric_kwargs"]
    assert [id(verdict) for verdict in made] == [
        id(tracking["mi_verdict"]), id(tracking["correlation_verdict"])
    ]


@pytest.mark.parametrize(
    "attributes", [{"_backtester": None}, {"_era_config": None}, {"_signal_pool_name": ""},
                   {"_signal_pool_name": None}, {"_signal_pool_name": 0}],
    ids=repr,
)
def test_without_a_context_to_measure_in_nothing_is_asked(genetic, make_engine, attributes):
    engine = make_engine(**answers())
    candidate, payload = {"stats": 5}, {}
    genetic._refresh_candidate_submission_pool_metrics(
        pool_context(**attributes), candidate, payload
    )
    assert engine.called == ["_submitted_stats_payload_from_backtest"]
    assert payload == {"is_stats": {"sharpe": 1.0}, "_submission_pending_reason": PENDING}
    tracking = candidate["tracking_metric_kwargs"]
    assert tracking["pool_metrics_pending_detail"] == (
        "pool metric computation context is unavailable"
    )


def test_the_hosts_statistics_become_the_payloads_own(genetic, make_engine):
    made = OrderedDict(sharpe=1, is_pnl_mi="stale")
    make_engine(**answers(_submitted_stats_payload_from_backtest=lambda *args: (made, None)))
    payload = {"is_stats": [("not", "a mapping")]}
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, payload)
    assert payload["is_stats"] is made
    assert made == {"sharpe": 1, "is_pnl_mi": 0.75, "correlation": 0.125}


@pytest.mark.parametrize("answer", [False, None, 0, ""])
def test_an_unconfirmed_membership_is_pending(genetic, make_engine, answer):
    engine = make_engine(**answers(_refresh_submission_manifest_membership=answer))
    candidate, payload = {}, {"is_stats": {}}
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), candidate, payload)
    assert engine.called == ["_refresh_submission_manifest_membership"]
    assert candidate["tracking_metric_kwargs"]["pool_metrics_pending_detail"] == (
        "found signal membership is not confirmed"
    )


class Sync(SyncMissing):
    def __str__(self):
        return "the pool is behind"


@pytest.mark.parametrize("operation", ["pnl_mi", "correlation"])
@pytest.mark.parametrize("error", [Sync(), NotComputable("not yet")], ids=repr)
def test_data_that_is_not_ready_is_pending(genetic, make_engine, operation, error):
    name = f"_submission_{operation}_from_backtest_or_compute"
    engine = make_engine(**answers(**{name: error}))
    candidate, payload = {"passes": True}, {"is_stats": {}}
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), candidate, payload)
    assert engine.called[-1] == name
    tracking = candidate["tracking_metric_kwargs"]
    assert tracking["pool_metrics_pending_detail"] == str(error)
    assert tracking["mi_verdict"] == {"status": "not_evaluated"}
    assert payload["is_stats"] == {} and "pnl_mi" not in tracking
    assert candidate["passes"] is True


@pytest.mark.parametrize("error", [ValueError("v"), KeyError("k"), SystemExit(2)], ids=repr)
def test_other_errors_of_a_measurement_pass_after_the_wipe(genetic, make_engine, error):
    for name in ("_submission_pnl_mi_from_backtest_or_compute",
                 "_submission_correlation_from_backtest_or_compute",
                 "_refresh_submission_manifest_membership"):
        make_engine(**answers(**{name: error}))
        payload = {"is_stats": {"correlation": "stale"}}
        with pytest.raises(type(error)) as caught:
            genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, payload)
        assert caught.value is error and payload["is_stats"] == {}


def test_the_hosts_error_types_are_read_only_when_an_error_is_on_its_way(genetic, make_engine):
    engine = make_engine(**without("AgentPoolPnlSyncMissingError"))
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    error = KeyError("k")
    engine.answer("_submission_pnl_mi_from_backtest_or_compute", error)
    with pytest.raises(AttributeError, match="AgentPoolPnlSyncMissingError") as caught:
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    assert caught.value.__context__ is error
    # Both are read, also when the first one matches.
    engine = make_engine(**without("PoolMetricNotYetComputableError"))
    engine.answer("_submission_pnl_mi_from_backtest_or_compute", SyncMissing())
    with pytest.raises(AttributeError, match="PoolMetricNotYetComputableError"):
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    engine.PoolMetricNotYetComputableError = "no class"
    engine.answer("_submission_pnl_mi_from_backtest_or_compute", error)
    with pytest.raises(TypeError, match="catching classes that do not inherit"):
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})


def test_a_missing_operation_fails_as_an_attribute_does(genetic, make_engine):
    for name in ("_refresh_submission_manifest_membership",
                 "_selected_pool_has_synced_found_signal_ids",
                 "_submission_pnl_mi_from_backtest_or_compute",
                 "_submission_correlation_from_backtest_or_compute"):
        make_engine(**without(name))
        with pytest.raises(AttributeError, match=name):
            genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    # But not where a verdict can be made without the host.
    make_engine(**without("_gate_verdict"))
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})


def test_a_matrix_that_is_there_changes_nothing(genetic, make_engine):
    engine = make_engine(**answers(
        _selected_pool_has_synced_found_signal_ids=1,
        _normalize_required_pool_pnl_matrix="dropped",
    ))
    candidate = {"stats": {"own": 1}}
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), candidate, {})
    assert engine.calls[4][0] == "_stats_gate_threshold_set"
    assert engine.calls[5][1][1] is candidate["stats"]


@pytest.mark.parametrize(
    "attributes, metaparameters",
    [
        ({"_evaluation_metaparameters": {"m": 1}}, {"m": 1}),
        ({"_evaluation_metaparameters": {}}, {}),
        ({}, {"of": "pool"}),
        ({"_metaparameters": {"n": 2}}, {"of": "pool", "n": 2}),
        ({"_metaparameters": None}, {"of": "pool"}),
    ],
    ids=repr,
)
def test_statistics_without_a_matrix_are_made_again(
    genetic, make_engine, attributes, metaparameters
):
    class BadMatrix(ValueError):
        pass

    engine = make_engine(**answers(
        _selected_pool_has_synced_found_signal_ids=True,
        _normalize_required_pool_pnl_matrix=BadMatrix(),
    ))
    context = pool_context(_named_universe="all", **attributes)
    candidate = {"stats": {"own": 1}, "graph": {"node": "g"}}
    genetic._refresh_candidate_submission_pool_metrics(context, candidate, {})
    run = next(call for call in engine.calls if call[0].startswith("_call_backtester"))
    given = (context._backtester, "run_backtest", candidate["graph"], metaparameters, "all")
    assert run[1:] == (given, {"extra_kwargs": {"return_series": True}})
    assert run[1][2] is candidate["graph"]
    measured = [call for call in engine.calls if call[0].endswith("_from_backtest_or_compute")]
    assert all(call[1][1] == {"again": given} for call in measured) and len(measured) == 2
    assert candidate["stats"] == {"own": 1}, "the candidate's own statistics stay"


def test_without_a_backtest_to_run_the_error_is_dropped(genetic, make_engine):
    for backtester in (object(), types.SimpleNamespace(run_backtest=5)):
        engine = make_engine(**answers(
            _selected_pool_has_synced_found_signal_ids=True,
            _normalize_required_pool_pnl_matrix=ValueError("no matrix"),
        ))
        candidate = {"stats": 9}
        genetic._refresh_candidate_submission_pool_metrics(
            pool_context(_backtester=backtester), candidate, {}
        )
        assert "_call_backtester_with_transform_context" not in engine.called
        assert engine.calls[-1][0] == "_gate_verdict"


@pytest.mark.parametrize(
    "operation", ["_call_backtester_with_transform_context", "_evaluation_metaparameters_for_pool"]
)
def test_what_fails_in_the_second_backtest_has_the_first_failure_as_context(
    genetic, make_engine, operation
):
    first, handled = ValueError("no matrix"), []

    def fail(*args, **keywords):
        handled.append(sys.exc_info()[1])
        raise LookupError("second")

    engine = make_engine(**answers(
        _selected_pool_has_synced_found_signal_ids=True,
        _normalize_required_pool_pnl_matrix=first,
        **{operation: fail},
    ))
    with pytest.raises(LookupError) as caught:
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    assert handled == [first] and caught.value.__context__ is first
    assert caught.value.__cause__ is None
    delattr(engine, operation)
    with pytest.raises(AttributeError) as caught:
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    assert caught.value.__context__ is first
    assert sys.exc_info() == (None, None, None)


@pytest.mark.parametrize(
    "error", [TypeError("t"), KeyError("k"), KeyboardInterrupt()], ids=repr
)
def test_no_other_error_of_the_matrix_is_caught(genetic, make_engine, error):
    make_engine(**answers(
        _selected_pool_has_synced_found_signal_ids=True, _normalize_required_pool_pnl_matrix=error
    ))
    with pytest.raises(type(error)) as caught:
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    assert caught.value is error


def test_both_gates_failed_is_a_block_on_mutual_information(genetic, make_engine):
    engine = make_engine(**answers(
        _submission_pnl_mi_from_backtest_or_compute=(0.1, False),
        _submission_correlation_from_backtest_or_compute=(0.9, False),
    ))
    candidate, payload = {"passes": True}, {"is_stats": {}}
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), candidate, payload)
    assert list(candidate["failures"]) == ["pnl_mi_below_threshold"]
    assert candidate["tracking_metric_kwargs"]["correlation"] == 0.9
    assert candidate["tracking_metric_kwargs"]["correlation_verdict"] == {
        "status": "not_evaluated"
    }
    assert "_submission_correlation_threshold_and_pool" not in engine.called


def test_a_failed_correlation(genetic, make_engine):
    engine = make_engine(**answers(
        _submission_correlation_from_backtest_or_compute=(0.9, 0)
    ))
    candidate = {"passes": True}
    genetic._refresh_candidate_submission_pool_metrics(pool_context(), candidate, {})
    recorded = next(call for call in engine.calls if call[0] == "_recorded_failure_detail")
    assert recorded[1:] == (
        ("correlation_exceeded", "correlation", 0.9, 0.5),
        {"gate": "is_correlation_threshold", "operator": ">", "category": "quality"},
    )
    assert candidate["_submission_blocked_reason"] == "correlation_exceeded"
    assert candidate["tracking_metric_kwargs"]["mi_verdict"]["passed"] is True


def test_a_verdict_whose_truth_fails_passes(genetic, make_engine):
    class Ambiguous:
        def __bool__(self):
            raise ValueError("the truth value of an array is ambiguous")

    make_engine(**answers(_submission_pnl_mi_from_backtest_or_compute=(0.1, Ambiguous())))
    payload = {"is_stats": {}}
    with pytest.raises(ValueError, match="ambiguous"):
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, payload)
    assert payload["is_stats"]["is_pnl_mi"] == 0.1


# The same in plain words, for random outcomes, one refresh after the other.


def plain_refresh(engine, candidate, payload):
    stats_payload = payload.setdefault("is_stats", {"sharpe": 1.0})
    tracking = candidate.setdefault("tracking_metric_kwargs", {})
    for name in ("is_pnl_mi", "correlation"):
        stats_payload.pop(name, None)
    for name in ("pnl_mi", "correlation"):
        tracking.pop(name, None)
        verdict = {"pnl_mi": "mi_verdict"}.get(name, "correlation_verdict")
        tracking[verdict] = {"status": "not_evaluated"}

    def forget():
        if tracking.get("failure_reason") in POOL_REASONS:
            tracking.pop("failure_reason")
            tracking.pop("failure_detail", None)

    def pending(detail):
        candidate["_submission_pending_reason"] = payload["_submission_pending_reason"] = PENDING
        candidate.pop("_submission_blocked_reason", None)
        forget()
        tracking.update(pool_metrics_pending=True, pool_metrics_pending_detail=detail)

    def passed(name, verdict, value, threshold):
        tracking[name] = value
        tracking[verdict] = {"passed": True, "value": value, "threshold": threshold}

    def blocked(reason, gate, operator, value, threshold):
        detail = {"value": value, "threshold": threshold, "gate": gate, "operator": operator,
                  "category": "quality"}
        candidate["passes"] = False
        candidate.setdefault("failures", {})[reason] = {"reason": reason, "detail": detail}
        below = reason == "pnl_mi_below_threshold"
        tracking.update(failure_reason="pnl_mi" if below else reason, failure_detail=detail)
        tracking["mi_verdict" if below else "correlation_verdict"] = {
            "failed": reason, "detail": detail, "value": value, "threshold": threshold
        }
        candidate["_submission_blocked_reason"] = reason

    if not engine["_refresh_submission_manifest_membership"]:
        return pending("found signal membership is not confirmed")
    score = engine["_submission_pnl_mi_from_backtest_or_compute"]
    if isinstance(score, Exception):
        return pending(str(score))
    correlation = engine["_submission_correlation_from_backtest_or_compute"]
    if isinstance(correlation, Exception):
        return pending(str(correlation))
    stats_payload.update(is_pnl_mi=score[0], correlation=correlation[0])
    tracking.update(pnl_mi=score[0], correlation=correlation[0])
    for record in (candidate, payload):
        record.pop("_submission_pending_reason", None)
    for name in ("pool_metrics_pending", "pool_metrics_pending_detail"):
        tracking.pop(name, None)
    forget()
    if score[1]:
        passed("pnl_mi", "mi_verdict", score[0], 0.25)
    if correlation[1]:
        passed("correlation", "correlation_verdict", correlation[0], 0.5)
    if not score[1]:
        blocked("pnl_mi_below_threshold", "is_pnl_mi_threshold", "<", score[0], 0.25)
    elif not correlation[1]:
        blocked("correlation_exceeded", "is_correlation_threshold", ">", correlation[0], 0.5)
    return None


def test_random_refreshes_one_after_the_other(genetic, make_engine):
    for seed in range(200):
        rng = random.Random(seed)
        candidate = {"passes": True, "stats": None}
        payload = rng.choice([{}, {"is_stats": {"correlation": 9}}])
        expected = copy.deepcopy((candidate, payload))
        for _ in range(5):
            outcome = {
                "_refresh_submission_manifest_membership": rng.random() < 0.8,
                **{
                    f"_submission_{name}_from_backtest_or_compute": rng.choice(
                        [(rng.random(), True), (rng.random(), False), SyncMissing("behind")]
                    )
                    for name in ("pnl_mi", "correlation")
                },
            }
            make_engine(**answers(**outcome))
            genetic._refresh_candidate_submission_pool_metrics(pool_context(), candidate, payload)
            plain_refresh(outcome, *expected)
            assert (candidate, payload) == expected, f"seed {seed}"
            assert list(candidate) == list(expected[0]), f"seed {seed}"
