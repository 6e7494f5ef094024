"""The ledger against a plain Python version of it, step by step.

Goal: whatever a pool, its children and a host do, and in whatever order, both ledgers answer alike.
Method: random sequences of operations with good, odd and bad arguments, on two worlds with the same
failures; after each step results, errors with what they carry, the hosts' logs, the states and the
queues are compared. Hypothesis shrinks what differs to the shortest sequence and prints it.
"""

import types
from collections import OrderedDict

import plain_attempts
import pytest
from attempt_host import HostError, Item, Namespace, Thing, World, shown
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

INDEXES = (0, 0, 0, 1, 1, "0", 1.5, True, 2, 2**70, None, "x", [])
ATTEMPTS = (0, 0, 0, 1, 1, 2, "1", False, -1, -(2**65), None, "x")
NAMES = ("started", "error", "ok", "queued", None, 5, "Started")


class Mute(Exception):
    """An error without a text."""

    def __str__(self):
        raise HostError("no text")


class Odd(dict):
    """A subclass that counts, with a `get` of its own."""

    def get(self, key, default=None):
        return super().get(key, default)


class Gettable:
    """What can be asked like a mapping and is none."""

    def __init__(self, entries):
        self._entries = entries

    def get(self, key, default=None):
        return self._entries.get(key, default)

    def __getitem__(self, key):
        return self._entries[key]


SHAPES = {
    "dict": dict,
    "odd": Odd,
    "ordered": OrderedDict,
    "proxy": types.MappingProxyType,
    "gettable": Gettable,
}

CANDIDATES = {
    "item": lambda: Item({"node": "g"}),
    "no graph": lambda: types.SimpleNamespace(metadata={}),
    "absent graph": lambda: types.SimpleNamespace(metadata={}, graph=None),
    "odd metadata": lambda: types.SimpleNamespace(metadata=Odd(), graph=Thing("graph")),
    "fixed metadata": lambda: types.SimpleNamespace(
        metadata=types.MappingProxyType({}), graph=("graph",)
    ),
    "no metadata": lambda: types.SimpleNamespace(graph={}),
    "bare metadata": lambda: types.SimpleNamespace(graph={}, metadata=None),
    "none": lambda: None,
    "text": lambda: "candidate",
}

VALUES = {
    "none": lambda: None,
    "text": lambda: "a detail",
    "empty": lambda: "",
    "error": lambda: ValueError("why"),
    "exit": lambda: SystemExit(3),
    "mute": Mute,
    "zero": lambda: 0,
    "number": lambda: 1.5,
    "list": lambda: ["a"],
    "thing": lambda: Thing("thing"),
}

indexes = st.sampled_from(INDEXES)
attempts = st.sampled_from(ATTEMPTS)
good_index = st.sampled_from((0, 1))
good_attempt = st.sampled_from((0, 0, 1, 2))
values = st.sampled_from(sorted(VALUES))
flags = st.sampled_from((False, True, 0, 1, "", "x", None))
MISSING = "missing"


def events(names):
    """A description of an event: mostly a plain dict with all that is required."""
    entries = st.fixed_dictionaries(
        {
            "candidate_index": st.one_of(good_index, good_index, good_index, indexes),
            "attempt": st.one_of(good_attempt, good_attempt, good_attempt, attempts),
            "event": st.sampled_from(names),
            "candidate": st.one_of(st.just("item"), st.sampled_from(sorted(CANDIDATES))),
        },
        optional={
            "failure_reason": st.sampled_from(
                ("process_child_exception", "worker_timeout", "other", "", None, 5)
            ),
            "error": values,
            "retrying": flags,
        },
    )
    without = st.one_of(
        st.none(), st.none(), st.none(),
        st.sampled_from(("candidate_index", "attempt", "candidate")),
    )
    shape = st.one_of(st.just("dict"), st.just("dict"), st.sampled_from(sorted(SHAPES)))
    whole = st.tuples(shape, entries, without)
    return st.one_of(whole, whole, whole, whole, st.sampled_from((None, 5, "event", ())))


def event_of(description):
    if not isinstance(description, tuple) or not description:
        return description
    shape, entries, without = description
    made = {key: entry for key, entry in entries.items() if key != without}
    if "candidate" in made:
        made["candidate"] = CANDIDATES[made["candidate"]]()
    if "error" in made:
        made["error"] = VALUES[made["error"]]()
    return SHAPES[shape](made)


