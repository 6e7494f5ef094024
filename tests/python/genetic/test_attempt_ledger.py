"""The ledger of process attempts, on Python objects: what it keeps, and what the pool tells it.

Goal: a pool's events become exactly the changes and the calls of the host that they stand for, and
whatever the ledger keeps can be read and set from Python. Method: a host that writes everything
down, and good, odd and bad events one by one.
"""

import types
from collections import OrderedDict

import pytest
from attempt_host import (  # noqa: F401
    EMPTY, ENDING, HostError, Item, World, dispatch, error_of, happened, ledger, started, world,
)

# What a ledger keeps.


def test_a_new_ledger(genetic):
    context, graph = object(), {"node": "g"}
    ledger = genetic._ProcessAttemptLedger(context, [("1", graph), (0, None)])
    assert list(vars(ledger).items()) == [
        ("_ctx", context), ("_graphs", {1: graph, 0: None}), ("_states", {}),
        ("_current_attempt", {}), ("_backtest_boundary_queue", None),
        ("_backtest_acknowledgement_queues", None),
    ]
    assert ledger._ctx is context and ledger._graphs[1] is graph and list(ledger._graphs) == [1, 0]
    made = genetic._ProcessAttemptLedger(ctx=None, indexed_batch=iter([(0.9, 1), (1, 2), ("0", 3)]))
    assert list(made._graphs.items()) == [(0, 3), (1, 2)], "the later graph, at the first place"


def test_a_fresh_state(genetic, ledger):
    for maker in (genetic._ProcessAttemptLedger, ledger):
        state = maker._new_state()
        assert list(state.items()) == list(EMPTY.items()) and type(state) is dict
        state["attempt_id"] = 1
        assert maker._new_state() == EMPTY
    assert isinstance(vars(genetic._ProcessAttemptLedger)["_new_state"], staticmethod)


def test_queues_are_made_once(genetic, world):
    ledger = genetic._ProcessAttemptLedger(world.context, [(3, "a"), (1, "b")])
    ledger.prepare_for_processes()
    assert world.called == ["_fork_context", "SimpleQueue", "SimpleQueue", "SimpleQueue"]
    assert ledger._backtest_boundary_queue.name == "queue-0"
    queues = ledger._backtest_acknowledgement_queues
    assert [(index, queue.name) for index, queue in queues.items()] == [
        (3, "queue-1"), (1, "queue-2")
    ]
    ledger.prepare_for_processes()
    assert len(world.called) == 4 and ledger._backtest_acknowledgement_queues is queues
    ledger._backtest_boundary_queue = None
    ledger.prepare_for_processes()
    assert len(world.called) == 8


def test_a_queue_that_cannot_be_made_leaves_the_first(genetic, monkeypatch):
    world = World(failures={2: (HostError("no queue"), False)})
    world.bind(genetic, monkeypatch)
    ledger = genetic._ProcessAttemptLedger(world.context, [(0, "a")])
    with pytest.raises(HostError):
        ledger.prepare_for_processes()
    assert ledger._backtest_boundary_queue is not None
    assert ledger._backtest_acknowledgement_queues is None


def test_attributes_can_be_set_and_count_at_once(genetic, ledger, monkeypatch):
    other = World(identities=["other"])
    other.bind(genetic, monkeypatch)
    state = {**EMPTY, "dispatched": True}
    graph = ("a", "graph")
    ledger._ctx = other.context
    ledger._states = {(0, 4): state}
    ledger._current_attempt = {0: 4}
    ledger._graphs = {0: graph}
    given = []
    create = other.tracker.create_simulation_attempt
    other.tracker._held["create_simulation_attempt"] = lambda **keywords: (
        given.append(keywords["graph"]) or create(**keywords)
    )
    ledger.apply_child_evidence(0, {"backtest_started": True})
    assert state["attempt_id"] == "other" and state["backtest_started"] is True
    assert given[0] is graph
    state["finalized"] = True
    ledger.finalize_all_open("reason")
    assert other.rows == {"other": ["created", "dispatched", "started"]}


def test_states_of_another_kind_of_mapping_will_do(ledger):
    ledger._states = OrderedDict()
    ledger._current_attempt = OrderedDict()
    ledger.pre_dispatch(dispatch())
    assert ledger._states[(0, 0)]["dispatched"] is True and ledger._current_attempt == {0: 0}
    ledger._states[(0, 0)] = types.SimpleNamespace()
    assert "SimpleNamespace" in str(error_of(ledger.source_attempt_id, 0))


# Dispatching.


