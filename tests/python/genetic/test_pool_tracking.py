"""What a measurement against the pool leaves on a record, on Python objects.

Goal: records are changed in place as told, and verdicts come from the host where it has them.
Method: engines that note their calls, and records looked at key by key.
"""

import types
from collections import OrderedDict

import pytest
from pool_host import PENDING, POOL_REASONS, answers, pool_context, without


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
    for missing, what in (
        ("_submission_mi_threshold_and_pool", "PnL-MI thresholds"),
        ("_recorded_failure_detail", "failure evidence"),
    ):
        make_engine(**without(missing))
        with pytest.raises(RuntimeError) as caught:
            genetic._submission_mi_failure_detail(context, score)
        assert caught.value.args == (f"genetic search requires canonical {what}",)
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
