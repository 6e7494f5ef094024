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
from pool_host import (
    PENDING, POOL_REASONS, NotComputable, SyncMissing, answers, pool_context, without
)


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


@pytest.mark.parametrize("error", [SyncMissing(), KeyError("k"), SystemExit(2)], ids=repr)
@pytest.mark.parametrize(
    "name", ["AgentPoolPnlSyncMissingError", "PoolMetricNotYetComputableError"]
)
def test_both_error_types_are_looked_at_before_either_is_compared(
    genetic, make_engine, error, name
):
    for wrong in ("no class", int, (SyncMissing,)):
        engine = make_engine(**answers(_submission_pnl_mi_from_backtest_or_compute=error))
        setattr(engine, name, wrong)
        with pytest.raises(TypeError) as caught:
            genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
        assert caught.value.args == (
            "catching classes that do not inherit from BaseException is not allowed",
        )
        assert caught.value.__context__ is error
        # Every exception on its way asks for the types, one that nobody handles among them.
        delattr(engine, name)
        with pytest.raises(AttributeError, match=name) as caught:
            genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
        assert caught.value.__context__ is error


@pytest.mark.parametrize("operation", ["pnl_mi", "correlation"])
def test_data_that_is_not_ready_may_be_told_by_what_is_no_exception(
    genetic, make_engine, operation
):
    class Behind(BaseException):
        def __str__(self):
            shown.append(sys.exc_info()[1])
            return "behind"

    shown, error = [], Behind()
    name = f"_submission_{operation}_from_backtest_or_compute"
    for base in (Behind, BaseException):
        shown.clear()
        make_engine(**answers(**{name: error, "AgentPoolPnlSyncMissingError": base}))
        candidate, payload = {"passes": True}, {"is_stats": {}}
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), candidate, payload)
        tracking = candidate["tracking_metric_kwargs"]
        assert tracking["pool_metrics_pending_detail"] == "behind"
        assert payload["_submission_pending_reason"] == PENDING
        assert shown == [error], "the text is asked for while the exception is handled"
    # With types of other classes it passes.
    make_engine(**answers(**{name: error}))
    with pytest.raises(Behind) as caught:
        genetic._refresh_candidate_submission_pool_metrics(pool_context(), {}, {})
    assert caught.value is error and sys.exc_info() == (None, None, None)


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
    # An axis that is out of range is an error of two kinds.
    class BadMatrix(ValueError, IndexError):
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
    # What the context is asked for meanwhile is asked in the same state.
    handled.clear()
    context = type("C", (), {"_named_universe": property(fail)})()
    context.__dict__.update(vars(pool_context(_evaluation_metaparameters={})))
    with pytest.raises(LookupError):
        genetic._refresh_candidate_submission_pool_metrics(context, {}, {})
    assert handled == [first]
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
