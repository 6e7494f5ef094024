"""The ledger and the children that wait at their backtest, on Python objects.

Goal: a row is there, and marked, before its child is let in; each signal that has an address is
answered once, also when the tracker fails; evidence and signals agree. Method: queues without
processes, whose every message is seen, and real queues with forked children.
"""

import copy
import multiprocessing
import os
import pickle
from collections import OrderedDict

import pytest
from attempt_host import (  # noqa: F401
    CROSSED, EMPTY, STARTING, HostError, World, answers, dispatch, error_of, happened, ledger,
    signal, started, world,
)

# The boundary.


def test_a_signal_makes_the_row_and_is_answered(ledger, world):
    ledger.pre_dispatch(dispatch(1))
    signal(ledger, 1, 0)
    world.log.clear()
    assert ledger.poll_backtest_boundaries() is None
    assert world.called == STARTING
    assert world.rows == {100: ["created", "dispatched", "started"]}
    assert answers(ledger, 1) == [(1, 0, True, None, 100)] and answers(ledger, 0) == []
    assert ledger._states[(1, 0)] == {
        **EMPTY, "attempt_id": 100, "dispatched": True, "backtest_started": True,
    }
    # The answer is put when the row tells that the backtest runs, and nothing comes after it.
    calls = [line[0] for line in world.log if line[0] != "read"]
    assert calls == ["poll", "get", *STARTING, "put", "poll"]


def test_a_second_signal_gets_the_same_identity(ledger, world):
    started(ledger)
    signal(ledger, 0, 0)
    signal(ledger, 0, 0)
    ledger.poll_backtest_boundaries()
    assert answers(ledger) == [(0, 0, True, None, 100)] * 3
    assert list(world.rows) == [100]


def test_an_answer_names_what_was_signalled(ledger):
    ledger.pre_dispatch(dispatch())
    ledger._backtest_acknowledgement_queues["x"] = None
    signal(ledger, "0", 0.25)
    ledger.poll_backtest_boundaries()
    assert answers(ledger) == [("0", 0.25, True, None, 100)]


def test_signals_are_answered_in_their_order(ledger, world):
    ledger.pre_dispatch(dispatch(0))
    ledger.pre_dispatch(dispatch(1))
    signal(ledger, 1, 0)
    signal(ledger, 0, 0)
    ledger.poll_backtest_boundaries()
    assert [answers(ledger, index)[0][4] for index in (0, 1)] == [101, 100]


def test_a_finalized_attempt_is_refused(ledger, world):
    ledger.pre_dispatch(dispatch())
    ledger.finalize_all_open("over")
    signal(ledger, 0, 0)
    error = error_of(ledger.source_attempt_id, 0)
    assert type(error) is RuntimeError and error.args == (CROSSED,)
    assert answers(ledger) == [(0, 0, False, f"RuntimeError: {CROSSED}", None)]
    assert world.rows == {} and world.called == []


def test_a_started_attempt_that_was_finalized_is_let_in(ledger, world):
    started(ledger)
    ledger.finalize_all_open("over")
    signal(ledger, 0, 0)
    ledger.poll_backtest_boundaries()
    assert answers(ledger)[-1] == (0, 0, True, None, 100)


def test_an_unknown_attempt_is_refused(ledger):
    signal(ledger, 0, 3)
    error = error_of(ledger.poll_backtest_boundaries)
    assert type(error) is KeyError and error.args == ((0, 3),)
    assert answers(ledger) == [(0, 3, False, "KeyError: (0, 3)", None)]


@pytest.mark.parametrize(
    "message, kind",
    [((7, 0), KeyError), ((0,), ValueError), ((0, 0, 0), ValueError), (5, TypeError),
     (("x", 0), ValueError), ((None, 0), TypeError)],
    ids=str,
)
def test_a_signal_without_an_address_has_no_answer(ledger, message, kind):
    ledger.pre_dispatch(dispatch())
    ledger._backtest_boundary_queue.messages.append(message)
    assert type(error_of(ledger.poll_backtest_boundaries)) is kind
    assert answers(ledger, 0) == [] and answers(ledger, 1) == []