def evidence_of(description):
    shape, entries = description
    if shape == "bare":
        return VALUES["text"]()
    return SHAPES[shape](dict(entries))


evidence = st.tuples(
    st.sampled_from(("dict", "dict", "odd", "proxy", "gettable", "bare")),
    st.dictionaries(
        st.sampled_from(("backtest_started", "backtest_completed")), flags, max_size=2
    ).map(lambda entries: tuple(entries.items())),
)
signals = st.one_of(
    st.tuples(good_index, good_attempt),
    st.tuples(good_index, good_attempt),
    st.tuples(indexes, attempts),
    st.sampled_from(((0,), (0, 0, 0), [0, 0], "00", 5, None)),
)

# Each operation: its name, and how its arguments are described.
OPERATIONS = st.one_of(
    st.tuples(st.just("signal"), signals),
    st.tuples(st.just("signal"), signals),
    st.tuples(st.just("pre_dispatch"), events(("started",))),
    st.tuples(st.just("pre_dispatch"), events(("started",))),
    st.tuples(st.just("lifecycle"), events(NAMES)),
    st.tuples(st.just("lifecycle"), events(("error", "started"))),
    st.tuples(st.just("progress"), events(NAMES)),
    st.tuples(st.just("progress"), events(("started", "ok"))),
    st.tuples(st.just("poll_backtest_boundaries")),
    st.tuples(st.just("prepare_for_processes")),
    st.tuples(st.just("apply_child_evidence"), indexes, evidence),
    st.tuples(st.just("apply_child_evidence"), good_index, evidence),
    st.tuples(st.just("source_attempt_id"), indexes),
    st.tuples(st.just("failure_evidence"), indexes, values, values),
    st.tuples(st.just("mark_parent_finalized"), indexes),
    st.tuples(st.just("acknowledge_parent_persistence_failure"), indexes),
    st.tuples(st.just("finalize_all_open"), values, values),
    st.tuples(st.just("record"), indexes, flags),
    st.tuples(st.just("cancel"), flags),
    st.tuples(st.just("_start_backtest_attempt"), indexes, attempts),
    st.tuples(st.just("_state_for_event"), events(NAMES)),
    st.tuples(st.just("_drain_backtest_boundaries")),
    st.tuples(
        st.just("preset"), st.tuples(good_index, good_attempt),
        st.sampled_from((
            "attempt_id", "dispatched", "backtest_started", "finalized", "failure_reason",
            "failure_detail", "marker_attempt_id",
        )),
        st.sampled_from((None, False, True, "set", ("a", 1), 7)),
    ),
    st.tuples(st.just("without a state"), st.tuples(good_index, good_attempt)),
    st.tuples(st.just("without a reader")),
    st.tuples(st.just("without queues back")),
    st.tuples(st.just("without a queue back"), good_index),
    st.tuples(st.just("new states")),
)

ERRORS = {
    "host": lambda: HostError("host", 5),
    "runtime": lambda: RuntimeError("broken"),
    "key": lambda: KeyError("k"),
    "mute": Mute,
    "interrupt": KeyboardInterrupt,
    "exit": lambda: SystemExit(2),
}
failures = st.dictionaries(
    st.integers(0, 60), st.tuples(st.sampled_from(sorted(ERRORS)), st.booleans()), max_size=3
)
identities = st.sampled_from((
    None, ("first", None, 0, "", ("tuple", 1), "last", *range(200)),
))
missing = st.one_of(
    st.just(()), st.just(()), st.sets(
        st.sampled_from((
            "_tracker", "_product_run_id", "_market_id", "_attempt_expected_columns",
            "_thresholds", "_named_universe", "_metaparameters", "_submission_cancelled",
        )), max_size=2,
    ).map(sorted),
)


