"""A run on a store that refuses: it ends, says why, and leaves nothing half-written.

Real limits and permissions; afterwards the independent reader looks for violations, and the next
run on the same store goes on.
"""

from __future__ import annotations

import os
import resource
import shutil
import signal
import sys
import tempfile
from pathlib import Path

import pytest

from program import NO_GATES, call, rows, start, wait_until

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


def test_a_run_that_is_killed_loses_nothing(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = start(
        "run", "--prices", prices, "--db", store, "--batch-size", "8", "--seed", "5", *NO_GATES
    )

    def has_recorded() -> bool:
        try:
            return rows(store, "SELECT count(*) FROM evaluations WHERE passed = 1")[0][0] > 20
        except Exception:  # The file or its tables are not there yet.
            return False

    wait_until(has_recorded, "the run records nothing")
    process.kill()
    process.communicate()
    goes_on = run_on(store, prices, "--generations", "1")
    assert goes_on.returncode == 0, goes_on.stderr
    assert violations(store) == []
    assert rows(store, "SELECT count(*) FROM announced_submissions") == [(0,)]
    unsettled = rows(store, "SELECT count(*) FROM submissions WHERE state = 'queued'")
    assert unsettled == [(0,)], "what the dead run owed is settled by the next one"
