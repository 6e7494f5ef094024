"""Recording and enqueueing, on Python objects.

Goal: persistence comes strictly first and once, the host is given the very objects, and the marks
on a record decide what a second call does. Method: contexts and engines that note their calls, and
random candidates taken through the whole way twice.
"""

import copy
import random
import types
from collections import OrderedDict

import pytest

MISSING = "genetic candidate is missing serialized backtest timing"
NOT_RECORDED = "genetic candidate cannot enqueue before parent evaluation persistence"
NO_QUEUE = "genetic search requires canonical submission enqueue"
NOT_PERSISTED = "genetic candidate parent evaluation persistence failed"


class Recorder:
    """A context that notes what is recorded, activated and enqueued, in one row."""

    def __init__(self, eval_id="id", taken=None, **attributes):
        self.notes = []
        self._answer = eval_id
        self._taken = taken
        self.__dict__.update(attributes)

    def _safe_record(self, graph, passed, **keywords):
        self.notes.append(("record", graph, passed, keywords))
        return self._answer

    def _activate_existing_attempt(self, source_attempt_id, evidence):
        self.notes.append(("activate", source_attempt_id, evidence))

    def _enqueue_deferred_submission_payload(self, payload):
        self.notes.append(("enqueue", payload))
        return self._taken


@pytest.fixture
def timing():
    return {"seconds": 1}


@pytest.fixture
def passing(timing):
    return {
        "passes": True, "graph": {"node": "g"}, "candidate_index": 3, "backtest_timing": timing,
        "quality_score": 1.0,
    }


# Recording.


def test_a_failing_candidate_without_a_backtest(genetic, make_timings):
    make_timings()
    stats, columns, tracking, graph = object(), object(), {"t": 1}, {"node": "g"}
    context = Recorder()
    candidate = {
        "graph": graph, "stats": stats, "per_column_stats": columns, "failures": {"b": 1, "a": 2},
        "tracking_metric_kwargs": tracking, "elapsed_simulation_seconds": 0.5,
    }
    assert genetic._record_candidate_result_in_parent(context, candidate) is True
    ((_, given, passed, keywords),) = context.notes
    assert given is graph and passed is False
    assert list(keywords.items()) == [
        ("rejection_reason", "b"), ("stats", stats), ("per_column_stats", columns),
        ("expression_elapsed_seconds", 0.5), ("backtest_timing", None),
        ("tracking_metric_kwargs", tracking),
    ]
    assert keywords["tracking_metric_kwargs"] is tracking
    assert candidate["_parent_recorded"] is True and candidate["eval_id"] == "id"
    assert "backtest_timing" not in candidate
    # A second time nothing is asked.
    assert genetic._record_candidate_result_in_parent(object(), candidate) is True
    candidate["_parent_recorded"] = "yes"
    assert genetic._record_candidate_result_in_parent(object(), candidate) is True


def test_a_passing_candidate_is_measured_before_it_is_recorded(genetic, make_engine, passing):
    context = Recorder(eval_id=0)
    notes = []
    make_engine(
        _annotate_submission_client_manifest=lambda payload, sync: notes.append(len(context.notes))
    )
    passing["failures"] = {"stale": 1}
    assert genetic._record_candidate_result_in_parent(context, passing) is True
    ((_, graph, passed, keywords),) = context.notes
    assert graph is passing["graph"] and passed is True and notes == [0]
    assert keywords["rejection_reason"] is None
    assert keywords["tracking_metric_kwargs"] is passing["tracking_metric_kwargs"]
    assert keywords["tracking_metric_kwargs"]["pool_metrics_pending"] is True
    assert passing["eval_id"] == 0 == passing["submission_payload"]["eval_id"]


def test_a_candidate_blocked_by_its_pool_metrics(genetic, monkeypatch, passing):
    monkeypatch.setattr(
        genetic._engine, "_submission_pnl_mi_from_backtest_or_compute", lambda *args: (0.0, False)
    )
    context = Recorder(_backtester=object(), era_config={}, _signal_pool_name="p")
    assert genetic._record_candidate_result_in_parent(context, passing) is True
    ((_, _, passed, keywords),) = context.notes
    assert passed is False and keywords["rejection_reason"] == "pnl_mi_below_threshold"
    assert keywords["backtest_timing"] == {"seconds": 1}
    assert passing["submission_payload"]["eval_id"] == "id"
    genetic._submit_candidate(context, passing)
    assert [note[0] for note in context.notes] == ["record"] and passing["passes"] is False


@pytest.mark.parametrize(
    "last, succeeded",
    [({"recording_succeeded": 1}, True), (OrderedDict(recording_succeeded=[0]), True),
     ({"recording_succeeded": 0}, False), ({}, False), (None, False), ("text", False),
     (types.SimpleNamespace(recording_succeeded=True), False)],
    ids=repr,
)
def test_a_record_without_an_id(genetic, last, succeeded):
    payload = {"eval_id": "own"}
    candidate = {"submission_payload": payload, "eval_id": "made up"}
    context = Recorder(eval_id=None, _last_evaluation_record=last)
    before = copy.deepcopy(candidate)
    assert genetic._record_candidate_result_in_parent(context, candidate) is succeeded
    assert candidate == ({**before, "_parent_recorded": True} if succeeded else before)