def test_a_dispatch_is_taken_down(ledger, world):
    item = Item({})
    assert ledger.pre_dispatch(dispatch("1", 0.5, item)) is None
    assert ledger._states == {(1, 0): {**EMPTY, "dispatched": True}}
    assert list(ledger._states[(1, 0)]) == list(EMPTY)
    assert ledger._current_attempt == {1: 0} and item.metadata == {"process_attempt": 0}
    assert type(item.metadata["process_attempt"]) is int
    assert world.called == []


def test_a_second_dispatch_fails(ledger):
    ledger.pre_dispatch(dispatch())
    item = Item({})
    error = error_of(ledger.pre_dispatch, dispatch(0, 0, item))
    assert type(error) is RuntimeError
    assert error.args == ("process attempt was dispatched more than once",)
    assert item.metadata == {}


def test_the_attempt_before_ends_with_its_failure(ledger, world):
    started(ledger)
    ledger.lifecycle(happened("error", failure_reason="worker_timeout", error=ValueError("late")))
    world.log.clear()
    ledger.pre_dispatch(dispatch(0, 1))
    assert world.called == ["_submission_cancelled", *ENDING]
    _, (attempt_id,), keywords = world.log[-1]
    assert attempt_id == 100 and keywords["failure_reason"] == "worker_timeout"
    assert keywords["failure_detail"] == "late"
    assert ledger._states[(0, 0)]["finalized"] is True and ledger._current_attempt == {0: 1}
    assert ledger.source_attempt_id(0) is None, "the new attempt has no row yet"


@pytest.mark.parametrize("reason", [None, "", 0])
def test_the_attempt_before_that_never_failed_was_retried(ledger, world, reason):
    started(ledger)["failure_reason"] = reason
    ledger.pre_dispatch(dispatch(0, 1))
    assert world.log[-1][2]["failure_reason"] == "process_attempt_retried"
    assert world.log[-1][2]["failure_detail"] is None


def test_the_attempt_before_ends_even_when_this_one_is_refused(ledger, world):
    started(ledger)
    ledger._states[(0, 1)] = {**EMPTY, "dispatched": True}
    error = error_of(ledger.pre_dispatch, dispatch(0, 1))
    assert "more than once" in str(error) and ledger._states[(0, 0)]["finalized"] is True


def test_an_attempt_needs_the_one_before_it(ledger):
    error = error_of(ledger.pre_dispatch, dispatch(0, 2))
    assert type(error) is KeyError and error.args == ((0, 1),)
    assert ledger._states == {} and ledger._current_attempt == {}
    ledger.pre_dispatch(dispatch(0, -1))
    ledger.pre_dispatch(dispatch(0, 0))
    assert ledger._states[(0, -1)]["finalized"] is False, "0 has no predecessor"


@pytest.mark.parametrize("name", ["candidate_index", "attempt", "candidate"])
def test_a_dispatch_needs_all_its_keys(ledger, name):
    event = dispatch()
    del event[name]
    error = error_of(ledger.pre_dispatch, event)
    assert type(error) is KeyError and error.args == (name,)
    assert ledger._current_attempt == {}
    state = ledger._states.get((0, 0))
    assert state == (EMPTY if name == "candidate" else None)


def test_metadata_that_cannot_be_written(ledger):
    for candidate, kind in (
        (types.SimpleNamespace(metadata=types.MappingProxyType({})), TypeError),
        (types.SimpleNamespace(metadata=None), TypeError), (object(), AttributeError),
    ):
        assert type(error_of(ledger.pre_dispatch, dispatch(0, 0, candidate))) is kind
        assert ledger._states == {(0, 0): EMPTY} and ledger._current_attempt == {}


# The pool's events.


def test_a_worker_that_started_is_taken_down(ledger, world):
    ledger.pre_dispatch(dispatch())
    assert ledger.lifecycle(happened("started", "0", 0.0)) is None
    assert ledger._states[(0, 0)] == {**EMPTY, "dispatched": True, "worker_started": True}
    assert world.called == []


def test_ok_needs_no_attempt(ledger):
    assert ledger.lifecycle({"event": "ok"}) is None
    assert ledger._states == {}


@pytest.mark.parametrize("name", [None, "queued", "", 5, "OK", ("ok",), ["ok"]], ids=repr)
def test_an_unknown_event_fails_in_one_and_is_ignored_in_the_other(ledger, name):
    error = error_of(ledger.lifecycle, {"event": name})
    assert type(error) is RuntimeError
    assert error.args == (f"unknown process attempt lifecycle event: {name!r}",)
    assert ledger.progress({"event": name}) is None