@pytest.mark.parametrize("call", range(4), ids=STARTING)
@pytest.mark.parametrize("effect", [False, True])
def test_a_failing_start_releases_the_child_first(genetic, monkeypatch, call, effect):
    # Calls before: the context and three queues, then poll and get of the drain.
    error = HostError("disk")
    world = World(failures={7 + call: (error, effect)})
    world.bind(genetic, monkeypatch)
    ledger = genetic._ProcessAttemptLedger(world.context, [(0, "a"), (1, "b")])
    ledger.prepare_for_processes()
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    assert error_of(ledger.poll_backtest_boundaries) is error
    assert answers(ledger) == [(0, 0, False, "HostError: disk", None)]
    state = ledger._states[(0, 0)]
    assert state["backtest_started"] is False
    assert state["attempt_id"] == (100 if call >= 2 else None)
    ledger.finalize_all_open("over")
    ends = [line for line in world.log if line[0] == "finalize_simulation_attempt"]
    if call >= 2:
        assert [line[1] for line in ends] == [(100,)]
        assert ends[0][2]["terminal_disposition"] == "resource_blocked"
    else:
        assert ends == [] and state["finalized"] is True


def test_a_second_signal_after_a_failed_mark_makes_a_second_row(genetic, monkeypatch):
    world = World(failures={10: (HostError("disk"), False)})
    world.bind(genetic, monkeypatch)
    ledger = genetic._ProcessAttemptLedger(world.context, [(0, "a"), (1, "b")])
    ledger.prepare_for_processes()
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    signal(ledger, 0, 0)
    error_of(ledger.poll_backtest_boundaries)
    ledger.poll_backtest_boundaries()
    assert [answer[2] for answer in answers(ledger)] == [False, True]
    ledger.finalize_all_open("over")
    # The first row stays as it is: its identity is forgotten, on purpose.
    assert world.rows == {
        100: ["created", "dispatched"],
        101: ["created", "dispatched", "started", "backtest_failed"],
    }


@pytest.mark.parametrize("error", [KeyboardInterrupt(), SystemExit(1), GeneratorExit()])
def test_an_interrupt_leaves_the_child_without_an_answer(genetic, monkeypatch, error):
    world = World(failures={8: (error, False)})
    world.bind(genetic, monkeypatch)
    ledger = genetic._ProcessAttemptLedger(world.context, [(0, "a"), (1, "b")])
    ledger.prepare_for_processes()
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    with pytest.raises(type(error)) as caught:
        ledger.poll_backtest_boundaries()
    assert caught.value is error and answers(ledger) == []


def test_an_answer_that_cannot_be_given(ledger, world):
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    error = OSError("closed pipe")

    def put(message):
        raise error

    ledger._backtest_acknowledgement_queues[0].put = put
    assert error_of(ledger.poll_backtest_boundaries) is error
    # The state is updated before the answer.
    assert ledger._states[(0, 0)]["backtest_started"] is True
    ledger._states[(0, 0)].update(backtest_started=False, finalized=True)
    signal(ledger, 0, 0)
    caught = error_of(ledger.poll_backtest_boundaries)
    assert caught is error and str(caught.__context__) == CROSSED


def test_an_error_without_a_text_is_the_one_that_leaves(ledger, world):
    class Mute(Exception):
        def __str__(self):
            raise HostError("no text")

    first = Mute()

    def create(**keywords):
        raise first

    world.tracker._held["create_simulation_attempt"] = create
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    caught = error_of(ledger.poll_backtest_boundaries)
    assert type(caught) is HostError and caught.__context__ is first and answers(ledger) == []


def test_queues_that_are_not_read(genetic, ledger, world):
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    queue = ledger._backtest_boundary_queue
    world.log.clear()
    reader, queue._reader = queue._reader, None
    ledger.poll_backtest_boundaries()
    del queue._reader
    ledger.poll_backtest_boundaries()
    ledger._backtest_boundary_queue = None
    ledger.poll_backtest_boundaries()
    assert world.log == []
    queue._reader = reader
    ledger._backtest_boundary_queue = queue
    ledger.poll_backtest_boundaries()
    assert len(answers(ledger)) == 1


def test_a_boundary_queue_without_queues_back(ledger):
    signal(ledger, 0, 0)
    ledger._backtest_acknowledgement_queues = None
    error = error_of(ledger.poll_backtest_boundaries)
    assert type(error) is TypeError
    assert error.args == ("'NoneType' object is not subscriptable",)


