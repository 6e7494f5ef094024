"""How the ledger ends attempts, on Python objects.

Goal: each attempt with a row ends once, by whoever ends it; an end that failed is asked for again;
subclasses and functions put in the place of a part count. Method: a host that writes everything
down and fails at a call of choice.
"""

import inspect
import pickle

import pytest
from attempt_host import (  # noqa: F401
    EMPTY, ENDING, HostError, dispatch, error_of, happened, ledger, started, world,
)

PERSISTENCE = "genetic candidate parent evaluation persistence failed"

# Ends.


def test_the_recorder_has_ended_the_attempt(ledger, world):
    state = started(ledger)
    world.log.clear()
    assert ledger.mark_parent_finalized("0") is None
    assert state["finalized"] is True and world.log == []
    ledger.finalize_all_open("over")
    assert world.rows == {100: ["created", "dispatched", "started"]}
    assert ledger.mark_parent_finalized(1) is None, "it has no attempt"


def test_a_persistence_failure_has_settled_the_attempt(ledger, world):
    state = started(ledger)
    assert ledger.acknowledge_parent_persistence_failure(0) is None
    assert state["finalized"] is True and "finalize_simulation_attempt" not in world.called


def test_all_open_attempts_end_in_the_order_of_dispatch(ledger, world):
    started(ledger, 1)
    ledger.pre_dispatch(dispatch(0))
    started(ledger, 1, 1)
    world.log.clear()
    detail = OSError("why")
    assert ledger.finalize_all_open("over", detail) is None
    ends = [line for line in world.log if line[0] == "finalize_simulation_attempt"]
    assert [line[1] for line in ends] == [(101,)]
    assert ends[0][2]["failure_detail"] == "why"
    assert all(state["finalized"] for state in ledger._states.values())
    # Asked once for each open attempt with a row, and for no other.
    assert world.called.count("_submission_cancelled") == 1


def test_a_ledger_without_attempts_has_nothing_to_end(ledger, world):
    ledger.finalize_all_open("over")
    assert [line[0] for line in world.log] == ["poll"]


def test_a_cancelled_run_says_so(ledger, world):
    started(ledger)
    world.cancelled = 1
    ledger.finalize_all_open("process_result_missing")
    keywords = world.log[-1][2]
    assert keywords["terminal_disposition"] == "cancelled"
    assert keywords["failure_reason"] == "search_stopped"
    assert keywords["threshold_gate"]["reason"] == "process_result_missing"
    assert keywords["stats_construction_blocker"]["reason"] == "process_result_missing"


@pytest.mark.parametrize("call", range(5), ids=["_submission_cancelled", *ENDING])
def test_an_end_that_failed_is_asked_for_again(ledger, world, call):
    state = started(ledger)
    calls = len([line for line in world.log if line[0] != "read"])
    error = HostError("disk")
    base = next(world._calls) + 1
    assert calls
    # The next call is the drain's poll.
    world._failures = {base + 1 + call: (error, False)}
    assert error_of(ledger.finalize_all_open, "over") is error
    assert state["finalized"] is False and state["attempt_id"] == 100
    ledger.finalize_all_open("again")
    assert state["finalized"] is True
    assert world.log[-1][2]["failure_reason"] == "again"


def test_an_identity_that_is_false_is_an_identity(ledger, world):
    world._identities = iter([0])
    started(ledger)
    ledger.finalize_all_open("over")
    assert world.rows == {0: ["created", "dispatched", "started", "backtest_failed"]}


def test_states_that_change_under_the_walk(ledger, world):
    started(ledger)
    finalize = world.tracker.finalize_simulation_attempt

    def grow(*args, **keywords):
        ledger._states[(9, 9)] = ledger._new_state()
        return finalize(*args, **keywords)

    world.tracker._held["finalize_simulation_attempt"] = grow
    error = error_of(ledger.finalize_all_open, "over")
    assert error.args == ("dictionary changed size during iteration",)


# Recording.


