"""Guards, the recorder and the boundary of a child, on Python objects.

Goal: in a child, whatever only the parent may do is refused wherever it is looked up, the record
stays in memory, and the backtest waits for the parent's answer; afterwards everything is as it was.
Method: contexts and engines of every shape that Python has for an object, queues that answer by a
list, and evaluators that look around.
"""

import gc
import inspect
import multiprocessing
import threading
import types
import weakref

import plain_batch
import pytest


class Queue:
    """A queue that gives its answers one after the other, and keeps what is put."""

    def __init__(self, *answers):
        self.answers = list(answers)
        self.put_items = []

    def put(self, item):
        self.put_items.append(item)

    def get(self):
        return self.answers.pop(0)


@pytest.fixture
def state():
    return types.SimpleNamespace(attempt_id="earlier", parent_owned_attempt="before")


def signal(genetic, state, *args, answers=(), index=3, attempt=1, boundary=True, **kwargs):
    """Signal on new queues; return what was put on the boundary queue."""
    boundary_queue = Queue() if boundary else None
    genetic._signal_child_backtest_boundary(
        boundary_queue, {int(index): Queue(*answers)}, index, attempt, state, *args, **kwargs
    )
    return boundary_queue.put_items


# The boundary.


@pytest.mark.parametrize("phase", ["build_expression", "", None, 5, b"run_backtest", ["x"]])
def test_other_phases_neither_signal_nor_fail(genetic, state, phase):
    assert genetic._signal_child_backtest_boundary(None, None, "x", "y", state, "a", phase) is None
    assert (
        genetic._signal_child_backtest_boundary(None, None, "x", "y", state, phase=phase) is None
    )
    assert genetic._signal_child_backtest_boundary(None, None, 0, 0, state) is None
    assert state.attempt_id == "earlier"


ACCEPTED = (3, 1, True, None, "identity")


def test_the_phase_is_the_last_positional_or_the_keyword(genetic, state):
    def asked(*args, **kwargs):
        return signal(genetic, state, *args, answers=[ACCEPTED], **kwargs)

    assert asked("tracker", {"node": "g"}, None, {}, "run_backtest") == [(3, 1)]
    assert asked("run_backtest") == [(3, 1)]
    assert asked("run_backtest", "other") == []
    assert asked(phase="run_backtest") == [(3, 1)]
    # The keyword goes before the last positional, unless it is None.
    assert asked("run_backtest", phase="other") == []
    assert asked("other", phase="run_backtest") == [(3, 1)]
    assert asked("run_backtest", phase=None) == [(3, 1)]
    assert state.attempt_id == "identity"


def test_what_a_phase_equals_counts(genetic, state):
    class Phase:
        def __ne__(self, other):
            return other != "run_backtest"

    assert signal(genetic, state, Phase(), answers=[ACCEPTED]) == [(3, 1)]


def test_the_signal_has_integers_and_the_queue_is_found_by_one(genetic, state):
    asked = []

    class Queues:
        def get(self, key):
            asked.append(key)
            return Queue((3, True, 1, "", "identity"))

    boundary_queue = Queue()
    genetic._signal_child_backtest_boundary(
        boundary_queue, Queues(), 3.9, "1", state, "run_backtest"
    )
    assert boundary_queue.put_items == [(3, 1)] and asked == [3]
    assert type(boundary_queue.put_items[0]) is tuple
    assert list(map(type, boundary_queue.put_items[0])) == [int, int]


def test_the_conversions_come_before_the_queues(genetic, state):
    with pytest.raises(ValueError, match="invalid literal for int"):
        genetic._signal_child_backtest_boundary(None, None, "x", 0, state, "run_backtest")
    with pytest.raises(TypeError):
        genetic._signal_child_backtest_boundary(None, None, 0, None, state, "run_backtest")