DRAINING = {
    "pre_dispatch": lambda ledger: ledger.pre_dispatch(None),
    "lifecycle": lambda ledger: ledger.lifecycle({"event": "ok"}),
    "progress": lambda ledger: ledger.progress({"event": "unknown"}),
    "poll_backtest_boundaries": lambda ledger: ledger.poll_backtest_boundaries(),
    "apply_child_evidence": lambda ledger: ledger.apply_child_evidence("x", None),
    "source_attempt_id": lambda ledger: ledger.source_attempt_id(5),
    "failure_evidence": lambda ledger: ledger.failure_evidence(5, "r"),
    "finalize_all_open": lambda ledger: ledger.finalize_all_open("r"),
}
NOT_DRAINING = {
    "prepare_for_processes": lambda ledger: ledger.prepare_for_processes(),
    "mark_parent_finalized": lambda ledger: ledger.mark_parent_finalized(0),
    "acknowledge_parent_persistence_failure": (
        lambda ledger: ledger.acknowledge_parent_persistence_failure(0)
    ),
    "_state_for_event": lambda ledger: ledger._state_for_event(happened("ok")),
    "_new_state": lambda ledger: ledger._new_state(),
}


@pytest.mark.parametrize("name", sorted(DRAINING))
def test_what_answers_the_children_first(ledger, name):
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    try:
        DRAINING[name](ledger)
    except (TypeError, RuntimeError):
        pass  # Bad arguments are looked at later.
    assert answers(ledger) == [(0, 0, True, None, 100)]


@pytest.mark.parametrize("name", sorted(DRAINING))
def test_a_failing_answer_ends_the_operation(ledger, name):
    ledger.pre_dispatch(dispatch())
    state = ledger._states[(0, 0)]
    state["finalized"] = True
    before = copy.deepcopy(ledger._states)
    signal(ledger, 0, 0)
    assert error_of(DRAINING[name], ledger).args == (CROSSED,)
    assert ledger._states == before


@pytest.mark.parametrize("name", sorted(NOT_DRAINING))
def test_what_leaves_the_children_waiting(ledger, name):
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    NOT_DRAINING[name](ledger)
    assert answers(ledger) == []


# Evidence.


def test_evidence_of_a_start_makes_the_row(ledger, world):
    ledger.pre_dispatch(dispatch())
    assert ledger.apply_child_evidence("0", {"backtest_started": 1}) is None
    assert world.rows == {100: ["created", "dispatched", "started"]}
    ledger.apply_child_evidence(0, OrderedDict(backtest_started=True, backtest_completed=True))
    assert list(world.rows) == [100] and answers(ledger) == []


def test_a_signal_before_the_evidence_is_taken_first(ledger, world):
    ledger.pre_dispatch(dispatch())
    signal(ledger, 0, 0)
    ledger.apply_child_evidence(0, {"backtest_started": True})
    assert list(world.rows) == [100] and answers(ledger) == [(0, 0, True, None, 100)]


@pytest.mark.parametrize("evidence", [None, [], "evidence", 5, object()], ids=repr)
def test_a_result_needs_evidence(ledger, evidence):
    error = error_of(ledger.apply_child_evidence, "no index", evidence)
    assert type(error) is RuntimeError
    assert error.args == ("process result is missing attempt evidence",)


def test_a_completed_backtest_must_have_started(ledger):
    for evidence in (
        {"backtest_completed": True}, {"backtest_completed": 1, "backtest_started": 0},
        {"backtest_completed": "x", "backtest_started": None},
    ):
        assert error_of(ledger.apply_child_evidence, "no index", evidence).args == (
            "completed child backtest is missing backtest-start evidence",
        )


def test_evidence_may_not_lose_a_start(ledger):
    started(ledger)
    for evidence in ({}, {"backtest_started": False}, {"backtest_started": ""}):
        assert error_of(ledger.apply_child_evidence, 0, evidence).args == (
            "child result lost backtest-start evidence after crossing the boundary",
        )


def test_evidence_of_no_start_needs_an_attempt(ledger):
    ledger.pre_dispatch(dispatch())
    assert ledger.apply_child_evidence(0, {}) is None
    assert error_of(ledger.apply_child_evidence, 1, {}).args == (1,)
    del ledger._states[(0, 0)]
    assert error_of(ledger.apply_child_evidence, 0, {}).args == ((0, 0),)


def test_evidence_for_a_finalized_attempt(ledger, world):
    ledger.pre_dispatch(dispatch())
    ledger.mark_parent_finalized(0)
    assert error_of(ledger.apply_child_evidence, 0, {"backtest_started": True}).args == (CROSSED,)
    assert ledger.apply_child_evidence(0, {}) is None and world.rows == {}