class OtherLedger:
    """Whatever has the two operations is a ledger to the recording."""

    def __init__(self):
        self.calls = []

    def mark_parent_finalized(self, candidate_index):
        self.calls.append(("mark", candidate_index))

    def acknowledge_parent_persistence_failure(self, candidate_index):
        self.calls.append(("acknowledge", candidate_index))


def test_a_recorded_result_ends_its_attempt(genetic, ledger, world):
    state = started(ledger)
    result = {"graph": {}, "process_attempt": 0}
    assert genetic._record_process_candidate_result_in_parent(
        world.context, ledger, 0, result
    ) is None
    assert state["finalized"] is True and result["_parent_recorded"] is True
    other = OtherLedger()
    genetic._record_process_candidate_result_in_parent(world.context, other, "1", {"graph": {}})
    assert other.calls == [("mark", "1")]


def test_a_result_that_is_not_recorded(genetic, ledger, world):
    state = started(ledger)
    world.recorded = False
    error = error_of(
        genetic._record_process_candidate_result_in_parent, world.context, ledger, "0", {"graph": 1}
    )
    assert type(error) is RuntimeError
    assert error.args == (f"{PERSISTENCE}: candidate_index=0",)
    assert state["finalized"] is True
    other = OtherLedger()
    error = error_of(
        genetic._record_process_candidate_result_in_parent, world.context, other, 2.5, {"graph": 1}
    )
    assert error.args == (f"{PERSISTENCE}: candidate_index=2",)
    assert other.calls == [("acknowledge", 2.5)]


def test_a_recorder_that_fails_tells_the_ledger_nothing(genetic, world):
    error = HostError("disk")

    def fail(*args, **keywords):
        raise error

    world.context._held["_safe_record"] = fail
    other = OtherLedger()
    assert error_of(
        genetic._record_process_candidate_result_in_parent, world.context, other, 0, {"graph": 1}
    ) is error
    assert other.calls == []


# What the operations are made of.


def test_a_subclass_sees_every_part(genetic, world):
    class Noting(genetic._ProcessAttemptLedger):
        def __init__(self, *args):
            super().__init__(*args)
            self.notes = []

        def _drain_backtest_boundaries(self):
            self.notes.append("drain")
            super()._drain_backtest_boundaries()

        def _start_backtest_attempt(self, candidate_index, attempt_number):
            self.notes.append(("start", candidate_index, attempt_number))
            return super()._start_backtest_attempt(candidate_index, attempt_number)

        def _finalize_state(self, state, reason, detail=None):
            self.notes.append(("finalize", state, reason, detail))
            super()._finalize_state(state, reason, detail)

        def _clear_marker(self, state):
            self.notes.append(("clear", state))
            super()._clear_marker(state)

        def _state_for_event(self, event):
            self.notes.append(("state", event))
            return super()._state_for_event(event)

        def mark_parent_finalized(self, candidate_index):
            self.notes.append(("mark", candidate_index))
            super().mark_parent_finalized(candidate_index)

    ledger = Noting(world.context, [(0, "a")])
    ledger.prepare_for_processes()
    ledger.pre_dispatch(dispatch())
    state = ledger._states[(0, 0)]
    ledger.apply_child_evidence("0", {"backtest_started": True})
    failed = happened("error", retrying=True, error="e")
    ledger.lifecycle(failed)
    ledger.acknowledge_parent_persistence_failure(0)
    ledger.finalize_all_open("over", "d")
    reason = "process_child_exception"
    assert ledger.notes == [
        "drain", "drain", ("start", "0", 0), "drain", ("state", failed),
        ("finalize", state, reason, "e"), ("clear", state), ("mark", 0), ("clear", state),
        "drain", ("finalize", state, "over", "d"), ("clear", state),
    ]
    assert ledger.notes[5][1] is state and ledger.notes[4][1] is failed


