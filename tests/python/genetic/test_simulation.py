"""One graph through the host's evaluator, and a finished candidate's statistics.

Goal: the record is a plain dict in the order told, holds the evaluator's own objects where it
shares them, and only what is guarded is caught. Method: evaluators and engines with answers
as given.
"""

import math
import types
from collections import OrderedDict

import pytest

KEYS = [
    "graph", "stats", "passes", "failures", "eval_id", "submission_payload", "attempt_evidence",
    "per_column_stats", "tracking_metric_kwargs", "sharpe", "quality_score", "correlation",
]


def simulate(genetic, outcome, graph=None, **attributes):
    context = types.SimpleNamespace(_evaluate_for_template=lambda graph: outcome, **attributes)
    return genetic._simulate_candidate(context, {"node": "g"} if graph is None else graph)


def test_an_empty_outcome(genetic):
    record = simulate(genetic, {})
    assert type(record) is dict and list(record) == KEYS
    assert record == {
        "graph": {"node": "g"}, "stats": None, "passes": False, "failures": {}, "eval_id": None,
        "submission_payload": None, "attempt_evidence": None, "per_column_stats": None,
        "tracking_metric_kwargs": {}, "sharpe": 0.0, "quality_score": 0.0, "correlation": None,
    }


def test_a_passing_outcome(genetic, make_timings):
    timing, stats, columns = {"seconds": 1}, types.SimpleNamespace(sharpe="1.5"), object()
    timings = make_timings(consume_recorded_backtest_timing_payload=timing)
    payload = OrderedDict(eval_id=0, own=[])
    graph = {"node": "g", "children": [{}]}
    record = simulate(
        genetic,
        OrderedDict(
            record=OrderedDict(passed=[0], stats=stats, per_column_stats=columns),
            submission_payloads=(payload, {"eval_id": 2}),
        ),
        graph,
    )
    assert list(record) == [*KEYS, "backtest_timing"]
    assert record["passes"] is True and record["stats"] is stats
    assert record["per_column_stats"] is columns
    assert record["graph"] == graph and record["graph"] is not graph
    copied = record["submission_payload"]
    assert type(copied) is dict and copied == payload and copied is not payload
    assert copied["own"] is payload["own"] and record["eval_id"] == 0
    assert (record["sharpe"], record["quality_score"]) == (1.5, 1.5)
    assert record["backtest_timing"] is timing
    assert timings.calls[0][1][0] is graph, "the host is asked for the graph that it evaluated"


def test_the_evaluator_gets_the_very_graph_and_its_changes_are_seen(genetic):
    graph, got = {"node": "g"}, []

    def evaluate(given):
        got.append(given)
        given["node"] = "changed"
        return {}

    context = types.SimpleNamespace(_evaluate_for_template=evaluate)
    assert genetic._simulate_candidate(context, graph)["graph"] == {"node": "changed"}
    assert got[0] is graph


@pytest.mark.parametrize("attributes", [{}, {"_evaluate_for_template": 5}])
def test_without_an_evaluator(genetic, attributes):
    with pytest.raises(RuntimeError) as caught:
        genetic._simulate_candidate(types.SimpleNamespace(**attributes), {})
    assert caught.value.args == ("genetic search requires the canonical SearchContext evaluator",)


def test_an_evaluators_error_becomes_a_record_and_an_interrupt_does_not(genetic):
    def context(error):
        def fail(graph):
            raise error

        return types.SimpleNamespace(
            _evaluate_for_template=fail, _last_evaluation_record={},
            _current_attempt_evidence=lambda: "evidence",
        )

    record = genetic._simulate_candidate(context(KeyError("k")), {"node": 1})
    assert record["failures"] == {
        "evaluate_exception": {"reason": "evaluate_exception", "detail": "'k'"}
    }
    assert record["attempt_evidence"] == "evidence"
    with pytest.raises(SystemExit):
        genetic._simulate_candidate(context(SystemExit()), {})


@pytest.mark.parametrize("outcome", [None, 5, "text", []], ids=repr)
def test_an_outcome_that_is_no_mapping_is_not_guarded(genetic, outcome):
    with pytest.raises(AttributeError, match="has no attribute 'get'"):
        simulate(genetic, outcome)


@pytest.mark.parametrize(
    "outcome, error",
    [
        ({"record": 5}, AttributeError), ({"submission_payloads": 5}, TypeError),
        ({"submission_payloads": [5]}, TypeError), ({"submission_payloads": {"a": 1}}, KeyError),
        ({"record": {"stats": types.SimpleNamespace(correlation=math.nan)}}, ValueError),
        ({"record": {"tracking_metric_kwargs": 5}}, TypeError),
    ],
    ids=repr,
)
def test_what_follows_the_evaluation_is_not_guarded(genetic, outcome, error):
    with pytest.raises(error):
        simulate(genetic, outcome)


@pytest.mark.parametrize(
    "outcome",
    [{"record": None, "submission_payloads": None}, {"record": 0, "submission_payloads": ()},
     {"record": [], "submission_payloads": ""}],
    ids=repr,
)
def test_false_parts_of_an_outcome_count_as_missing(genetic, outcome):
    record = simulate(genetic, outcome)
    assert record["submission_payload"] is None and record["passes"] is False


def test_the_failures_of_a_rejection(genetic):
    record = simulate(genetic, {"record": {"rejection_reason": "turnover_max"}})
    assert record["failures"] == {"turnover_max": {"reason": "turnover_max"}}
    tracking = {"failure_detail": 0}
    record = simulate(genetic, {
        "record": {"rejection_reason": "turnover_max", "tracking_metric_kwargs": tracking}
    })
    assert record["failures"] == {"turnover_max": {"reason": "turnover_max", "detail": 0}}
    assert record["tracking_metric_kwargs"] is not tracking
    assert "mi_verdict" not in record["tracking_metric_kwargs"]


