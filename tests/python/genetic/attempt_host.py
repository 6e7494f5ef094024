"""A host of attempts that writes down whatever is asked of it, and fails when it is told to.

Every read of a context's attribute, every look-up of an operation and every call is a line in the
world's log, so that two ledgers can be compared by what their hosts saw.
"""

import itertools
import sys
import types
from collections import deque

import pytest

CROSSED = "finalized process state crossed the backtest boundary"

# A fresh state of an attempt.
EMPTY = {
    "attempt_id": None, "dispatched": False, "worker_started": False, "backtest_started": False,
    "finalized": False, "failure_reason": None, "failure_detail": None, "marker_attempt_id": None,
}
# What the host is asked when an attempt's backtest starts, and when an attempt ends.
STARTING = [
    "_attempt_declared_data_shape", "create_simulation_attempt",
    "mark_simulation_attempt_dispatched", "mark_simulation_attempt_backtest_started",
]
ENDING = [
    "not_evaluated_verdict", "build_column_inventory", "json_ready", "finalize_simulation_attempt",
]


def shown(value):
    """A form of the value that two worlds share: objects of the world by their name."""
    if isinstance(value, (Thing, Namespace)):
        return repr(value)
    if isinstance(value, dict):
        return {key: shown(item) for key, item in value.items()}
    if isinstance(value, (tuple, list)):
        return type(value)(map(shown, value))
    if isinstance(value, BaseException):
        return f"{type(value).__name__}{value.args}"
    return value


class Thing:
    """An object of which only its identity matters."""

    def __init__(self, name):
        self.name = name

    def __repr__(self):
        return f"<{self.name}>"


class HostError(Exception):
    """What an operation of the host fails with."""


class Namespace:
    """An object whose attributes are looked up in a log."""

    def __init__(self, world, name, **attributes):
        self.__dict__.update(_world=world, _name=name, _held=attributes)

    def __repr__(self):
        return f"<{self._name}>"

    def __getattr__(self, name):
        self._world.log.append(("read", self._name, name))
        try:
            return self._held[name]
        except KeyError:
            raise AttributeError(f"{self._name} has no {name}") from None


class Reader:
    def __init__(self, world, messages):
        self._world = world
        self._messages = messages

    def poll(self):
        self._world.call("poll")
        return len(self._messages)


class Queue:
    """A queue without processes: what is put is there to be got."""

    def __init__(self, world, name):
        self._world = world
        self.name = name
        self.messages = deque()
        self._reader = Reader(world, self.messages)

    def put(self, message):
        self._world.call("put", self.name, message)
        self.messages.append(message)

    def get(self):
        self._world.call("get", self.name)
        return self.messages.popleft()