class Side:
    """One ledger with its world."""

    def __init__(self, make, functions, batch, host):
        faults, without, identity = host
        self.world = World(
            failures={
                number: (ERRORS[error](), effect) for number, (error, effect) in faults.items()
            },
            without=without,
            identities=identity,
        )
        self.functions = functions
        self.ledger = make(self.world.context, batch())

    def signal(self, signal):
        if self.ledger._backtest_boundary_queue is not None:
            self.ledger._backtest_boundary_queue.messages.append(signal)

    def cancel(self, value):
        self.world.cancelled = value

    def record(self, index, recorded):
        self.world.recorded = recorded
        result = {"graph": {}, "failures": {"r": 1}}
        return self.functions.record(self.world.context, self.ledger, index, result)

    def change(self, operation, arguments):
        """Change an attribute of the ledger as a test, or a host, may."""
        ledger = self.ledger
        if operation == "preset":
            key, name, value = arguments
            ledger._states.setdefault(key, ledger._new_state())[name] = value
        elif operation == "without a state":
            ledger._states.pop(arguments[0], None)
        elif operation == "without a reader":
            if ledger._backtest_boundary_queue is not None:
                ledger._backtest_boundary_queue._reader = None
        elif operation == "without queues back":
            ledger._backtest_acknowledgement_queues = None
        elif operation == "without a queue back":
            (ledger._backtest_acknowledgement_queues or {}).pop(arguments[0], None)
        else:
            assert operation == "new states"
            ledger._states = dict(ledger._states)

    def run(self, operation, *arguments):
        if operation in ("signal", "cancel", "record"):
            return getattr(self, operation)(*arguments)
        if " " in operation or operation == "preset":
            return self.change(operation, arguments)
        if operation in ("pre_dispatch", "lifecycle", "progress", "_state_for_event"):
            event = event_of(arguments[0])
            answer = getattr(self.ledger, operation)(event)
            if operation == "pre_dispatch" and not isinstance(event, str):
                return answer, event["candidate"].metadata["process_attempt"]
            return answer
        if operation == "apply_child_evidence":
            return self.ledger.apply_child_evidence(arguments[0], evidence_of(arguments[1]))
        if operation == "failure_evidence":
            index, reason, detail = arguments
            return self.ledger.failure_evidence(index, VALUES[reason](), VALUES[detail]())
        if operation == "finalize_all_open":
            return self.ledger.finalize_all_open(*(VALUES[one]() for one in arguments))
        return getattr(self.ledger, operation)(*arguments)

    def step(self, operation):
        """Run it and tell everything that can be seen of it."""
        self.world.log.clear()
        try:
            outcome = ("value", shown(self.run(*operation)))
        except BaseException as error:
            outcome = ("error", *told(error), *told(error.__context__), *told(error.__cause__))
        return outcome, list(self.world.log), self.seen()

    def seen(self):
        ledger = self.ledger
        queue = ledger._backtest_boundary_queue
        back = ledger._backtest_acknowledgement_queues
        return {
            "states": [(key, list(state.items())) for key, state in shown(ledger._states).items()],
            "kinds": [
                [type(value) for value in state.values()] for state in ledger._states.values()
            ],
            "current": list(ledger._current_attempt.items()),
            "graphs": shown(ledger._graphs),
            "boundary": queue and [shown(message) for message in queue.messages],
            "back": back and [
                (index, one.name, shown(list(one.messages))) for index, one in back.items()
            ],
            "rows": shown(self.world.rows),
            "markers": dict(self.world.markers),
        }


def told(error):
    """What an error tells: its type and its arguments."""
    return (type(error), shown(error.args) if error is not None else None)


@pytest.fixture
def sides(genetic, monkeypatch):
    """Makes the two sides and lets them take turns at being the module's host."""
    plain_attempts.bind(genetic)

    def step(side, operation):
        with monkeypatch.context() as patch:
            for module in (genetic, plain_attempts):
                patch.setattr(module, "_engine", side.world.engine)
                patch.setattr(module, "_process_evaluation", side.world.process_evaluation)
            side.world.bind_imports(patch)
            return side.step(operation)

    def make(batch, host):
        own = types.SimpleNamespace(record=genetic._record_process_candidate_result_in_parent)
        plain = types.SimpleNamespace(
            record=plain_attempts.record_process_candidate_result_in_parent
        )
        return (
            Side(genetic._ProcessAttemptLedger, own, batch, host),
            Side(plain_attempts.PlainLedger, plain, batch, host),
        )

    return types.SimpleNamespace(make=make, step=step)


def two_graphs():
    return [(0, {"node": "a"}), ("1", {"node": "b"})]


@settings(
    max_examples=1000, deadline=None,
    suppress_health_check=[HealthCheck.function_scoped_fixture, HealthCheck.too_slow],
)
@given(
    operations=st.lists(OPERATIONS, max_size=14),
    prepared=st.booleans(),
    host=st.tuples(failures, missing, identities),
)
def test_both_ledgers_answer_alike(sides, operations, prepared, host):
    own, plain = sides.make(two_graphs, host)
    if prepared:
        operations = [("prepare_for_processes",), *operations]
    for operation in operations:
        assert sides.step(own, operation) == sides.step(plain, operation), operation