def test_a_pass_with_a_reason_has_both(genetic, make_timings):
    make_timings(consume_recorded_backtest_timing_payload=None)
    record = simulate(genetic, {"record": {"passed": 1, "rejection_reason": "r"}})
    assert record["passes"] is True and list(record["failures"]) == ["r"]
    assert "backtest_timing" not in record, "an absent timing leaves no key"


@pytest.mark.parametrize(
    "evidence, completed",
    [
        ({"backtest_completed": 1}, True), (OrderedDict(backtest_completed=[0]), True),
        (types.MappingProxyType({"backtest_completed": True}), True),
        ({"backtest_completed": 0}, False), ({}, False), ("true", False), (5, False),
        (types.SimpleNamespace(backtest_completed=True), False),
    ],
    ids=repr,
)
def test_a_failed_candidate_carries_the_timing_of_a_completed_backtest(
    genetic, make_timings, evidence, completed
):
    timings = make_timings(consume_recorded_backtest_timing_payload={"seconds": 1})
    record = simulate(genetic, {"attempt_evidence": evidence})
    assert record["attempt_evidence"] is evidence or record["attempt_evidence"] == evidence
    assert ("backtest_timing" in record) is completed
    assert len(timings.calls) == completed


@pytest.mark.parametrize("passed", [False, True])
def test_the_evidence_is_asked_whether_or_not_the_candidate_passed(genetic, make_timings, passed):
    class Undecided:
        def __bool__(self):
            raise LookupError("undecided")

    make_timings(consume_recorded_backtest_timing_payload={"seconds": 1})
    outcome = {
        "record": {"passed": passed}, "attempt_evidence": {"backtest_completed": Undecided()}
    }
    with pytest.raises(LookupError, match="undecided"):
        simulate(genetic, outcome)


def test_a_bad_timing_is_not_guarded(genetic, make_timings):
    make_timings(consume_recorded_backtest_timing_payload=ValueError("none"))
    with pytest.raises(RuntimeError, match="genetic candidate has invalid backtest timing: none"):
        simulate(genetic, {"record": {"passed": True}})


# A finished candidate's statistics.

PLAIN = ["sharpe", "annualized_returns", "turnover", "drawdown", "quality_score"]


def test_the_hosts_mapping_is_handed_back_itself(genetic, make_engine):
    stats, era = object(), {"era": 1}
    for made in ({}, OrderedDict(), types.MappingProxyType({"a": 1})):
        engine = make_engine(_submitted_stats_payload_from_backtest=[made, "reason"])
        context = types.SimpleNamespace(era_config=era)
        assert genetic._candidate_stats_payload(context, {"stats": stats}) is made
        assert engine.calls[0][1] == (stats, era) and engine.calls[0][1][1] is era


@pytest.mark.parametrize(
    "answer",
    [(None, "r"), ("text", "r"), (["a"], "r"), 5, None, (), ({},), ({}, 1, 2), {"a": 1},
     ValueError("x"), KeyError("k")],
    ids=repr,
)
def test_every_other_answer_leads_to_the_plain_form(genetic, make_engine, answer):
    make_engine(_submitted_stats_payload_from_backtest=answer)
    payload = genetic._candidate_stats_payload(object(), {})
    assert list(payload.items()) == [(name, 0.0) for name in PLAIN]
    assert type(payload["sharpe"]) is float


def test_a_text_of_two_letters_unpacks_into_no_mapping(genetic, make_engine):
    make_engine(_submitted_stats_payload_from_backtest="ab")
    assert list(genetic._candidate_stats_payload(object(), {})) == PLAIN


def test_a_failure_to_read_the_era_configuration_is_guarded(genetic, make_engine):
    class Context:
        @property
        def _era_config(self):
            raise LookupError("era")

    engine = make_engine(_submitted_stats_payload_from_backtest=({}, None))
    assert list(genetic._candidate_stats_payload(Context(), {})) == PLAIN
    assert engine.calls == []
    make_engine(_submitted_stats_payload_from_backtest=KeyboardInterrupt())
    with pytest.raises(KeyboardInterrupt):
        genetic._candidate_stats_payload(object(), {})


def test_the_plain_form(genetic, make_engine):
    engine = make_engine()
    engine._submitted_stats_payload_from_backtest = "cannot be called"
    stats = types.SimpleNamespace(
        sharpe="1.5", turnover=True, drawdown=2**70, correlation="0.25", other=1
    )
    payload = genetic._candidate_stats_payload(object(), {"stats": stats})
    assert list(payload.items()) == [
        ("sharpe", 1.5), ("annualized_returns", 0.0), ("turnover", 1.0), ("drawdown", 2.0**70),
        ("quality_score", 1.5), ("correlation", 0.25),
    ]
    assert list(genetic._candidate_stats_payload(object(), {"stats": {"sharpe": 9}})) == PLAIN
    nan = genetic._candidate_stats_payload(
        object(), {"stats": types.SimpleNamespace(sharpe=math.nan, quality_score=1)}
    )
    assert math.isnan(nan["sharpe"]) and nan["quality_score"] == 1.0


@pytest.mark.parametrize(
    "name, value, error",
    [("sharpe", "x", ValueError), ("turnover", None, TypeError),
     ("drawdown", 10**400, OverflowError), ("quality_score", [], TypeError),
     ("correlation", math.inf, ValueError)],
)
def test_the_plain_conversions_fail(genetic, make_engine, name, value, error):
    make_engine()
    with pytest.raises(error):
        genetic._candidate_stats_payload(
            object(), {"stats": types.SimpleNamespace(**{name: value})}
        )
