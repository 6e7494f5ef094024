"""A run on a store that refuses: it ends, says why, and leaves nothing half-written.

Real limits and permissions; afterwards the independent reader looks for violations, and the next
run on the same store goes on.
"""

from __future__ import annotations

import os
import random
import resource
import shutil
import signal
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


def test_a_disk_that_refuses_ends_the_run(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    ended = run_on(store, prices, "--generations", "500", preexec_fn=limit_file_size(400_000))
    assert ended.returncode not in (0, -signal.SIGXFSZ), ended.stdout
    assert "the disk refused; check its free space" in ended.stderr
    assert rows(store, "SELECT count(*) FROM evaluations")[0][0] > 0

    goes_on = run_on(store, prices, "--generations", "1")
    assert goes_on.returncode == 0, goes_on.stderr
    assert violations(store) == []
    assert rows(store, "SELECT count(*) FROM runs WHERE ended_at IS NULL") == [(0,)]


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


def test_runs_that_are_killed_at_any_moment_lose_nothing(tmp_path: Path, prices: Path):
    """Fifty kills on one store; each next run puts in order what the one before it left."""
    kills = int(os.environ.get("VARNHOLT_KILLS", "50"))
    seed = int(os.environ.get("VARNHOLT_KILL_SEED", str(time.time_ns() % 1_000_000)))
    print(f"VARNHOLT_KILLS={kills} VARNHOLT_KILL_SEED={seed}")
    moments = random.Random(seed)
    store = tmp_path / "runs.db"
    unfinished = 0
    for number in range(1, kills + 1):
        process = start(
            "run", "--prices", prices, "--db", store, "--batch-size", "8", "--jobs", "3",
            "--seed", number, *NO_GATES,
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
    assert unfinished <= 3, "more attempts were open than there are workers"