@pytest.mark.parametrize("queues", [(None, {0: Queue()}), (Queue(), None), (None, None)])
def test_both_queues_are_required(genetic, state, queues):
    with pytest.raises(RuntimeError) as caught:
        genetic._signal_child_backtest_boundary(*queues, 0, 0, state, "run_backtest")
    assert str(caught.value) == (
        "genetic child backtest boundary requires a parent acknowledgement channel"
    )


def test_nothing_is_sent_without_a_queue_for_the_answer(genetic, state):
    boundary_queue = Queue()
    for queues in ({}, {0: None}, {1: Queue()}):
        with pytest.raises(RuntimeError) as caught:
            genetic._signal_child_backtest_boundary(
                boundary_queue, queues, 0, 0, state, "run_backtest"
            )
        assert str(caught.value) == (
            "genetic child backtest boundary is missing its candidate acknowledgement queue"
        )
    assert boundary_queue.put_items == []


@pytest.mark.parametrize(
    ("answer", "text"),
    [
        ((3, 0, True, None, "id"),
         "genetic child received a mismatched parent backtest acknowledgement"),
        ((2, 1, True, None, "id"),
         "genetic child received a mismatched parent backtest acknowledgement"),
        # What does not match is found out first, whatever else is wrong.
        ((3, 0, False, "why", None),
         "genetic child received a mismatched parent backtest acknowledgement"),
        ((3, 1, False, "ValueError: disk", None),
         "genetic parent failed to persist the backtest attempt: ValueError: disk"),
        ((3, 1, False, "", None), "genetic parent failed to persist the backtest attempt"),
        ((3, 1, 0, None, "id"), "genetic parent failed to persist the backtest attempt"),
        ((3, 1, [], 7, "id"), "genetic parent failed to persist the backtest attempt: 7"),
        ((3, 1, True, "ignored", None),
         "genetic parent acknowledgement is missing the backtest attempt identity"),
    ],
)
def test_an_answer_that_lets_no_backtest_run(genetic, state, answer, text):
    with pytest.raises(RuntimeError) as caught:
        signal(genetic, state, "run_backtest", answers=[answer])
    assert str(caught.value) == text
    assert state.attempt_id == "earlier"


@pytest.mark.parametrize(
    ("answer", "text"),
    [
        ((3, 1, True, None), "not enough values to unpack (expected 5, got 4)"),
        ((), "not enough values to unpack (expected 5, got 0)"),
        ((3, 1, True, None, "id", 6), "too many values to unpack (expected 5)"),
    ],
)
def test_an_answer_of_another_length(genetic, state, answer, text):
    with pytest.raises(ValueError) as caught:
        signal(genetic, state, "run_backtest", answers=[answer])
    assert str(caught.value) == text


def test_an_answer_is_matched_by_integers(genetic, state):
    identity = object()
    signal(genetic, state, "run_backtest", answers=[("3", 1.0, "yes", 0, identity)])
    assert state.attempt_id is identity
    with pytest.raises(ValueError):
        signal(genetic, state, "run_backtest", answers=[("x", 1, True, None, "id")])
    # A false identity is one.
    signal(genetic, state, "run_backtest", answers=[(3, 1, True, None, 0)])
    assert state.attempt_id == 0


def test_a_second_backtest_signals_again(genetic, state):
    boundary_queue, answers = Queue(), {3: Queue(ACCEPTED, ACCEPTED)}
    for _ in range(2):
        genetic._signal_child_backtest_boundary(
            boundary_queue, answers, 3, 1, state, "run_backtest"
        )
    assert boundary_queue.put_items == [(3, 1), (3, 1)]


def test_the_boundary_over_real_queues(genetic, state):
    context = multiprocessing.get_context("fork")
    boundary_queue, answers = context.SimpleQueue(), {0: context.SimpleQueue()}

    def answer():
        index, attempt = boundary_queue.get()
        answers[0].put((index, attempt, True, None, ("run", 1)))

    parent = threading.Thread(target=answer)
    parent.start()
    genetic._signal_child_backtest_boundary(
        boundary_queue, answers, 0, 2, state, None, "run_backtest"
    )
    parent.join()
    assert state.attempt_id == ("run", 1)