def test_an_event_without_a_name(ledger):
    assert error_of(ledger.lifecycle, {}).args == (
        "unknown process attempt lifecycle event: None",
    )
    assert ledger.progress({}) is None


@pytest.mark.parametrize("operation", ["lifecycle", "progress"])
def test_an_event_of_an_unknown_attempt_is_a_lookup_failure(ledger, operation):
    call = getattr(ledger, operation)
    assert error_of(call, happened("error", 1, 5)).args == ((1, 5),)
    assert error_of(call, {"event": "error", "attempt": 0}).args == ("candidate_index",)
    assert error_of(call, {"event": "started", "candidate_index": 0}).args == ("attempt",)
    assert type(error_of(call, happened("started", "x"))) is ValueError
    assert type(error_of(call, happened("started", 0, None))) is TypeError


def test_the_first_failure_is_kept(ledger, world):
    state = started(ledger)
    detail = ValueError("first")
    ledger.lifecycle(happened("error", error=detail))
    assert state["failure_reason"] == "process_child_exception"
    assert state["failure_detail"] is detail and state["finalized"] is False
    ledger.lifecycle(
        happened("error", failure_reason="process_child_exception", error="second")
    )
    assert state["failure_detail"] is detail
    error = error_of(ledger.lifecycle, happened("error", failure_reason="worker_timeout"))
    assert error.args == (
        "process attempt received conflicting lifecycle failure reasons: "
        "'process_child_exception' then 'worker_timeout'",
    )


def test_an_absent_first_detail_stays_absent(ledger):
    state = started(ledger)
    ledger.lifecycle(happened("error"))
    ledger.lifecycle(happened("error", error="second", retrying=False))
    assert state["failure_detail"] is None and state["finalized"] is False


@pytest.mark.parametrize("reason", [None, "", "worker_failed", 5, ["x"]], ids=repr)
def test_an_unknown_reason_fails(ledger, reason):
    state = started(ledger)
    error = error_of(ledger.lifecycle, happened("error", failure_reason=reason))
    assert type(error) is RuntimeError
    assert error.args == (f"unknown process attempt lifecycle failure reason: {reason!r}",)
    assert state["failure_reason"] is None


def test_the_hosts_own_word_for_a_time_out_counts(ledger, world):
    world.process_evaluation._held["TERMINAL_WORKER_TIMEOUT"] = "late"
    state = started(ledger)
    assert "unknown" in str(
        error_of(ledger.lifecycle, happened("error", failure_reason="worker_timeout"))
    )
    ledger.lifecycle(happened("error", failure_reason="late"))
    assert state["failure_reason"] == "late"


@pytest.mark.parametrize("retrying", [True, 1, "yes"])
def test_a_retried_attempt_ends(ledger, world, retrying):
    state = started(ledger)
    ledger.lifecycle(happened("error", error="why", retrying=retrying))
    assert state["finalized"] is True
    assert world.rows == {100: ["created", "dispatched", "started", "backtest_failed"]}
    keywords = world.log[-1][2]
    assert keywords["failure_reason"] == "process_child_exception"
    assert keywords["failure_detail"] == "why"
    calls = len(world.called)
    ledger.pre_dispatch(dispatch(0, 1))
    ledger.finalize_all_open("late")
    assert len(world.called) == calls, "nothing is ended twice"


@pytest.mark.parametrize("others", [{}, {"retrying": False}, {"retrying": 0}, {"retrying": None}])
def test_an_attempt_that_is_not_retried_stays_open(ledger, world, others):
    state = started(ledger)
    ledger.lifecycle(happened("error", **others))
    assert state["finalized"] is False
    ledger.finalize_all_open("batch_over", "detail")
    assert state["finalized"] is True
    # The reason of whoever closes it, not that of the failure.
    assert world.log[-1][2]["failure_reason"] == "batch_over"


# Markers.


def test_a_marker_is_opened_and_closed(ledger, world):
    ledger.pre_dispatch(dispatch())
    item = Item({"node": "shown"})
    world.log.clear()
    assert ledger.progress(happened("started", candidate=item)) is None
    state = ledger._states[(0, 0)]
    assert state["marker_attempt_id"] == "marker-0"
    ((_, positional, keywords),) = [line for line in world.log if line[0] != "read"
                                    and line[0] != "poll"]
    assert positional[1:] == ({"node": "shown"}, "universe", {"m": 1}, "evaluate_expression")
    assert keywords == {}
    ledger.progress(happened("ok"))
    assert world.markers == {"marker-0": "closed"} and state["marker_attempt_id"] is None
    calls = len(world.called)
    ledger.progress(happened("error"))
    assert len(world.called) == calls, "a closed marker is not closed again"