@settings(
    max_examples=300, deadline=None,
    suppress_health_check=[HealthCheck.function_scoped_fixture],
)
@given(
    batch=st.one_of(
        st.lists(st.tuples(indexes, values), max_size=4),
        st.lists(st.sampled_from(((0,), (0, 1, 2), 5, "ab", None)), max_size=2),
        st.sampled_from((None, 5, {"ab": 1}, "ab")),
    )
)
def test_both_ledgers_begin_alike(genetic, batch):
    def begun(make):
        try:
            ledger = make(Thing("context"), batch)
        except Exception as error:
            return told(error)
        return list(vars(ledger).items())[1:], ledger._ctx.name

    assert begun(genetic._ProcessAttemptLedger) == begun(plain_attempts.PlainLedger)


# Functions without a ledger.


def compare_functions(genetic, monkeypatch, name, plain_name, host, arguments):
    outcomes = []
    for module, function in ((genetic, name), (plain_attempts, plain_name)):
        side = Side(lambda *args: None, None, list, host)
        side.ledger = None
        with monkeypatch.context() as patch:
            for one in (genetic, plain_attempts):
                patch.setattr(one, "_engine", side.world.engine)
            side.world.bind_imports(patch)
            try:
                outcome = shown(getattr(module, function)(*arguments(side.world)))
            except BaseException as error:
                outcome = (*told(error), *told(error.__context__))
        outcomes.append((outcome, side.world.log))
    assert outcomes[0] == outcomes[1]


@settings(
    max_examples=400, deadline=None,
    suppress_health_check=[HealthCheck.function_scoped_fixture],
)
@given(host=st.tuples(failures, missing, identities), index=indexes, graph=values)
def test_both_create_alike(genetic, monkeypatch, host, index, graph):
    compare_functions(
        genetic, monkeypatch, "_create_process_attempt", "create_process_attempt", host,
        lambda world: (world.context, index, VALUES[graph]()),
    )


@settings(
    max_examples=400, deadline=None,
    suppress_health_check=[HealthCheck.function_scoped_fixture],
)
@given(
    host=st.tuples(failures, missing, identities), reason=values, detail=values,
    given_flags=st.tuples(flags, flags, flags), verdict=st.sampled_from(("good", None, 5)),
)
def test_both_end_and_describe_alike(
    genetic, monkeypatch, host, reason, detail, given_flags, verdict
):
    dispatched, started, cancelled = given_flags
    monkeypatch.setattr(
        genetic, "_end", lambda *args: genetic._finalize_process_failure_attempt(
            *args, dispatched=dispatched, backtest_started=started, cancelled=cancelled
        ), raising=False,
    )
    monkeypatch.setattr(
        plain_attempts, "end", lambda *args: plain_attempts.finalize_process_failure_attempt(
            *args, dispatched=dispatched, backtest_started=started, cancelled=cancelled
        ), raising=False,
    )

    def ending(world):
        if verdict != "good":
            world.verdicts.not_evaluated_verdict = lambda: verdict
        return world.context, "id", VALUES[reason](), VALUES[detail]()

    compare_functions(genetic, monkeypatch, "_end", "end", host, ending)
    compare_functions(
        genetic, monkeypatch, "_process_attempt_evidence", "process_attempt_evidence", host,
        lambda world: (world.context, VALUES[reason](), VALUES[detail](), *given_flags),
    )
    compare_functions(
        genetic, monkeypatch, "_process_attempt_blocker", "process_attempt_blocker", host,
        lambda world: (VALUES[reason](), VALUES[detail](), *given_flags),
    )


@settings(
    max_examples=600, deadline=None,
    suppress_health_check=[HealthCheck.function_scoped_fixture],
)
@given(
    host=st.tuples(failures, missing, identities), description=events(("started", "ok", None)),
    better=st.booleans(),
)
def test_both_open_markers_alike(genetic, monkeypatch, host, description, better):
    def opening(world):
        if better:
            world.context._held["_metaparams_for_db"] = {"better": 1}
        return world.context, event_of(description)

    compare_functions(
        genetic, monkeypatch, "_write_parent_process_evaluation_attempt_marker",
        "write_parent_process_evaluation_attempt_marker", host, opening,
    )


def test_the_worlds_log_shows_what_was_read(genetic):
    world = World()
    assert isinstance(world.context, Namespace) and world.context._tracker is world.tracker
    assert world.log == [("read", "context", "_tracker")]