def test_a_part_can_be_replaced_on_the_ledger(ledger, world):
    class State(dict):
        pass

    ledger._new_state = lambda: State(EMPTY, extra=1)
    ledger._drain_backtest_boundaries = lambda: world.log.append(("drained",))
    ledger.pre_dispatch(dispatch())
    assert type(ledger._states[(0, 0)]) is State and ledger._states[(0, 0)]["extra"] == 1
    assert world.log == [("drained",)]
    ledger._start_backtest_attempt = lambda index, attempt: ("start", index, attempt)
    ledger.apply_child_evidence(0, {"backtest_started": True})
    ledger._state_for_event = lambda event: (None, ledger._states[(0, 0)])
    ledger.lifecycle({"event": "started"})
    assert ledger._states[(0, 0)]["worker_started"] is True and world.rows == {}


def test_the_parts_by_themselves(ledger, world):
    ledger.pre_dispatch(dispatch(1))
    state = ledger._states[(1, 0)]
    key, found = ledger._state_for_event({"candidate_index": "1", "attempt": 0.5})
    assert key == (1, 0) and type(key) is tuple and found is state
    assert ledger._start_backtest_attempt("1", "0") == 100
    assert ledger._finalize_state(state, "r") is None
    assert world.log[-1][2]["failure_detail"] is None and state["finalized"] is True
    state["marker_attempt_id"] = "m"
    assert ledger._finalize_state(state, "ignored", detail="ignored") is None
    assert world.markers == {"m": "closed"} and state["marker_attempt_id"] is None
    own = {"marker_attempt_id": 5}
    assert ledger._clear_marker(own) is None and own == {"marker_attempt_id": None}
    assert ledger._clear_marker({}) is None and ledger._drain_backtest_boundaries() is None


@pytest.mark.parametrize(
    "name, signature",
    [
        ("__init__", "(self, ctx, indexed_batch)"),
        ("prepare_for_processes", "(self)"),
        ("pre_dispatch", "(self, event)"),
        ("lifecycle", "(self, event)"),
        ("progress", "(self, event)"),
        ("poll_backtest_boundaries", "(self)"),
        ("apply_child_evidence", "(self, candidate_index, evidence)"),
        ("source_attempt_id", "(self, candidate_index)"),
        ("failure_evidence", "(self, candidate_index, reason, detail=None)"),
        ("mark_parent_finalized", "(self, candidate_index)"),
        ("acknowledge_parent_persistence_failure", "(self, candidate_index)"),
        ("finalize_all_open", "(self, reason, detail=None)"),
        ("_new_state", "()"),
        ("_state_for_event", "(self, event)"),
        ("_start_backtest_attempt", "(self, candidate_index, attempt_number)"),
        ("_drain_backtest_boundaries", "(self)"),
        ("_finalize_state", "(self, state, reason, detail=None)"),
        ("_clear_marker", "(self, state)"),
    ],
)
def test_methods_show_what_they_are(genetic, name, signature):
    method = getattr(genetic._ProcessAttemptLedger, name)
    assert str(inspect.signature(method)) == signature
    assert name == "__init__" or method.__doc__


def test_the_class_and_its_functions_are_the_modules_own(genetic):
    assert genetic._ProcessAttemptLedger.__module__ == genetic.__name__
    assert pickle.loads(pickle.dumps(genetic._ProcessAttemptLedger)) is (
        genetic._ProcessAttemptLedger
    )
    for name, signature in (
        ("_write_parent_process_evaluation_attempt_marker", "(ctx, event)"),
        ("_record_process_candidate_result_in_parent",
         "(ctx, attempt_ledger, candidate_index, candidate_result)"),
    ):
        function = getattr(genetic, name)
        assert str(inspect.signature(function)) == signature and function.__doc__
        assert pickle.loads(pickle.dumps(function)) is function


def test_a_ledger_can_be_pickled_with_what_it_keeps(genetic):
    ledger = genetic._ProcessAttemptLedger(None, [(0, {"node": "g"})])
    ledger._states[(0, 0)] = ledger._new_state()
    again = pickle.loads(pickle.dumps(ledger))
    assert vars(again) == vars(ledger) and type(again) is type(ledger)
