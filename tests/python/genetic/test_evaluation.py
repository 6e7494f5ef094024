"""Candidate results on Python objects: numbers, failures, records.

Goal: every way of failing gives the same record, and what a host's objects answer counts. Method:
contexts made of plain attributes, and host operations that note their calls.
"""

import math
import sys
import types

import pytest


class Statistics:
    def __init__(self, **values):
        self.__dict__.update(values)


@pytest.mark.parametrize(
    "value, number", [("x", 0.0), (None, 0.0), (True, 1.0), ("1e3", 1000.0), (2**70, 2.0**70)]
)
def test_number(genetic, value, number):
    assert genetic._number(value) == number
    assert type(genetic._number(value)) is float


def test_number_gives_the_default_as_it_is(genetic):
    default = object()
    assert genetic._number("x", default) is default
    assert genetic._number("x", 5) == 5 and type(genetic._number("x", 5)) is int
    assert genetic._number("x", default=None) is None
    assert math.isnan(genetic._number("nan"))
    assert genetic._number("-inf") == -math.inf


def test_optional_correlation(genetic):
    assert genetic._optional_correlation(None) is None
    assert genetic._optional_correlation("0.5") == 0.5
    for value in (math.nan, math.inf, "abc", object(), 10**400, []):
        with pytest.raises(ValueError) as caught:
            genetic._optional_correlation(value)
        assert str(caught.value) == "candidate correlation must be a finite number or None"
        assert caught.value.__cause__ is None


def test_the_failure_of_an_exception(genetic):
    class NotReady(genetic._engine.SdkRuntimeNotReadyError):
        pass

    assert genetic._evaluation_exception_failure(KeyError("k")) == ("evaluate_exception", "'k'")
    assert genetic._evaluation_exception_failure(NotReady("warming up")) == (
        "sdk_runtime_not_ready", "The runtime was not ready. Cause: NotReady: warming up"
    )


def derive(genetic, record, stats=None, **attributes):
    return genetic._derive_candidate_failure(
        types.SimpleNamespace(**attributes), record, stats
    )


def test_a_recorded_reason_wins(genetic):
    tracking = {"failure_reason": "other", "failure_detail": "why"}
    record = {"rejection_reason": "turnover_max", "tracking_metric_kwargs": tracking}
    reason, detail, copied = derive(genetic, record)
    assert (reason, detail) == ("turnover_max", "why")
    assert copied == tracking and copied is not tracking
    reason, detail, made = derive(genetic, {"rejection_reason": "evaluate_exception"})
    assert (reason, detail, made) == (
        "evaluate_exception", None, {"failure_reason": "evaluate_exception"}
    )


def test_the_tracking_values_are_asked_next(genetic):
    record = {"rejection_reason": "", "tracking_metric_kwargs": {"failure_reason": 7}}
    assert derive(genetic, record) == ("7", None, {"failure_reason": 7})


def test_nothing_is_derived_for_a_pass_or_without_statistics(genetic):
    called = []
    operation = {"_derive_rejection_reason_detail": lambda *a, **k: called.append(a) or ("r", "d")}
    assert derive(genetic, {"passed": True}, Statistics(), **operation) == (None, None, {})
    assert derive(genetic, {}, None, **operation) == (None, None, {})
    assert called == []


def test_the_host_derives_a_reason_from_statistics(genetic):
    stats, calls = Statistics(), []

    def operation(given, **keywords):
        calls.append((given, keywords))
        return ("sharpe_min", "low")

    record = {"rejection_reason": "evaluate_exception", "passed": 0}
    assert derive(genetic, record, stats, _derive_rejection_reason_detail=operation) == (
        "sharpe_min", "low", {"failure_reason": "sharpe_min", "failure_detail": "low"}
    )
    assert calls == [(stats, {"include_correlation": False})]
    assert calls[0][0] is stats


def test_a_host_that_does_not_know_the_keyword_is_asked_again(genetic):
    calls = []

    def narrow(given):
        calls.append(given)
        return ["r", None]

    stats = Statistics()
    answer = derive(genetic, {}, stats, _derive_rejection_reason_detail=narrow)
    assert answer == ("r", None, {"failure_reason": "r"})
    assert calls == [stats]


@pytest.mark.parametrize(
    "answers, count",
    [
        ([TypeError("x"), TypeError("x")], 2), ([5, 5], 2), ([TypeError("x"), ("a",)], 2),
        ([ValueError("x")], 1), ([("a",)], 1), ([("a", "b", "c")], 1), ([RuntimeError("x")], 1),
        ([(None, "d")], 1), (["abc"], 1),
    ],
    ids=repr,
)
def test_what_the_host_cannot_derive_falls_back(genetic, answers, count):
    calls = []

    def operation(*args, **keywords):
        calls.append(keywords)
        answer = answers[len(calls) - 1]
        if isinstance(answer, Exception):
            raise answer
        return answer

    record = {"rejection_reason": "evaluate_exception"}
    answer = derive(genetic, record, Statistics(), _derive_rejection_reason_detail=operation)
    assert answer == (
        "evaluate_exception", None, {"failure_reason": "evaluate_exception"}
    )
    assert calls == [{"include_correlation": False}, {}][:count]
    assert derive(genetic, {}, Statistics(), _derive_rejection_reason_detail=5) == (None, None, {})


