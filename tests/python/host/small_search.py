"""A search on real processes: a tracker in SQLite, and a context whose graphs say what goes wrong.

A graph with a key "fault" has its evaluation end in that way, at the stage that "at" names:
"before" the backtest is announced, in the "backtest", or "after" it, when the record is made. With
"once", it happens in the first evaluation of that graph only.
"""

import faulthandler
import json
import os
import signal
import sqlite3
import time
from types import SimpleNamespace

from varnholt.search_templates import _engine

SCHEMA = """
CREATE TABLE attempts (
    id INTEGER PRIMARY KEY, graph TEXT, rotation TEXT, state TEXT, disposition TEXT, reason TEXT,
    detail TEXT, ends INTEGER DEFAULT 0
);
CREATE TABLE events (attempt INTEGER, event TEXT);
CREATE TABLE evaluations (
    id INTEGER PRIMARY KEY, graph TEXT, passed INTEGER, reason TEXT, attempt INTEGER
);
CREATE TABLE submissions (evaluation INTEGER);
CREATE TABLE markers (id INTEGER PRIMARY KEY, graph TEXT, is_open INTEGER);
"""


class SqliteTracker:
    """The store. It belongs to the process that made it, and refuses every other."""

    def __init__(self, path):
        self._owner = os.getpid()
        self._database = sqlite3.connect(path, isolation_level=None)
        self._database.executescript(SCHEMA)

    def execute(self, statement, *values):
        if os.getpid() != self._owner:
            raise AssertionError("a child writes into the store")
        return self._database.execute(statement, values)

    def rows(self, statement, *values):
        return self.execute(statement, *values).fetchall()

    def create_simulation_attempt(self, *, graph, rotation_identifier, **others):
        attempt = self.execute(
            "INSERT INTO attempts (graph, rotation, state) VALUES (?, ?, 'created')",
            json.dumps(graph), rotation_identifier,
        ).lastrowid
        self._note(attempt, "created")
        return attempt

    def mark_simulation_attempt_dispatched(self, attempt):
        self._note(attempt, "dispatched")

    def mark_simulation_attempt_backtest_started(self, attempt):
        self._note(attempt, "started")

    def finalize_simulation_attempt(
        self, attempt, *, terminal_disposition, failure_reason=None, failure_detail=None, **others
    ):
        self.execute(
            "UPDATE attempts SET disposition = ?, reason = ?, detail = ?, ends = ends + 1"
            " WHERE id = ?",
            terminal_disposition, failure_reason, failure_detail, attempt,
        )
        self._note(attempt, "ended")

    def _note(self, attempt, event):
        self.execute("UPDATE attempts SET state = ? WHERE id = ?", event, attempt)
        self.execute("INSERT INTO events VALUES (?, ?)", attempt, event)

    def open_marker(self, graph, phase):
        return self.execute(
            "INSERT INTO markers (graph, is_open) VALUES (?, 1)", json.dumps(graph)
        ).lastrowid

    def close_marker(self, marker):
        self.execute("UPDATE markers SET is_open = 0 WHERE id = ?", marker)

    def record(self, graph, passed, reason, attempt):
        return self.execute(
            "INSERT INTO evaluations (graph, passed, reason, attempt) VALUES (?, ?, ?, ?)",
            json.dumps(graph), passed, reason, attempt,
        ).lastrowid