def test_a_false_id_is_an_id(genetic):
    candidate = {}
    context = Recorder(eval_id=False, _last_evaluation_record={"recording_succeeded": False})
    assert genetic._record_candidate_result_in_parent(context, candidate) is True
    assert candidate["eval_id"] is False


@pytest.mark.parametrize(
    "record, activated",
    [
        ({"process_attempt": None, "source_attempt_id": 0, "attempt_evidence": "e"}, True),
        ({"process_attempt": 1, "source_attempt_id": None}, False), ({"process_attempt": 1}, False),
        ({"source_attempt_id": "s"}, False),
    ],
    ids=repr,
)
def test_a_childs_attempt_is_made_the_current_one_first(genetic, record, activated):
    context = Recorder()
    genetic._record_candidate_result_in_parent(context, record)
    notes = [note[0] for note in context.notes]
    assert notes == (["activate", "record"] if activated else ["record"])
    if activated:
        assert context.notes[0][1:] == (0, "e")


def test_a_recorder_that_is_missing_or_cannot_be_called(genetic):
    notes = []
    context = types.SimpleNamespace(
        _activate_existing_attempt=lambda *args: notes.append(args)
    )
    candidate = {"process_attempt": 1, "source_attempt_id": 2}
    with pytest.raises(AttributeError, match="_safe_record"):
        genetic._record_candidate_result_in_parent(context, candidate)
    assert notes == [(2, None)] and "_parent_recorded" not in candidate
    context._safe_record = None
    with pytest.raises(TypeError, match="'NoneType' object is not callable"):
        genetic._record_candidate_result_in_parent(context, candidate)
    del context._activate_existing_attempt
    with pytest.raises(AttributeError, match="_activate_existing_attempt"):
        genetic._record_candidate_result_in_parent(context, candidate)


def test_a_failing_recorder_leaves_no_mark(genetic):
    error = OSError("disk")

    def fail(*args, **keywords):
        raise error

    candidate = {}
    with pytest.raises(OSError) as caught:
        genetic._record_candidate_result_in_parent(
            types.SimpleNamespace(_safe_record=fail), candidate
        )
    assert caught.value is error and candidate == {}


def test_which_timing_is_recorded(genetic, make_timings, timing):
    def record(timings, **candidate):
        make_timings(**timings)
        context = Recorder()
        genetic._record_candidate_result_in_parent(context, candidate)
        return context.notes[-1][3]["backtest_timing"], candidate

    consumed = {"consume_recorded_backtest_timing_payload": {"consumed": 1}}
    completed = {"backtest_completed": True}
    found, candidate = record(consumed, attempt_evidence=completed, graph={"node": "g"})
    assert found == {"consumed": 1} and candidate["backtest_timing"] is found
    for empty in ({}, None, 0):
        found, candidate = record(
            {"consume_recorded_backtest_timing_payload": empty}, attempt_evidence=completed
        )
        assert found is None and candidate["backtest_timing"] is None
    serialized = {
        "validate_backtest_timing_payload": lambda timing: timing,
        "validate_graph_backtest_timing_payload": "graph",
        "validate_process_backtest_timing_payload": "process",
    }
    found, _ = record(serialized, attempt_evidence={**completed, "backtest_timing": timing})
    assert found == "graph"
    assert record(
        serialized, attempt_evidence=completed, submission_payload={"backtest_timing": timing}
    )[0] == "graph"
    assert record(
        serialized, attempt_evidence=completed, backtest_timing=timing, worker_pid=None
    )[0] == "process", "the key decides, not its value"
    with pytest.raises(RuntimeError) as caught:
        record(serialized, attempt_evidence=completed, worker_pid=1)
    assert caught.value.args == (MISSING,)


def test_a_passing_candidate_must_have_a_timing(genetic, make_timings):
    timings = make_timings(consume_recorded_backtest_timing_payload={})
    candidate = {"passes": True, "submission_payload": {"backtest_timing": None}, "graph": 1}
    context = Recorder()
    with pytest.raises(RuntimeError) as caught:
        genetic._record_candidate_result_in_parent(context, candidate)
    assert caught.value.args == (MISSING,) and context.notes == []
    assert timings.calls == [
        ("consume_recorded_backtest_timing_payload", (1,), {"include_identity": True})
    ], "an absent value in the payload is no timing here"


def test_results_are_recorded_in_order_until_one_is_not(genetic):
    candidates = [{}, {"graph": "bad"}, {}]

    def safe_record(graph, passed, **keywords):
        return None if graph == "bad" else 1

    context = types.SimpleNamespace(_safe_record=safe_record)
    with pytest.raises(RuntimeError) as caught:
        genetic._record_candidate_results_in_parent(context, candidates)
    assert caught.value.args == (NOT_PERSISTED,)
    assert ["_parent_recorded" in one for one in candidates] == [True, False, False]
    candidates[1]["graph"] = "good"
    assert genetic._record_candidate_results_in_parent(context, iter(candidates)) is None
    assert all("_parent_recorded" in one for one in candidates)