# Replacing and restoring.


class Plain:
    def operation(self):
        return "the class's"


class Slotted:
    __slots__ = ("operation",)

    def __init__(self):
        self.operation = "the slot's"


class Hooked:
    """Finds operations by a hook."""

    def __getattr__(self, name):
        if name == "operation":
            return "the hook's"
        raise AttributeError(name)


def test_an_operation_of_the_class_shows_through_again(genetic):
    target = Plain()
    state = genetic._replace_child_parent_operation(target, "operation", "guard")
    assert state[:2] == ("operation", False) and state[2]() == "the class's"
    assert type(state) is tuple and target.operation == "guard"
    assert genetic._restore_child_parent_operation(target, state) is None
    assert target.operation() == "the class's" and vars(target) == {}
    # What is gone already is no failure.
    genetic._restore_child_parent_operation(target, state)


def test_an_operation_of_the_instance_comes_back(genetic):
    original = object()
    for value in (original, None, "text", (1, [2]), 10**30, {"a": 1}):
        target = Plain()
        target.operation = value
        state = genetic._replace_child_parent_operation(target, "operation", "guard")
        assert state[0] == "operation" and state[1] is True and state[2] is value
        genetic._restore_child_parent_operation(target, state)
        assert vars(target) == {"operation": value} and target.operation is value


def test_what_is_not_there_is_skipped(genetic):
    target = Plain()
    assert genetic._replace_child_parent_operation(target, "missing", "guard") is None
    assert vars(target) == {}
    assert genetic._restore_child_parent_operation(target, None) is None
    assert genetic._restore_child_parent_operation(None, None) is None


def test_an_operation_behind_a_hook_counts_as_there(genetic):
    target = Hooked()
    state = genetic._replace_child_parent_operation(target, "operation", "guard")
    assert state == ("operation", False, "the hook's") and vars(target) == {"operation": "guard"}
    genetic._restore_child_parent_operation(target, state)
    assert vars(target) == {} and target.operation == "the hook's"


def test_a_slot_is_not_had_and_is_lost(genetic):
    target = Slotted()
    state = genetic._replace_child_parent_operation(target, "operation", "guard")
    assert state == ("operation", False, "the slot's") and target.operation == "guard"
    genetic._restore_child_parent_operation(target, state)
    assert not hasattr(target, "operation")


def test_a_module_and_a_class_are_objects_too(genetic):
    module = types.ModuleType("engine")
    module.operation = "the module's"
    state = genetic._replace_child_parent_operation(module, "operation", "guard")
    assert state == ("operation", True, "the module's") and module.operation == "guard"
    genetic._restore_child_parent_operation(module, state)
    assert module.operation == "the module's"

    class Context(Plain):
        pass

    # The mapping of a class is a view that cannot be written, and a mapping all the same.
    own = Plain.operation
    state = genetic._replace_child_parent_operation(Plain, "operation", "guard")
    assert state == ("operation", True, own)
    genetic._restore_child_parent_operation(Plain, state)
    assert Plain.operation is own
    state = genetic._replace_child_parent_operation(Context, "operation", "guard")
    assert state == ("operation", False, own)
    genetic._restore_child_parent_operation(Context, state)
    assert "operation" not in vars(Context)


def test_an_attribute_is_read_twice_where_it_is_not_the_instances(genetic):
    reads = []

    class Counted:
        @property
        def operation(self):
            reads.append(len(reads))
            return reads[-1]

        @operation.setter
        def operation(self, value):
            pass

    state = genetic._replace_child_parent_operation(Counted(), "operation", "guard")
    assert state == ("operation", False, 1) and reads == [0, 1]