EXCEPTION_KEYS = [
    "graph", "stats", "passes", "failures", "eval_id", "submission_payload", "attempt_evidence",
    "per_column_stats", "tracking_metric_kwargs", "sharpe", "quality_score", "correlation",
]


def test_the_record_of_an_exception(genetic, make_context):
    graph, evidence, columns = {"node": "x"}, object(), object()
    stats = Statistics(sharpe="1.5", correlation=0.25)
    record = {"stats": stats, "per_column_stats": columns, "passed": False}
    context = make_context(
        _last_evaluation_record=record, _current_attempt_evidence=lambda: evidence
    )
    result = genetic._candidate_exception_result(context, graph, ValueError("bad"))
    assert list(result) == EXCEPTION_KEYS
    assert result["graph"] == graph and result["graph"] is not graph
    assert result["stats"] is stats and result["attempt_evidence"] is evidence
    assert result["per_column_stats"] is columns
    assert result["passes"] is False
    assert result["failures"] == {
        "evaluate_exception": {"reason": "evaluate_exception", "detail": "bad"}
    }
    verdict = {"status": "not_evaluated"}
    assert result["tracking_metric_kwargs"] == {
        "failure_reason": "evaluate_exception", "failure_detail": "bad",
        "stats_verdict": verdict, "correlation_verdict": verdict, "mi_verdict": verdict,
    }
    assert (result["sharpe"], result["quality_score"], result["correlation"]) == (1.5, 1.5, 0.25)
    assert result["eval_id"] is None and result["submission_payload"] is None


def test_a_failure_is_recorded_when_there_is_no_record(genetic, make_context):
    calls = []
    context = make_context(
        _safe_record=lambda *args, **keywords: calls.append((args, keywords)),
        _current_attempt_evidence=lambda: None,
    )
    graph = {}
    genetic._candidate_exception_result(context, graph, ValueError("bad"))
    ((args, keywords),) = calls
    assert args[0] is graph and args[1] is False
    assert list(keywords) == ["rejection_reason", "tracking_metric_kwargs"]
    assert keywords["rejection_reason"] == "evaluate_exception"


def test_a_correlation_that_is_not_finite_passes_to_the_caller(genetic, make_context):
    context = make_context(
        _last_evaluation_record={"stats": Statistics(correlation=math.nan)},
        _current_attempt_evidence=lambda: None,
    )
    with pytest.raises(ValueError, match="candidate correlation must be a finite number or None"):
        genetic._candidate_exception_result(context, {}, ValueError())


def test_the_conversions_error_is_not_shown_beside_the_correlations(genetic):
    class Odd:
        def __float__(self):
            raise failure

    def error_of(value):
        try:
            raise outer
        except LookupError:
            with pytest.raises(ValueError) as caught:
                genetic._optional_correlation(value)
        assert caught.value.args == ("candidate correlation must be a finite number or None",)
        assert caught.value.__cause__ is None
        return caught.value

    failure, outer = TypeError("no number"), LookupError("outer")
    # As `raise ... from None`, but only where there was an error to leave out.
    error = error_of(Odd())
    assert error.__suppress_context__ is True and error.__context__ is failure
    error = error_of("abc")
    assert error.__suppress_context__ is True
    assert repr(error.__context__) == """ValueError("could not convert string to float: 'abc'")"""
    error = error_of(math.inf)
    assert error.__suppress_context__ is False and error.__context__ is outer


def test_the_verdict_is_imported_at_each_call(genetic, monkeypatch):
    from varnholt.simulation import evaluation_verdicts

    monkeypatch.setattr(evaluation_verdicts, "not_evaluated_verdict", lambda: "replaced")
    assert genetic._not_evaluated_verdict() == "replaced"
    result = genetic._candidate_process_evaluation_error_result({}, ValueError("x"))
    assert result["tracking_metric_kwargs"]["mi_verdict"] == "replaced"
    monkeypatch.setitem(sys.modules, "varnholt.simulation.evaluation_verdicts", None)
    with pytest.raises(ImportError):
        genetic._not_evaluated_verdict()