def test_a_second_start_overwrites_an_open_marker(ledger, world):
    ledger.pre_dispatch(dispatch())
    for _ in range(2):
        ledger.progress(happened("started", candidate=Item({})))
    assert ledger._states[(0, 0)]["marker_attempt_id"] == "marker-1"
    ledger.finalize_all_open("over")
    assert world.markers == {"marker-0": "open", "marker-1": "closed"}


def test_no_marker_leaves_the_one_before(ledger, world):
    state = started(ledger)
    ledger.progress(happened("started", candidate=Item({})))
    for candidate in (None, object(), Item(None)):
        ledger.progress(happened("started", candidate=candidate))
        assert state["marker_attempt_id"] == "marker-0"
    world.engine._held["_write_evaluation_attempt_marker"] = lambda *args: None
    ledger.progress(happened("started", candidate=Item({})))
    assert state["marker_attempt_id"] == "marker-0"


def test_a_false_marker_is_a_marker(ledger, world):
    state = started(ledger)
    world.engine._held["_write_evaluation_attempt_marker"] = lambda *args: 0
    ledger.progress(happened("started", candidate=Item({})))
    assert state["marker_attempt_id"] == 0
    ledger.progress(happened("ok"))
    assert world.markers == {0: "closed"} and state["marker_attempt_id"] is None


def test_a_marker_whose_closing_failed_stays_open(genetic, ledger, world):
    state = started(ledger)
    ledger.progress(happened("started", candidate=Item({})))
    close = world.engine._clear_evaluation_attempt_marker
    error = HostError("busy")

    def fail(*args):
        raise error

    world.engine._held["_clear_evaluation_attempt_marker"] = fail
    assert error_of(ledger.progress, happened("ok")) is error
    assert error_of(ledger.finalize_all_open, "over") is error
    assert state["marker_attempt_id"] == "marker-0" and state["finalized"] is True
    world.engine._held["_clear_evaluation_attempt_marker"] = close
    ledger.finalize_all_open("again")
    assert world.markers == {"marker-0": "closed"}
    assert world.rows[100].count("backtest_failed") == 1


def test_finalized_attempts_lose_their_marker_too(ledger, world):
    state = started(ledger)
    ledger.progress(happened("started", candidate=Item({})))
    ledger.mark_parent_finalized(0)
    assert world.markers == {"marker-0": "closed"} and state["finalized"] is True
    ledger.progress(happened("started", candidate=Item({})))
    ledger.finalize_all_open("over")
    assert world.markers == {"marker-0": "closed", "marker-1": "closed"}
    assert world.rows[100] == ["created", "dispatched", "started"]


@pytest.mark.parametrize(
    "attributes, given",
    [
        ({}, {}),
        ({"_metaparameters": {"m": 1}}, {"m": 1}),
        ({"_metaparameters": {"m": 1}, "_metaparams_for_db": {"d": 1}}, {"d": 1}),
        ({"_metaparameters": {"m": 1}, "_metaparams_for_db": None}, None),
        ({"_metaparams_for_db": ("t",)}, ("t",)),
    ],
)
def test_what_a_marker_is_opened_with(genetic, make_engine, attributes, given):
    seen = []
    engine = make_engine(_write_evaluation_attempt_marker=lambda *args: seen.extend(args) or "id")
    context = types.SimpleNamespace(**attributes)
    graph = {"node": "g"}
    assert genetic._write_parent_process_evaluation_attempt_marker(
        context, {"event": "started", "candidate": Item(graph)}
    ) == "id"
    assert seen == [None, graph, None, given, "evaluate_expression"] and seen[1] is graph
    if attributes:
        assert seen[3] is list(attributes.values())[-1]
    assert engine.called == ["_write_evaluation_attempt_marker"]


@pytest.mark.parametrize(
    "event",
    [None, [], "started", {"event": "ok", "candidate": Item({})}, {"candidate": Item({})},
     {"event": "started"}, {"event": "started", "candidate": None},
     {"event": "started", "candidate": {"graph": {}}},
     {"event": "started", "candidate": Item(None)}],
    ids=str,
)
def test_when_no_marker_is_opened(genetic, make_engine, event):
    make_engine()
    assert genetic._write_parent_process_evaluation_attempt_marker(object(), event) is None


def test_a_read_only_event_opens_a_marker(genetic, make_engine):
    make_engine(_write_evaluation_attempt_marker="id")
    event = types.MappingProxyType({"event": "started", "candidate": Item({})})
    assert genetic._write_parent_process_evaluation_attempt_marker(object(), event) == "id"