def test_an_object_that_refuses_the_guard_stops_the_evaluation(genetic):
    class Frozen(Plain):
        def __setattr__(self, name, value):
            raise refusal

    for refusal in (AttributeError("frozen"), TypeError("read-only")):
        with pytest.raises(RuntimeError) as caught:
            genetic._replace_child_parent_operation(Frozen(), "operation", "guard")
        assert str(caught.value) == (
            "cannot disable parent-only operation operation in child process"
        )
        assert caught.value.__cause__ is refusal and caught.value.__context__ is refusal
    refusal = ValueError("odd")
    with pytest.raises(ValueError) as caught:
        genetic._replace_child_parent_operation(Frozen(), "operation", "guard")
    assert caught.value is refusal


def test_only_what_says_missing_is_missing(genetic):
    class Broken:
        @property
        def operation(self):
            raise failure

    for failure in (ValueError("odd"), KeyboardInterrupt()):
        with pytest.raises(type(failure)) as caught:
            genetic._replace_child_parent_operation(Broken(), "operation", "guard")
        assert caught.value is failure


def test_an_odd_instance_mapping(genetic):
    class Odd(Plain):
        values = None

        @property
        def __dict__(self):
            if isinstance(self.values, Exception):
                raise self.values
            return self.values

    target = Odd()
    for values, had in (
        (None, False), ([("operation", 1)], False), ({"operation": 1}, True),
        (types.MappingProxyType({"operation": 1}), True), (TypeError("none"), False),
    ):
        Odd.values = values
        assert genetic._replace_child_parent_operation(target, "operation", "guard")[1] is had
        assert plain_batch.replace(Odd(), "operation", "guard")[1] is had
    Odd.values = ValueError("odd")
    with pytest.raises(ValueError, match="odd"):
        genetic._replace_child_parent_operation(target, "operation", "guard")


def test_a_restore_passes_what_is_not_about_a_missing_attribute(genetic):
    class Stubborn(Plain):
        def __delattr__(self, name):
            raise TypeError("no deleting")

    with pytest.raises(TypeError, match="no deleting"):
        genetic._restore_child_parent_operation(Stubborn(), ("operation", False, None))
    with pytest.raises(ValueError, match="not enough values"):
        genetic._restore_child_parent_operation(Plain(), ("operation", False))


def test_a_forbidden_operation_takes_anything_and_fails(genetic):
    forbidden = genetic._forbid_child_parent_operation("enqueue")
    for args, kwargs in (((), {}), ((1, 2), {"a": 3})):
        with pytest.raises(RuntimeError) as caught:
            forbidden(*args, **kwargs)
        assert str(caught.value) == "child process cannot call parent-only operation enqueue"
        assert caught.value.__cause__ is None and caught.value.__context__ is None


# The snapshot and the list of files.


def test_the_snapshot_asks_the_manager_for_nothing_but_the_manifest(genetic):
    manager = types.SimpleNamespace(get_manifest=lambda: {"a": 1}, request_for_sync=None)
    paths = ("x", "y")
    snapshot = genetic._ChildSyncSnapshot(manager, paths)
    assert snapshot._sync_mgr is manager and snapshot._found_pnl_paths is paths
    assert snapshot.request_for_sync() is paths
    assert snapshot.get_manifest() == {"a": 1}


@pytest.mark.parametrize("manager", [None, 5, types.SimpleNamespace(get_manifest=7)])
def test_a_manager_without_a_manifest(genetic, manager):
    assert genetic._ChildSyncSnapshot(manager, ["a"]).get_manifest() is None
    assert genetic._ChildSyncSnapshot(manager, iter("ab")).request_for_sync() == ("a", "b")
    for nothing in (None, (), [], 0, ""):
        assert genetic._ChildSyncSnapshot(manager, nothing).request_for_sync() == ()
    with pytest.raises(TypeError):
        genetic._ChildSyncSnapshot(manager, 5)