class SearchContext:
    """The context of one search. `folder` is where evaluations leave notes for the parent."""

    _product_run_id = 1
    _era_number = 2
    _market_id = 3
    _named_universe = "all"
    _attempt_expected_columns = ("close", "volume")
    market_id = 3

    def __init__(self, folder, *, jobs=2, **attributes):
        self._folder = folder
        self._tracker = SqliteTracker(folder / "store.db")
        self._sync_mgr = SimpleNamespace(request_for_sync=lambda: ["found.pnl"])
        self._template_evaluation_state = SimpleNamespace(attempt_id=None)
        self._thresholds = {"sharpe": 1.0}
        self._n_jobs = jobs
        self._activated = None
        self.cancelled = False
        self.metrics = []
        self.__dict__.update(attributes)

    # What only the parent calls.

    def _submission_cancelled(self):
        return self.cancelled or (self._folder / "cancel").exists()

    def _activate_existing_attempt(self, attempt, evidence):
        self._activated = attempt

    def _safe_record(self, graph, passed, *, rejection_reason=None, **others):
        attempt, self._activated = self._activated, None
        if attempt is not None:
            self._tracker.finalize_simulation_attempt(
                attempt, terminal_disposition="completed", failure_reason=rejection_reason
            )
        self._last_evaluation_record = {"recording_succeeded": True}
        return self._tracker.record(graph, passed, rejection_reason, attempt)

    def _enqueue_deferred_submission_payload(self, payload):
        self._tracker.execute("INSERT INTO submissions VALUES (?)", payload["eval_id"])

    def record_search_run_metrics(self, **metrics):
        self.metrics.append(metrics)

    # What a child calls.

    def _current_attempt_evidence(self):
        return {
            "attempt_id": self._template_evaluation_state.attempt_id,
            "backtest_started": False,
        }

    def _evaluate_for_template(self, graph):
        self._stage("before", graph)
        _engine._write_evaluation_attempt_marker(self._tracker, graph, None, {}, "build")
        _engine._write_evaluation_attempt_marker(self._tracker, graph, None, {}, "run_backtest")
        evidence = {
            "attempt_id": self._template_evaluation_state.attempt_id, "backtest_started": True,
        }
        self._stage("backtest", graph)
        evidence["backtest_completed"] = True
        passed = bool(graph.get("passes", True))
        assert self._sync_mgr.request_for_sync() == ("found.pnl",)
        self._safe_record(graph, passed, rejection_reason=None if passed else "low")
        self._stage("after", graph)
        return {
            "record": dict(self._last_evaluation_record),
            "submission_payloads": [{"graph": graph}] if passed else [],
            "attempt_evidence": evidence,
        }

    def _stage(self, stage, graph):
        if graph.get("at") != stage:
            return
        if graph.get("once"):
            note = self._folder / f"done-{graph['node']}"
            if note.exists():
                return
            note.touch()
        FAULTS[graph["fault"]](self)


def _die_of(signal_number):
    faulthandler.disable()  # A child that is meant to crash fills no screen with its stack.
    os.kill(os.getpid(), signal_number)


def _interrupt(ctx):
    os.kill(os.getppid(), signal.SIGINT)
    time.sleep(60)


def _cancel(ctx):
    (ctx._folder / "cancel").touch()
    time.sleep(60)


def _exhaust(ctx):
    """Take memory until there is none."""
    held = []
    while True:
        held.append(bytearray(1 << 24))


def _fail(ctx):
    raise ValueError("the evaluator failed")


def _write(ctx):
    ctx._tracker.record({}, True, None, None)


def _enqueue(ctx):
    ctx._enqueue_deferred_submission_payload({})


def _report(ctx):
    ctx.record_search_run_metrics(seed=1)


FAULTS = {
    "kill": lambda ctx: _die_of(signal.SIGKILL),
    "segfault": lambda ctx: _die_of(signal.SIGSEGV),
    "abort": lambda ctx: _die_of(signal.SIGABRT),
    "exit": lambda ctx: os._exit(3),
    "leave": lambda ctx: os._exit(0),
    "stop": lambda ctx: os.kill(os.getpid(), signal.SIGSTOP),
    "hang": lambda ctx: time.sleep(60),
    "exhaust": _exhaust,
    "raise": _fail,
    "quit": lambda ctx: exec("raise SystemExit(4)"),
    "write": _write,
    "enqueue": _enqueue,
    "report": _report,
    "interrupt": _interrupt,
    "cancel": _cancel,
}
