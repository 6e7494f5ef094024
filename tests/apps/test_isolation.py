"""Candidates with a process each, and candidates that share one.

Goal: which of the two a run has shows in nothing but times and processes, and a run that shares
processes ends as well as any when it is interrupted.
Method: the same search with both, and what their stores hold side by side; signals, while a worker
is held in the middle of its candidates.
"""

from __future__ import annotations

import json
import signal
from pathlib import Path

import pytest

from program import (
    NO_GATES, PATIENCE_SECONDS, assert_ended_well, call, children_of, rows, start, wait_until,
)

# What tells when and where, and what is numbered in the order in which workers came by.
PASSING = {
    "runs": {
        "started_at", "ended_at", "process_id", "process_started", "settings", "boot_id",
    },
    "evaluations": {"id", "elapsed_seconds", "worker_pid", "recorded_at"},
    "attempts": {"id"},
    "submissions": {"id", "payload", "queued_at", "settled_at"},
    "signal_figures": set(),
    "member_measures": {"submission_id", "measured_at"},
    "price_days": set(),
}


def lasting(store: Path, table: str) -> list[tuple]:
    names = [name for _, name, *_ in rows(store, f"PRAGMA table_info({table})")]
    kept = ", ".join(name for name in names if name not in PASSING[table])
    return sorted(rows(store, f"SELECT {kept} FROM {table}"), key=repr)


def search(folder: Path, prices: Path, isolation: str, jobs: int) -> Path:
    store = folder / f"{isolation}-{jobs}.db"
    ended = call(
        "run", "--prices", prices, "--db", store, "--batch-size", "20", "--generations", "2",
        "--seed", "5", "--jobs", jobs, "--isolation", isolation, "--quiet", *NO_GATES,
    )
    assert ended.returncode == 0, ended.stderr
    return store


def test_both_leave_the_same_store(tmp_path: Path, prices: Path):
    single = search(tmp_path, prices, "candidate", 1)
    # A repeat that is told before its backtest names no process.
    processes = "SELECT count(DISTINCT worker_pid), count(worker_pid) FROM evaluations"
    assert len(set(rows(single, processes)[0])) == 1, "a process each"
    assert rows(single, "SELECT count(*) FROM attempts")[0][0] >= 40
    for jobs in (1, 4):
        shared = search(tmp_path, prices, "chunk", jobs)
        used, candidates = rows(shared, processes)[0]
        assert used < candidates / 2, "processes are shared"
        for table in PASSING:
            assert lasting(shared, table) == lasting(single, table), table
        steps = "SELECT step, count(*) FROM attempt_events GROUP BY step ORDER BY step"
        assert rows(shared, steps) == rows(single, steps)
        told = "SELECT settings FROM runs"
        assert json.loads(rows(shared, told)[0][0])["isolation"] == "chunk"


def searching(store: Path, prices: Path):
    return start(
        "run", "--prices", prices, "--db", store, "--batch-size", "64", "--isolation", "chunk",
        "--quiet",
    )


@pytest.mark.parametrize("which", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_ends_it_in_good_order(tmp_path: Path, prices: Path, which: signal.Signals):
    store = tmp_path / "runs.db"
    process = searching(store, prices)
    wait_until(
        lambda: store.exists() and children_of(process.pid), "no worker was forked"
    )
    process.send_signal(which)
    _, errors = process.communicate(timeout=PATIENCE_SECONDS)
    assert process.returncode == 0, errors
    assert_ended_well(store, "stopped")
    assert rows(store, "SELECT count(*) FROM attempts WHERE terminal_disposition IS NULL") == [(0,)]


def test_two_signals_end_it_at_once_with_no_child_left(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = searching(store, prices)
    wait_until(lambda: store.exists() and children_of(process.pid), "no worker was forked")
    # Both are waiting when the program goes on, so that it cannot end in between.
    process.send_signal(signal.SIGSTOP)
    workers = children_of(process.pid)
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGCONT):
        process.send_signal(number)
    process.communicate(timeout=PATIENCE_SECONDS)
    assert process.returncode == 130
    wait_until(
        lambda: not any(Path(f"/proc/{worker}").exists() for worker in workers), "a worker is left"
    )
    assert rows(store, "SELECT terminal_reason FROM runs") == [("interrupted",)]


def test_a_killed_search_leaves_no_worker(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = searching(store, prices)
    wait_until(lambda: store.exists() and children_of(process.pid), "no worker was forked")
    process.send_signal(signal.SIGSTOP)
    workers = children_of(process.pid)
    process.kill()
    process.communicate(timeout=PATIENCE_SECONDS)
    wait_until(
        lambda: not any(Path(f"/proc/{worker}").exists() for worker in workers), "a worker is left"
    )
    # The next run on the store puts it in order.
    ended = call(
        "run", "--prices", prices, "--db", store, "--batch-size", "4", "--generations", "1",
        "--isolation", "chunk", "--quiet",
    )
    assert ended.returncode == 0, ended.stderr
    assert rows(store, "SELECT count(*) FROM attempts WHERE terminal_disposition IS NULL") == [(0,)]