def test_the_found_files_are_a_tuple(genetic):
    def files(answer):
        return genetic._prefetch_found_pnl_files(
            types.SimpleNamespace(_sync_mgr=types.SimpleNamespace(request_for_sync=answer))
        )

    path = object()
    assert files(lambda: [path, "b"]) == (path, "b")
    assert files(lambda: iter("ab")) == ("a", "b")
    for nothing in (None, [], 0):
        assert files(lambda nothing=nothing: nothing) == ()
    assert files(5) == () and files(None) == ()
    for context in (types.SimpleNamespace(), types.SimpleNamespace(_sync_mgr=None), None):
        assert genetic._prefetch_found_pnl_files(context) == ()


def test_a_list_that_cannot_be_had_is_logged(genetic, make_engine):
    logged = []
    make_engine(logger=None)
    genetic._engine.logger = types.SimpleNamespace(warning=lambda *args: logged.append(args))
    failure = OSError("no disk")

    def request():
        raise failure

    def context(request_for_sync):
        return types.SimpleNamespace(
            _sync_mgr=types.SimpleNamespace(request_for_sync=request_for_sync)
        )

    assert genetic._prefetch_found_pnl_files(context(request)) == ()
    assert logged == [("Failed to request sync files: %s", failure)]
    # Making the tuple belongs to what is guarded.
    assert genetic._prefetch_found_pnl_files(context(lambda: 5)) == ()
    assert isinstance(logged[1][1], TypeError)
    failure = KeyboardInterrupt()
    with pytest.raises(KeyboardInterrupt) as caught:
        genetic._prefetch_found_pnl_files(context(request))
    assert caught.value is failure and len(logged) == 2


def test_reading_the_manager_is_not_guarded(genetic):
    class Context:
        @property
        def _sync_mgr(self):
            raise ValueError("odd")

    with pytest.raises(ValueError, match="odd"):
        genetic._prefetch_found_pnl_files(Context())


# The recorder.


def test_the_record_is_kept_in_memory(genetic, state):
    context = types.SimpleNamespace(_template_evaluation_state=state)
    graph, stats, columns, tracking = {"node": "g"}, object(), [1], {"a": [2]}
    assert genetic._child_safe_record(
        context, graph, "yes", "why", stats, columns, 1.5, tracking, backtest_timing=3
    ) is None
    record = context._last_evaluation_record
    assert list(record.items()) == [
        ("graph", graph), ("passed", True), ("stats", stats), ("rejection_reason", "why"),
        ("per_column_stats", columns), ("expression_elapsed_seconds", 1.5),
        ("tracking_metric_kwargs", {"a": [2]}),
    ]
    assert type(record) is dict and record["graph"] is graph and record["stats"] is stats
    assert record["per_column_stats"] is columns
    assert record["tracking_metric_kwargs"] is not tracking
    assert record["tracking_metric_kwargs"]["a"] is tracking["a"]
    assert state.attempt_id is None and state.parent_owned_attempt == "before"


def test_what_the_record_begins_with(genetic, state):
    context = types.SimpleNamespace(_template_evaluation_state=state)
    genetic._child_safe_record(context, None, [])
    assert context._last_evaluation_record == {
        "graph": None, "passed": False, "stats": None, "rejection_reason": None,
        "per_column_stats": None, "expression_elapsed_seconds": None, "tracking_metric_kwargs": {},
    }
    assert type(context._last_evaluation_record["passed"]) is bool


def test_the_setter_goes_before_the_attribute(genetic, state):
    taken = []
    context = types.SimpleNamespace(
        _template_evaluation_state=state, _set_last_evaluation_record=taken.append
    )
    genetic._child_safe_record(context, {}, True)
    assert len(taken) == 1 and not hasattr(context, "_last_evaluation_record")
    context._set_last_evaluation_record = 5
    genetic._child_safe_record(context, {}, True)
    assert len(taken) == 1 and context._last_evaluation_record["passed"] is True


def test_the_identity_is_cleared_before_anything_can_fail(genetic, state):
    class Truth:
        def __bool__(self):
            raise ValueError("no truth")

    context = types.SimpleNamespace(_template_evaluation_state=state)
    with pytest.raises(ValueError, match="no truth"):
        genetic._child_safe_record(context, {}, Truth())
    assert state.attempt_id is None