def test_a_missing_verdict_is_the_import_error_of_the_statement(genetic, monkeypatch):
    from varnholt.simulation import evaluation_verdicts

    monkeypatch.delattr(evaluation_verdicts, "not_evaluated_verdict")
    with pytest.raises(ImportError, match="cannot import name 'not_evaluated_verdict'") as expected:
        exec("from varnholt.simulation.evaluation_verdicts import not_evaluated_verdict")
    with pytest.raises(ImportError) as caught:
        genetic._not_evaluated_verdict()
    assert caught.value.args == expected.value.args
    assert (caught.value.name, caught.value.path) == (expected.value.name, expected.value.path)


def process_error(genetic, text="", **attributes):
    return genetic._process_evaluation.ProcessEvaluationError(text, **attributes)


def test_the_record_of_a_lost_process(genetic):
    graph = {"node": "x"}
    error = process_error(genetic, "gone", terminal_reason="worker_timeout", detail=ValueError("d"))
    result = genetic._candidate_process_evaluation_error_result(graph, error)
    assert list(result) == [key for key in EXCEPTION_KEYS if key != "attempt_evidence"]
    assert result["failures"] == {"worker_timeout": {"reason": "worker_timeout", "detail": "d"}}
    assert (result["sharpe"], result["quality_score"], result["correlation"]) == (0.0, 0.0, None)
    assert list(result["tracking_metric_kwargs"]) == [
        "failure_reason", "failure_detail", "stats_verdict", "correlation_verdict", "mi_verdict"
    ]
    verdicts = result["tracking_metric_kwargs"]
    assert verdicts["stats_verdict"] is not verdicts["mi_verdict"]


def test_a_process_error_without_attributes(genetic):
    result = genetic._candidate_process_evaluation_error_result(None, ValueError("own text"))
    assert result["failures"] == {
        "worker_failed": {"reason": "worker_failed", "detail": "own text"}
    }
    error = process_error(genetic, "text", terminal_reason="", detail="")
    result = genetic._candidate_process_evaluation_error_result(None, error)
    assert result["failures"] == {"worker_failed": {"reason": "worker_failed", "detail": "text"}}


def test_one_record_for_each_graph(genetic):
    error = process_error(genetic, "x")
    assert genetic._process_evaluation_error_results([], error) == []
    results = genetic._process_evaluation_error_results(({"n": n} for n in range(3)), error)
    assert type(results) is list
    assert [result["graph"] for result in results] == [{"n": 0}, {"n": 1}, {"n": 2}]


def test_which_process_errors_are_fatal(genetic):
    fatal = genetic._process_evaluation_error_is_search_fatal
    assert fatal(process_error(genetic)) is True
    assert fatal(process_error(genetic, candidate_index=None)) is True
    assert fatal(process_error(genetic, candidate_index=0)) is False
    for reason in ("process_priority_failed", "memory_budget_exceeded"):
        assert fatal(process_error(genetic, candidate_index=0, terminal_reason=reason)) is True


def test_a_fatal_reason_is_one_that_is_equal_and_not_one_that_is_the_same(genetic, monkeypatch):
    class Unequal:
        def __eq__(self, other):
            return False

    fatal = genetic._process_evaluation_error_is_search_fatal
    for reason in (math.nan, Unequal()):
        for name in ("TERMINAL_PROCESS_PRIORITY_FAILED", "TERMINAL_MEMORY_BUDGET_EXCEEDED"):
            monkeypatch.setattr(genetic._process_evaluation, name, reason)
        assert fatal(process_error(genetic, candidate_index=0, terminal_reason=reason)) is False


def test_lineage_is_written_by_position(genetic):
    source = {"candidate_index": 7, "graph": {"source": 1}}
    improvement = {"source_result": source, "reaction_plan": "plan", "improvement_depth": 2}
    results = [{"passes": True}, {"passes": True}, {}]
    back = genetic._annotate_candidate_results(
        results, start_index="3", improvement_depth=1.9, improvements=(improvement,)
    )
    assert back is results
    assert results == [
        {
            "passes": True, "candidate_index": 3, "improvement_depth": 2, "reaction_plan": "plan",
            "source_candidate_index": 7, "source_graph": {"source": 1}, "rescued": True,
        },
        {"passes": True, "candidate_index": 4, "improvement_depth": 1},
        {"candidate_index": 5, "improvement_depth": 1},
    ]
    failing = [{"passes": 0}]
    genetic._annotate_candidate_results(
        failing, start_index=0, improvement_depth=0, improvements=[improvement]
    )
    assert "rescued" not in failing[0]
    with pytest.raises(ValueError):
        genetic._annotate_candidate_results([{}], start_index="x", improvement_depth=0)


def test_elapsed_seconds(genetic):
    assert genetic._elapsed_candidate_seconds([]) == 0
    results = [{"elapsed_simulation_seconds": value} for value in (0.5, "1.5", None, "x", True)]
    assert genetic._elapsed_candidate_seconds(results + [{}]) == 3.0