def test_the_identity_is_the_trackers_own_object(ledger, world):
    identity = ("id", object())
    world._identities = iter([identity])
    assert ledger.source_attempt_id(0) is None
    ledger.pre_dispatch(dispatch())
    assert ledger.source_attempt_id(0) is None, "an attempt before its backtest has none"
    signal(ledger, 0, 0)
    assert ledger.source_attempt_id("0") is identity
    assert ledger._states[(0, 0)]["attempt_id"] is identity
    assert ledger._start_backtest_attempt(0, 0) is identity


def test_the_evidence_of_a_failed_attempt(genetic, ledger, world):
    ledger.pre_dispatch(dispatch(0))
    started(ledger, 1)
    world.log.clear()
    evidence = ledger.failure_evidence("0", "r", ValueError("d"))
    assert evidence == genetic._process_attempt_evidence(
        world.context, "r", "d", True, False, False
    )
    assert [line[2] if line[0] == "read" else line[0] for line in world.log[:4]] == [
        "poll", "_submission_cancelled", "_submission_cancelled", "_attempt_expected_columns",
    ]
    assert ledger.failure_evidence(1, "r")["backtest_started"] is True
    world.cancelled = ["yes"]
    assert ledger.failure_evidence(1, "r")["terminal_disposition_override"] == "cancelled"


def test_the_evidence_of_a_candidate_that_was_never_dispatched(ledger):
    evidence = ledger.failure_evidence(5, reason="r", detail=None)
    assert evidence["stats_construction_blocker"] == {
        "type": "process_dispatch_failed", "reason": "r",
    }
    assert evidence["threshold_verdict_override"] == "skipped" and ledger._states == {}


# Real queues and processes.


@pytest.fixture
def forked(genetic, world):
    """A ledger on the queues of the fork context."""
    context = multiprocessing.get_context("fork")
    world.process_evaluation._held["_fork_context"] = lambda: context
    ledger = genetic._ProcessAttemptLedger(world.context, [(0, {"node": "a"}), (1, {"node": "b"})])
    ledger.prepare_for_processes()
    yield ledger
    for queue in (
        ledger._backtest_boundary_queue, *ledger._backtest_acknowledgement_queues.values()
    ):
        queue.close()


def child_that_signals(ledger, index, attempt):
    """Fork a child that signals and tells by its exit status how it was answered."""
    child = os.fork()
    if child == 0:
        status = 9
        try:
            ledger._backtest_boundary_queue.put((index, attempt))
            answer = ledger._backtest_acknowledgement_queues[index].get()
            status = 0 if answer[2] is True and answer[4] is not None else 1
        finally:
            os._exit(status)
    return child


def wait_for_signal(ledger):
    assert ledger._backtest_boundary_queue._reader.poll(30), "no child has signalled"


def test_real_children_wait_for_their_rows(forked, world):
    for index in (0, 1):
        forked.pre_dispatch(dispatch(index))
    children = [child_that_signals(forked, index, 0) for index in (0, 1)]
    while len(world.rows) < 2:
        wait_for_signal(forked)
        forked.poll_backtest_boundaries()
    for child in children:
        assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    assert sorted(forked.source_attempt_id(index) for index in (0, 1)) == [100, 101]
    forked.poll_backtest_boundaries()
    assert list(world.rows.values()) == [["created", "dispatched", "started"]] * 2


def test_a_real_child_is_refused_and_released(forked, world):
    forked.pre_dispatch(dispatch(0))
    forked.mark_parent_finalized(0)
    child = child_that_signals(forked, 0, 0)
    wait_for_signal(forked)
    assert error_of(forked.poll_backtest_boundaries).args == (CROSSED,)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 1
    assert world.rows == {}


def test_an_identity_must_survive_the_queue(forked, world):
    world._identities = iter([lambda: "cannot be pickled"])
    forked.pre_dispatch(dispatch(0))
    child = child_that_signals(forked, 0, 0)
    wait_for_signal(forked)
    error = error_of(forked.poll_backtest_boundaries)
    assert isinstance(error, (AttributeError, pickle.PicklingError))
    assert forked._states[(0, 0)]["backtest_started"] is True
    forked._backtest_acknowledgement_queues[0].put((0, 0, False, "over", None))
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 1