# Enqueueing.


class FalseLike:
    def __bool__(self):
        return False

    def __eq__(self, other):
        return other is False


@pytest.mark.parametrize(
    "result, enqueued",
    [(False, False), (None, True), (True, True), (0, True), ("", True), (0.0, True),
     (FalseLike(), True)],
    ids=repr,
)
def test_only_false_itself_means_not_taken(genetic, passing, result, enqueued):
    passing["_parent_recorded"] = True
    context = Recorder(taken=result)
    assert genetic._submit_candidate(context, passing) is None
    assert ("_submission_enqueued" in passing) is enqueued
    assert context.notes[0][1] is passing["submission_payload"]
    genetic._submit_candidate(context, passing)
    assert len(context.notes) == (1 if enqueued else 2)


def test_the_order_of_what_is_asked_before_enqueueing(genetic, passing):
    submit = genetic._submit_candidate
    for candidate in ({}, {"passes": False}, passing):
        with pytest.raises(RuntimeError) as caught:
            submit(object(), candidate)
        assert caught.value.args == (NOT_RECORDED,)
    submit(object(), {"_submission_enqueued": 1})
    # A failing candidate needs no queue.
    submit(object(), {"_parent_recorded": 1})
    passing["_parent_recorded"] = True
    for context in (object(), types.SimpleNamespace(_enqueue_deferred_submission_payload=5)):
        with pytest.raises(RuntimeError) as caught:
            submit(context, passing)
        assert caught.value.args == (NO_QUEUE,)
    assert "_submission_enqueued" not in passing
    passing["submission_payload"]["backtest_timing"] = {"seconds": 2}
    with pytest.raises(RuntimeError, match="disagrees"):
        submit(Recorder(), passing)


def test_the_queues_own_error_leaves_the_candidate_unmarked(genetic, passing):
    error = ConnectionError("queue")

    def fail(payload):
        raise error

    passing["_parent_recorded"] = True
    with pytest.raises(ConnectionError) as caught:
        genetic._submit_candidate(
            types.SimpleNamespace(_enqueue_deferred_submission_payload=fail), passing
        )
    assert caught.value is error and "_submission_enqueued" not in passing


def test_the_best_is_enqueued_first(genetic, passing):
    candidates = [
        {**passing, "quality_score": quality, "_parent_recorded": True} for quality in (1, 3, 2)
    ]
    candidates.append({"passes": False})
    context = Recorder()
    assert genetic._submit_submittable_candidates(context, candidates) is None
    assert [note[1] for note in context.notes] == [
        candidates[place]["submission_payload"] for place in (1, 2, 0)
    ]
    genetic._submit_submittable_candidates(context, candidates)
    assert len(context.notes) == 3


def test_a_read_only_candidate_fails_where_it_is_written(genetic):
    context = Recorder()
    with pytest.raises(TypeError, match="'mappingproxy' object does not support item assignment"):
        genetic._record_candidate_result_in_parent(context, types.MappingProxyType({"graph": 1}))
    assert len(context.notes) == 1


def test_random_candidates_on_the_whole_way_twice(genetic, monkeypatch):
    for seed in range(200):
        rng = random.Random(seed)
        monkeypatch.setattr(
            genetic._engine, "_submission_pnl_mi_from_backtest_or_compute",
            lambda *args: (0.5, rng.random() < 0.7),
        )
        context = Recorder(_backtester=object(), _era_config={}, _signal_pool_name="p")
        context._taken = False if rng.random() < 0.3 else None
        candidates = []
        for index in range(rng.randrange(1, 6)):
            candidate = {"graph": {"node": index}, "candidate_index": index}
            kind = rng.randrange(3)
            if kind:
                candidate.update(passes=True, backtest_timing={"seconds": 1}, quality_score=kind)
            if kind == 2:
                candidate["submission_payload"] = {"own": index}
            candidates.append(candidate)
        for _ in range(2):
            genetic._record_candidate_results_in_parent(context, candidates)
            genetic._submit_submittable_candidates(context, candidates)
            context._taken = None
        kinds = [note[0] for note in context.notes]
        assert kinds.count("record") == len(candidates), f"seed {seed}"
        assert kinds[: len(candidates)] == ["record"] * len(candidates), f"seed {seed}"
        passing = [one for one in candidates if one.get("passes")]
        payloads = {id(note[1]) for note in context.notes if note[0] == "enqueue"}
        assert payloads == {id(one["submission_payload"]) for one in passing}, f"seed {seed}"
        for one in candidates:
            assert ("_submission_enqueued" in one) is bool(one.get("passes")), f"seed {seed}"
            assert one["_parent_recorded"] is True and one["eval_id"] == "id"
            blocked = one.get("_submission_blocked_reason")
            assert blocked in (None, "pnl_mi_below_threshold")
            assert (blocked is None) or one["passes"] is False
