"""A run on a store that refuses: it ends, says why, and leaves nothing half-written.

Real limits and permissions; afterwards the independent reader looks for violations, and the next
run on the same store goes on.
"""

from __future__ import annotations

import json
import os
import random
import resource
import shutil
import signal
import sqlite3
import sys
import tempfile
import time
from pathlib import Path

import pytest

from program import NO_GATES, call, children_of, is_alive, rows, start, wait_until

sys.path.insert(0, str(Path(__file__).parents[1] / "support"))
from store_invariants import violations  # noqa: E402

NOBODY = 65534


def run_on(store: Path, prices: Path, *more: str, **how):
    return call(
        "run", "--prices", prices, "--db", store, "--batch-size", "8", "--seed", "5", *NO_GATES,
        *more, **how,
    )


def limit_file_size(size: int):
    def limited() -> None:
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))

    return limited


@pytest.mark.parametrize("isolation", ["candidate", "chunk"])
def test_a_disk_that_refuses_ends_the_run(tmp_path: Path, prices: Path, isolation: str):
    store = tmp_path / "runs.db"
    ended = run_on(
        store, prices, "--generations", "500", "--isolation", isolation,
        preexec_fn=limit_file_size(1_500_000),  # The first results have room in it.
    )
    assert ended.returncode == 1, ended.stdout
    assert "the disk refused; check its free space" in ended.stderr
    assert rows(store, "SELECT count(*) FROM evaluations")[0][0] > 0

    goes_on = run_on(store, prices, "--generations", "1")
    assert goes_on.returncode == 0, goes_on.stderr
    assert violations(store) == []
    assert rows(store, "SELECT count(*) FROM runs WHERE ended_at IS NULL") == [(0,)]


@pytest.mark.parametrize("what", ["fifo", "device", "folder"])
def test_a_store_is_a_file(tmp_path: Path, prices: Path, what: str):
    store = tmp_path / "runs.db"
    if what == "fifo":
        os.mkfifo(store)
    elif what == "folder":
        store.mkdir()
    else:
        store = Path("/dev/null")
    for ended in (
        run_on(store, prices, "--generations", "1"), call("signals", store),
        call("show", store, "1-1"), call("attempts", store),
    ):
        assert ended.returncode == 2 and ended.stdout == ""
        assert ended.stderr.startswith(f"genetic-search: store {store}: ")
        assert ended.stderr.count("\n") == 1