class World:
    """Context, tracker, engine and pool of one ledger, with one log.

    `failures` maps the number of a call to (exception, whether the call takes effect before).
    """

    def __init__(self, failures=None, without=(), identities=None):
        self.log = []
        self.rows = {}
        self.markers = {}
        self.cancelled = False
        self.recorded = True
        self._failures = failures or {}
        self._calls = itertools.count()
        self._identities = iter(identities) if identities else itertools.count(100)
        self._queues = itertools.count()
        self.tracker = Namespace(self, "tracker", **{
            name: self.operation(name, effect)
            for name, effect in (
                ("create_simulation_attempt", self._create),
                ("mark_simulation_attempt_dispatched", self._mark("dispatched")),
                ("mark_simulation_attempt_backtest_started", self._mark("started")),
                ("finalize_simulation_attempt", self._finalize),
            )
        })
        self.engine = Namespace(self, "engine", **{
            name: self.operation(name, effect)
            for name, effect in (
                ("_write_evaluation_attempt_marker", self._open_marker),
                ("_clear_evaluation_attempt_marker", self._close_marker),
                ("_attempt_declared_data_shape", lambda columns: ("shape", columns)),
            )
        })
        self.process_evaluation = Namespace(
            self, "process_evaluation", TERMINAL_WORKER_TIMEOUT="worker_timeout",
            _fork_context=self.operation("_fork_context", lambda: types.SimpleNamespace(
                SimpleQueue=self.operation("SimpleQueue", self._queue)
            )),
        )
        attributes = {
            "_tracker": self.tracker,
            "_product_run_id": ("run", 1),
            "_era_number": 12,
            "_market_id": "market",
            "_attempt_expected_columns": ("a", "b"),
            "_thresholds": {"sharpe": 1.0},
            "_named_universe": "universe",
            "_metaparameters": {"m": 1},
            "_submission_cancelled": self.operation(
                "_submission_cancelled", lambda: self.cancelled
            ),
            "_safe_record": self.operation(
                "_safe_record", lambda *args, **keywords: "id" if self.recorded else None
            ),
            "_last_evaluation_record": None,
        }
        for name in without:
            del attributes[name]
        self.context = Namespace(self, "context", **attributes)
        self.accounting = types.SimpleNamespace(
            build_column_inventory=self.operation(
                "build_column_inventory", lambda columns, stats: [columns, dict(stats)]
            ),
            json_ready=self.operation("json_ready", lambda value: {"ready": value}),
        )
        self.verdicts = types.SimpleNamespace(
            not_evaluated_verdict=self.operation(
                "not_evaluated_verdict", lambda: {"status": "not_evaluated"}
            )
        )

    def bind(self, module, monkeypatch):
        """Make this world the module's host."""
        monkeypatch.setattr(module, "_engine", self.engine)
        monkeypatch.setattr(module, "_process_evaluation", self.process_evaluation)
        self.bind_imports(monkeypatch)

    def bind_imports(self, monkeypatch):
        monkeypatch.setitem(sys.modules, "varnholt.simulation.attempt_accounting", self.accounting)
        monkeypatch.setitem(sys.modules, "varnholt.simulation.evaluation_verdicts", self.verdicts)

    def call(self, name, *args, **keywords):
        """Write a call down; fail when it is this call's turn. Returns whether to fail later."""
        number = next(self._calls)
        self.log.append((name, shown(args), shown(keywords)))
        error, takes_effect = self._failures.get(number, (None, False))
        if error is not None and not takes_effect:
            raise error
        return error

    def operation(self, name, effect):
        def run(*args, **keywords):
            error = self.call(name, *args, **keywords)
            answer = effect(*args, **keywords)
            if error is not None:
                raise error
            return answer

        return run

    @property
    def called(self):
        """The names of the calls, without look-ups and the queues' own."""
        return [line[0] for line in self.log if line[0] not in ("read", "poll", "get", "put")]

    def _create(self, **keywords):
        identity = next(self._identities)
        self.rows[identity] = ["created"]
        return identity

    def _mark(self, mark):
        return lambda attempt_id: self.rows.setdefault(attempt_id, []).append(mark)

    def _finalize(self, attempt_id, **keywords):
        self.rows.setdefault(attempt_id, []).append(keywords["terminal_disposition"])

    def _open_marker(self, tracker, graph, named_universe, metaparameters, phase):
        identity = f"marker-{len(self.markers)}"
        self.markers[identity] = "open"
        return identity

    def _close_marker(self, tracker, marker_attempt_id):
        self.markers[marker_attempt_id] = "closed"

    def _queue(self):
        return Queue(self, f"queue-{next(self._queues)}")


class Item:
    """A work item of the pool."""

    def __init__(self, graph):
        self.graph = graph
        self.metadata = {}


def dispatch(index=0, attempt=0, candidate=None):
    return {
        "candidate_index": index, "attempt": attempt,
        "candidate": candidate or Item({"node": "g"}),
    }


def happened(name, index=0, attempt=0, **others):
    return {"event": name, "candidate_index": index, "attempt": attempt, **others}


@pytest.fixture
def world(genetic, monkeypatch):
    made = World()
    made.bind(genetic, monkeypatch)
    return made


@pytest.fixture
def ledger(genetic, world):
    """A ledger of two candidates, prepared for processes."""
    made = genetic._ProcessAttemptLedger(world.context, [(0, {"node": "a"}), (1, {"node": "b"})])
    made.prepare_for_processes()
    world.log.clear()
    return made


def signal(ledger, *message):
    """A child's signal."""
    ledger._backtest_boundary_queue.messages.append(message)


def answers(ledger, index=0):
    """What a candidate's children were answered."""
    return list(ledger._backtest_acknowledgement_queues[index].messages)


def error_of(call, *args, **keywords):
    with pytest.raises(Exception) as caught:
        call(*args, **keywords)
    return caught.value


def started(ledger, index=0, attempt=0):
    """The state of an attempt whose child has reached its backtest."""
    ledger.pre_dispatch(dispatch(index, attempt))
    signal(ledger, index, attempt)
    ledger.poll_backtest_boundaries()
    return ledger._states[(index, attempt)]
