"""The program from outside: starting it, and reading what it wrote.

The program named by the variable GENETIC_SEARCH runs on a small synthetic price file. Its store is
read with a client of its own.
"""

from __future__ import annotations

import json
import os
import re
import sqlite3
import subprocess
import time
from pathlib import Path

PROGRAM = os.environ["GENETIC_SEARCH"]
PATIENCE_SECONDS = 120
METRICS = {
    "batch_size", "process_count", "candidate_count", "generated_graph_count",
    "unique_graph_count", "duplicate_graph_count", "unique_ratio", "seed",
    "improvement_round_count", "terminal_reason", "failure_count", "elapsed_simulation_seconds",
    "determinism_metadata", "results_digest",
}
# So that something passes within a few candidates of noise.
NO_GATES = (
    "--min-sharpe=-100", "--min-gross-sharpe=-100", "--max-turnover=100", "--max-net-exposure=100",
    "--min-gross-exposure=0",
)


def call(*arguments: str | Path, **more) -> subprocess.CompletedProcess:
    return subprocess.run(
        [PROGRAM, *map(str, arguments)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
        check=False, timeout=PATIENCE_SECONDS, **more,
    )


def start(*arguments: str | Path, **more) -> subprocess.Popen:
    return subprocess.Popen(
        [PROGRAM, *map(str, arguments)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.PIPE, text=True, **more,
    )


def events(text: str) -> list[dict]:
    def refuse(word: str) -> None:
        raise AssertionError(f"{word} is no JSON")

    return [json.loads(line, parse_constant=refuse) for line in text.splitlines()]


def rows(database: Path, query: str) -> list[tuple]:
    connection = sqlite3.connect(f"file:{database}?mode=ro", uri=True)
    try:
        return connection.execute(query).fetchall()
    finally:
        connection.close()


def assert_ended_well(database: Path, reason: str) -> None:
    """One run that has ended for that reason, and one metrics record that says the same."""
    assert rows(database, "SELECT terminal_reason FROM runs") == [(reason,)]
    ((record,),) = rows(database, "SELECT record FROM metrics")
    assert json.loads(record)["terminal_reason"] == reason


def children_of(process: int) -> list[int]:
    """The processes whose parent is that one now."""
    found = []
    for status in Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = status.read_text().rsplit(")", 1)[1].split()
        except (OSError, IndexError):
            continue
        if int(fields[1]) == process:
            found.append(int(status.parent.name))
    return found


def is_alive(process: int) -> bool:
    """Whether it runs; one that has ended and was not waited for does not."""
    try:
        status = Path(f"/proc/{process}/stat").read_text()
    except OSError:
        return False
    return status.rsplit(")", 1)[1].split()[0] != "Z"


def wait_until(holds, what: str) -> None:
    limit = time.monotonic() + PATIENCE_SECONDS
    while not holds():
        assert time.monotonic() < limit, what
        time.sleep(0.01)


def a_run(tmp_path: Path, prices: Path, *more: str | Path) -> tuple[Path, str]:
    """A small run in which signals of noise pass, and what it told."""
    store = tmp_path / "runs.db"
    ended = call(
        "run", "--prices", prices, "--db", store, "--generations", "3", "--batch-size", "8",
        "--seed", "5", *NO_GATES, *more,
    )
    assert ended.returncode == 0, ended.stderr
    return store, ended.stdout


def table(text: str, heading: str) -> list[dict[str, str]]:
    """The rows of the table below the line that begins with `heading`."""
    lines = text[text.index(heading):].splitlines()[1:]
    names = re.split(r"  +", lines[0].strip())
    found = []
    for line in lines[1:]:
        cells = re.split(r"  +", line.strip(), maxsplit=len(names) - 1)
        if len(cells) != len(names):
            break
        found.append(dict(zip(names, cells)))
    return found


def folder_of(path: Path) -> dict[str, bytes]:
    """The files but for what SQLite's readers, that of this test among them, share."""
    found = {file.name: file.read_bytes() for file in path.iterdir() if file.is_file()}
    return {
        name: content for name, content in found.items()
        if not name.endswith("-shm") and not (name.endswith("-wal") and not content)
    }


def submitted_ids(store: Path) -> list[str]:
    return [
        row[0] for row in rows(
            store,
            "SELECT eval_id FROM submissions WHERE state = 'submitted' ORDER BY settled_order",
        )
    ]