def test_a_new_store_is_for_its_owner_alone(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    assert run_on(store, prices, "--generations", "1", umask=0).returncode == 0
    assert store.stat().st_mode & 0o777 == 0o600


def test_a_limit_of_file_size_ends_no_program_by_its_signal(tmp_path: Path, prices: Path):
    """The signal has its default action when the program starts."""
    store = tmp_path / "runs.db"
    limit = 300_000

    def limited() -> None:
        signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

    ended = run_on(store, prices, "--generations", "500", preexec_fn=limited)
    assert ended.returncode == 1
    assert "the disk refused; check its free space, quotas, limits of file size" in ended.stderr
    assert run_on(store, prices, "--generations", "1").returncode == 0
    assert violations(store) == []
    new = tmp_path / "new.db"
    limit = 1000
    ended = run_on(new, prices, "--generations", "1", preexec_fn=limited)
    assert ended.returncode == 1 and "the disk refused" in ended.stderr
    assert not list(tmp_path.glob("new.db*"))


def during_a_run(store: Path, prices: Path, change) -> tuple[int, str, int]:
    """Exit code, errors, and how many candidates were told as recorded."""
    process = start(
        "run", "--prices", prices, "--db", store, "--batch-size", "8", "--json", *NO_GATES
    )
    told = 0
    for line in process.stdout:
        told += json.loads(line)["event"] == "recorded"
        if json.loads(line)["event"] == "generation":
            break
    kept = change()
    output, errors = process.communicate()
    del kept
    assert '"event":"ended"' not in output
    told += output.count('"event":"recorded"')
    return process.returncode, errors, told


def test_a_store_that_is_moved_during_a_run_is_noticed(tmp_path: Path, prices: Path):
    store, moved = tmp_path / "runs.db", tmp_path / "moved.db"
    code, errors, told = during_a_run(store, prices, lambda: store.rename(moved))
    assert code == 1 and errors.count("\n") == 1
    assert "was moved, removed or replaced while it was in use" in errors
    assert not store.exists()
    assert rows(moved, "SELECT count(*) FROM evaluations") == [(told,)]
    assert rows(moved, "PRAGMA integrity_check") == [("ok",)]


def test_a_second_name_of_a_store_is_noticed(tmp_path: Path, prices: Path):
    store, second = tmp_path / "runs.db", tmp_path / "second.db"
    code, errors, told = during_a_run(store, prices, lambda: second.hardlink_to(store))
    assert code == 1 and errors.count("\n") == 1 and "has 2 names (hard links)" in errors
    refused = run_on(second, prices, "--generations", "1")
    assert refused.returncode == 2 and "remove all names but one" in refused.stderr
    second.unlink()
    assert run_on(store, prices, "--generations", "1").returncode == 0
    assert rows(store, "SELECT count(*) FROM evaluations WHERE run_id = 1") == [(told,)]


def test_a_store_that_stays_locked_ends_the_run_with_one_error(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"

    def lock() -> sqlite3.Connection:
        connection = sqlite3.connect(store, isolation_level=None)
        connection.execute("BEGIN IMMEDIATE")
        return connection

    held = []
    code, errors, told = during_a_run(store, prices, lambda: held.append(lock()))
    assert code == 1 and errors.count("\n") == 1, errors
    assert "database is locked, for more than 5 seconds; " in errors
    assert f"process {os.getpid()} (" in errors or "another process holds it" in errors
    new = run_on(store, prices, "--generations", "1")
    assert new.returncode == 1 and "database is locked" in new.stderr, "no fault of the input"
    held.pop().close()
    assert run_on(store, prices, "--generations", "1").returncode == 0
    assert rows(store, "SELECT count(*) FROM evaluations WHERE run_id = 1") == [(told,)]


def test_where_no_worker_can_start_the_run_ends_with_one_error(prices: Path):
    if os.geteuid() != 0:
        pytest.skip("only the superuser can become somebody without processes")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        folder.chmod(0o777)
        readable = Path(shutil.copy(prices, folder / "prices.csv"))
        readable.chmod(0o644)

        def limited() -> None:
            resource.setrlimit(resource.RLIMIT_NPROC, (0, 0))

        ended = run_on(
            folder / "runs.db", readable, "--generations", "1", user=NOBODY, preexec_fn=limited,
            # Where the program is built with sanitizers: their look for leaks is a process too.
            env={**os.environ, "ASAN_OPTIONS": "detect_leaks=0"},
        )
        assert ended.returncode == 1 and ended.stderr.count("\n") == 1, ended.stdout
        assert "no worker can be started" in ended.stderr and "ulimit -u" in ended.stderr
        assert rows(folder / "runs.db", "SELECT terminal_reason FROM runs") == [("failed",)]
        assert rows(folder / "runs.db", "SELECT count(*) FROM evaluations") == [(0,)]
        assert violations(folder / "runs.db") == []


def test_a_store_that_cannot_be_written_is_refused(prices: Path):
    if os.geteuid() != 0:
        pytest.skip("only the superuser can become somebody who may not write")
    # Not in pytest's own folder, which nobody else may enter.
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        folder.chmod(0o755)
        store = folder / "runs.db"
        readable = Path(shutil.copy(prices, folder / "prices.csv"))
        readable.chmod(0o644)
        assert run_on(store, readable, "--generations", "1").returncode == 0
        before = store.read_bytes()
        store.chmod(0o444)
        refused = run_on(store, readable, "--generations", "1", user=NOBODY)
        assert refused.returncode == 2, refused.stdout
        assert f"store {store}: " in refused.stderr and "; check" in refused.stderr
        assert store.read_bytes() == before


# Three workers have so many candidates of a batch between them: one each, or sixteen.
@pytest.mark.parametrize(
    "isolation, batch_size, most_under_way", [("candidate", 8, 3), ("chunk", 64, 48)]
)
def test_runs_that_are_killed_at_any_moment_lose_nothing(
    tmp_path: Path, prices: Path, isolation: str, batch_size: int, most_under_way: int
):
    """Fifty kills on one store; each next run puts in order what the one before it left."""
    kills = int(os.environ.get("VARNHOLT_KILLS", "50"))
    seed = int(os.environ.get("VARNHOLT_KILL_SEED", str(time.time_ns() % 1_000_000)))
    print(f"VARNHOLT_KILLS={kills} VARNHOLT_KILL_SEED={seed}")
    moments = random.Random(seed)
    store = tmp_path / "runs.db"
    unfinished = 0
    for number in range(1, kills + 1):
        process = start(
            "run", "--prices", prices, "--db", store, "--batch-size", batch_size, "--jobs", "3",
            "--seed", number, "--isolation", isolation, *NO_GATES,
        )
        time.sleep(moments.uniform(0.0, 0.5))
        children = children_of(process.pid)
        process.kill()
        process.communicate()
        wait_until(lambda: not any(map(is_alive, children)), "a worker outlives its parent")
        if not store.exists() or rows(store, "SELECT count(*) FROM sqlite_schema") == [(0,)]:
            continue  # It was killed before it had a table.
        # The dead run stays open until the next one looks after it; all before it are in order.
        assert violations(store) == [], f"kill {number}"
        unfinished = max(unfinished, rows(
            store, "SELECT count(*) FROM attempts WHERE terminal_disposition IS NULL"
        )[0][0])
    goes_on = run_on(store, prices, "--generations", "1")
    assert goes_on.returncode == 0, goes_on.stderr
    assert violations(store) == []
    assert rows(store, "SELECT count(*) FROM runs WHERE ended_at IS NULL") == [(0,)]
    assert rows(store, "SELECT count(*) FROM announced_submissions") == [(0,)]
    unsettled = rows(store, "SELECT count(*) FROM submissions WHERE state = 'queued'")
    assert unsettled == [(0,)], "what the dead runs owed is settled by the next one"
    assert rows(store, "SELECT count(*) FROM evaluations")[0][0] > 0
    assert unfinished <= most_under_way, "more attempts were open than workers had candidates"
