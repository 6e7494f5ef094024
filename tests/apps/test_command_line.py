"""genetic-search as its users meet it: arguments, files, pipes, a terminal, signals.

The program named by the variable GENETIC_SEARCH runs on a small synthetic price file that the
tests make. Its store is read with a client of its own. No test depends on how fast anything is:
those that interrupt a run wait for what it writes first.
"""

from __future__ import annotations

import fcntl
import json
import math
import os
import pty
import random
import re
import select
import signal
import sqlite3
import struct
import subprocess
import termios
import time
from pathlib import Path

import pytest

PROGRAM = os.environ["GENETIC_SEARCH"]
PATIENCE_SECONDS = 120
METRICS = {
    "batch_size", "process_count", "candidate_count", "generated_graph_count",
    "unique_graph_count", "duplicate_graph_count", "unique_ratio", "seed",
    "improvement_round_count", "terminal_reason", "failure_count", "elapsed_simulation_seconds",
    "determinism_metadata",
}
# So that something passes within a few candidates of noise.
NO_GATES = (
    "--min-sharpe=-100", "--min-gross-sharpe=-100", "--max-turnover=100", "--max-net-exposure=100",
    "--min-gross-exposure=0",
)


@pytest.fixture
def prices(tmp_path: Path) -> Path:
    """Random walks of five instruments over 150 weekdays, the last one without a first month."""
    generator = random.Random(7)
    path = tmp_path / "prices.csv"
    days = [f"2020-{month:02}-{day:02}" for month in range(1, 7) for day in range(1, 26)]
    rows = ["date,symbol,open,high,low,close,volume"]
    for name in ("AAA", "BBB", "CCC", "DDD", "EEE"):
        close = 100.0
        for day in days[25:] if name == "EEE" else days:
            opened, close = close, close * math.exp(generator.gauss(0.0005, 0.02))
            high, low = max(opened, close) * 1.01, min(opened, close) * 0.99
            volume = generator.randrange(1000, 9000)
            rows.append(f"{day},{name},{opened:.4f},{high:.4f},{low:.4f},{close:.4f},{volume}")
    path.write_text("\n".join(rows) + "\n")
    return path


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


def wait_until(holds, what: str) -> None:
    limit = time.monotonic() + PATIENCE_SECONDS
    while not holds():
        assert time.monotonic() < limit, what
        time.sleep(0.01)


# --- help, usage ---


def test_help_and_version():
    page = call("--help")
    assert page.returncode == 0 and "check-prices" in page.stdout and page.stderr == ""
    page = call("run", "--help")
    assert page.returncode == 0 and "--generations N" in page.stdout and page.stderr == ""
    version = call("--version")
    assert version.returncode == 0
    assert re.fullmatch(r"genetic-search \d+\.\d+\.\d+\n", version.stdout)


@pytest.mark.parametrize(
    ("arguments", "told"),
    [
        ((), "no command is given"),
        (("run",), "--prices FILE"),
        (("run", "--prices", "p.csv", "--bogus"), 'unknown argument "--bogus"'),
        (("run", "--prices", "p.csv", "--jobs", "0"), "--jobs wants a whole number"),
        (("run", "--prices", "p.csv", "--seconds", "nan"), "--seconds wants a number above 0"),
        (("check-prices",), "no price file is given"),
    ],
)
def test_bad_usage(tmp_path: Path, arguments: tuple[str, ...], told: str):
    ended = call(*arguments, cwd=tmp_path)
    assert ended.returncode == 2
    assert ended.stdout == ""
    assert ended.stderr.startswith("genetic-search: ") and told in ended.stderr
    assert ended.stderr.count("\n") == 1
    assert list(tmp_path.iterdir()) == []


# --- bad input ---


def test_a_bad_cell_is_named_and_nothing_is_written(tmp_path: Path):
    bad = tmp_path / "bad.csv"
    bad.write_text("date,symbol,close\n2020-01-01,AAA,1.5\n2020-01-02,AAA,abc\n")
    ended = call("run", "--prices", bad, "--db", tmp_path / "runs.db", "--generations", "1")
    assert ended.returncode == 2
    assert ended.stdout == ""
    assert f'genetic-search: {bad}: line 3, column 3 "close": "abc" ' in ended.stderr
    assert sorted(tmp_path.iterdir()) == [bad]


def test_a_missing_price_file(tmp_path: Path):
    ended = call("run", "--prices", tmp_path / "none.csv", "--db", tmp_path / "runs.db")
    assert ended.returncode == 2
    assert "none.csv" in ended.stderr
    assert list(tmp_path.iterdir()) == []


def test_a_store_that_is_none(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    store.write_text("This is a diary, not a store. " * 100)
    before = store.read_text()
    ended = call("run", "--prices", prices, "--db", store, "--generations", "1")
    assert ended.returncode == 2
    assert ended.stdout == ""
    assert "runs.db" in ended.stderr
    assert store.read_text() == before


def test_a_store_in_a_folder_that_is_not_there(tmp_path: Path, prices: Path):
    ended = call("run", "--prices", prices, "--db", tmp_path / "no" / "runs.db")
    assert ended.returncode == 2
    assert "runs.db" in ended.stderr


# --- a whole run ---


def test_a_run_tells_generations_metrics_signals_store_and_reason(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--generations", "2", "--batch-size", "6", *NO_GATES,
        cwd=tmp_path,
    )
    assert ended.returncode == 0, ended.stderr
    assert ended.stderr == ""
    assert "5 instruments, 150 days, 2020-01-01 to 2020-06-25" in ended.stdout
    assert ended.stdout.count("\ngeneration ") == 2
    assert all(f"  {name} " in ended.stdout for name in METRICS)
    assert re.search(r"\n   1 +\d+ +-?\d+\.\d\d .*\w+\(.*\)\n", ended.stdout)
    last_two = ended.stdout.splitlines()[-2:]
    assert last_two[0] == "Everything is stored in genetic-search.db, run 1."
    assert last_two[1].endswith(": the limit of 2 generations was reached.")
    assert "\x1b" not in ended.stdout and "\r" not in ended.stdout
    assert rows(tmp_path / "genetic-search.db", "SELECT count(*) FROM evaluations") == [(12,)]
    assert_ended_well(tmp_path / "genetic-search.db", "stopped")


def test_a_run_in_which_nothing_passes_tells_what_to_change(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "1",
        "--batch-size", "4", *NO_GATES, "--min-sharpe=99",
    )
    assert ended.returncode == 0, ended.stderr
    assert "No signal passed. Why 4 candidates failed" in ended.stdout
    assert "lower --min-sharpe below 99" in ended.stdout


def test_quiet_tells_only_the_end(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "1",
        "--batch-size", "2", "--quiet",
    )
    assert ended.returncode == 0 and ended.stderr == ""
    assert ended.stdout.startswith("Metrics\n")


def test_json_gives_one_event_a_line_and_the_metrics_last(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "2",
        "--batch-size", "5", "--jobs", "2", *NO_GATES, "--json",
    )
    assert ended.returncode == 0, ended.stderr
    told = events(ended.stdout)
    names = [event["event"] for event in told]
    assert names[0] == "started" and names[-2:] == ["ended", "metrics"]
    assert names.count("recorded") == 10 and names.count("generation") == 2
    metrics = told[-1]
    assert set(metrics) == METRICS | {"event"}
    assert metrics["candidate_count"] == 10
    assert metrics["seed"] == told[0]["seed"] == metrics["determinism_metadata"]["seed"]
    assert told[0]["jobs"] == 2 and told[0]["batch_size"] == 5
    assert {event["expression"] is not None for event in told if event["event"] == "recorded"} == {
        True
    }
    assert told[-2]["stop_cause"] == "generations"
    assert [b["evaluation_id"] for b in told[-2]["best"]]
    assert [
        (event["evaluation_id"], event["generation"], event["passed"])
        for event in told if event["event"] == "recorded"
    ] == rows(
        tmp_path / "runs.db",
        "SELECT candidate_number, generation, passed FROM evaluations ORDER BY id",
    )
    stored = json.loads(rows(tmp_path / "runs.db", "SELECT record FROM metrics")[0][0])
    assert {**stored, "event": "metrics"} == metrics


def test_the_limit_of_candidates(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--candidates", "5",
        "--batch-size", "4", "--json",
    )
    assert ended.returncode == 0, ended.stderr
    told = events(ended.stdout)
    assert told[-2]["stop_cause"] == "candidates"
    # The batch in which the limit is reached is completed.
    assert told[-1]["candidate_count"] == 8


def test_the_limit_of_seconds(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--seconds", "0.5", "--json",
        "--batch-size", "4",
    )
    assert ended.returncode == 0, ended.stderr
    assert events(ended.stdout)[-2]["stop_cause"] == "seconds"


def test_a_seed_repeats_a_run(tmp_path: Path, prices: Path):
    def graphs(name: str, *more: str) -> list[tuple]:
        store = tmp_path / name
        ended = call(
            "run", "--prices", prices, "--db", store, "--generations", "3", "--batch-size", "6",
            *NO_GATES, *more, "--json",
        )
        assert ended.returncode == 0, ended.stderr
        return rows(
            store,
            "SELECT candidate_number, generation, graph_key, graph, passed, statistics"
            " FROM evaluations ORDER BY candidate_number",
        )

    first = graphs("a.db", "--seed", "11", "--jobs", "1")
    assert len(first) == 18
    assert graphs("b.db", "--seed", "11", "--jobs", "3") == first
    assert graphs("c.db", "--seed", "12") != first


def test_the_seed_that_is_told_repeats_a_run(tmp_path: Path, prices: Path):
    def told(*more: str) -> list[dict]:
        ended = call(
            "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "1",
            "--batch-size", "4", *more, "--json",
        )
        return events(ended.stdout)

    def expressions(run: list[dict]) -> list[str]:
        return [event["expression"] for event in run if event["event"] == "recorded"]

    drawn = told()
    assert expressions(told("--seed", str(drawn[0]["seed"]))) == expressions(drawn)


# --- outputs ---


def test_a_reader_that_goes_away_ends_the_run_in_good_order(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = start("run", "--prices", prices, "--db", store, "--batch-size", "4", "--json")
    assert json.loads(process.stdout.readline())["event"] == "started"
    process.stdout.close()
    assert process.wait(PATIENCE_SECONDS) == 141
    assert process.stderr.read() == ""
    assert_ended_well(store, "stopped")


def test_a_full_device_is_a_failure_and_the_run_is_stored(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    with open("/dev/full", "w", encoding="utf-8") as full:
        ended = subprocess.run(
            [PROGRAM, "run", "--prices", prices, "--db", store, "--batch-size", "4"],
            stdin=subprocess.DEVNULL, stdout=full, stderr=subprocess.PIPE, text=True, check=False,
            timeout=PATIENCE_SECONDS,
        )
    assert ended.returncode == 1
    assert "cannot write to standard output: No space left on device" in ended.stderr
    assert_ended_well(store, "stopped")


@pytest.mark.parametrize("arguments", [("--help",), ("--version",), ("check-prices", "PRICES")])
def test_other_commands_notice_a_full_device(prices: Path, arguments: tuple[str, ...]):
    words = [str(prices) if word == "PRICES" else word for word in arguments]
    with open("/dev/full", "w", encoding="utf-8") as full:
        ended = subprocess.run(
            [PROGRAM, *words], stdout=full, stderr=subprocess.PIPE, text=True, check=False,
            timeout=PATIENCE_SECONDS,
        )
    assert ended.returncode == 1
    assert "No space left on device" in ended.stderr


def test_a_closed_output_does_not_end_up_in_the_store(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    ended = subprocess.run(
        ["/bin/sh", "-c", f'exec "{PROGRAM}" run --prices "{prices}" --db "{store}" '
         "--batch-size 2 --generations 1 0<&- 1>&-"],
        stderr=subprocess.PIPE, text=True, check=False, timeout=PATIENCE_SECONDS,
    )
    assert ended.returncode == 1
    assert "cannot write to standard output" in ended.stderr
    assert rows(store, "PRAGMA integrity_check") == [("ok",)]
    assert_ended_well(store, "stopped")


# --- signals ---


@pytest.mark.parametrize("which", [signal.SIGINT, signal.SIGTERM])
def test_one_signal_ends_a_run_in_good_order(tmp_path: Path, prices: Path, which: signal.Signals):
    store = tmp_path / "runs.db"
    process = start("run", "--prices", prices, "--db", store, "--batch-size", "8", "--json")
    for line in process.stdout:
        if json.loads(line)["event"] == "generation":
            break
    process.send_signal(which)
    output, errors = process.communicate(timeout=PATIENCE_SECONDS)
    assert process.returncode == 0, errors
    told = events(output)
    assert told[-1]["event"] == "metrics" and told[-1]["terminal_reason"] == "stopped"
    assert told[-2]["stop_cause"] == "signal"
    assert_ended_well(store, "stopped")
    assert rows(store, "SELECT count(*) FROM evaluations")[0][0] == told[-1]["candidate_count"]


def is_stopped_child(process: subprocess.Popen, child: int) -> bool:
    try:
        fields = Path(f"/proc/{child}/stat").read_text().rsplit(")", 1)[1].split()
    except OSError:
        return False
    return fields[0] == "T" and int(fields[1]) == process.pid


def hold_a_worker(process: subprocess.Popen) -> list[int]:
    """Stops workers until one is held in its work, so that the run is waiting for it."""
    stopped: list[int] = []

    def is_held() -> bool:
        for child in children_of(process.pid):
            try:
                os.kill(child, signal.SIGSTOP)
                stopped.append(child)
            except ProcessLookupError:
                continue
        # One that was stopped after its work was done is soon gone.
        return any(
            all(is_stopped_child(process, child) and not time.sleep(0.02) for _ in range(20))
            for child in stopped
        )

    wait_until(is_held, "no worker was held")
    return stopped


def test_two_signals_end_it_at_once_with_no_child_left(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = start("run", "--prices", prices, "--db", store, "--batch-size", "8")
    stopped = hold_a_worker(process)
    # Both are waiting when the program goes on, so that it cannot end in between.
    for which in (signal.SIGSTOP, signal.SIGINT, signal.SIGTERM, signal.SIGCONT):
        process.send_signal(which)
    _, errors = process.communicate(timeout=PATIENCE_SECONDS)
    assert process.returncode == 130
    assert f"genetic-search: ended at once; what was recorded until then is in {store}\n" in errors
    wait_until(
        lambda: not any(Path(f"/proc/{child}").exists() for child in stopped), "a worker is left"
    )
    assert rows(store, "SELECT terminal_reason FROM runs") == [("interrupted",)]
    assert rows(store, "SELECT count(*) FROM metrics") == [(0,)]


def pending_signals(process: subprocess.Popen) -> int:
    status = Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"^ShdPnd:\s*(\w+)", status, re.MULTILINE).group(1), 16)


def test_the_second_ctrl_c_ends_a_run_whose_output_nobody_reads(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = start("run", "--prices", prices, "--db", store, "--batch-size", "8", "--json")

    def queued_bytes() -> int:
        return struct.unpack("i", fcntl.ioctl(process.stdout, termios.FIONREAD, bytes(4)))[0]

    def is_stuck() -> bool:
        """The pipe, of 64 KiB, is about full and stays as it is, and no worker is there."""
        queued = queued_bytes()
        return queued > 48 * 1024 and all(
            not children_of(process.pid) and queued_bytes() == queued and not time.sleep(0.02)
            for _ in range(50)
        )

    wait_until(is_stuck, "the pipe did not fill up")
    process.send_signal(signal.SIGINT)
    wait_until(lambda: pending_signals(process) == 0, "the first signal was not taken")
    assert process.poll() is None
    process.send_signal(signal.SIGINT)
    assert process.wait(PATIENCE_SECONDS) == 130
    assert rows(store, "SELECT terminal_reason FROM runs") == [("interrupted",)]


# --- a terminal ---


class Terminal:
    """A run on a pseudo-terminal of a given width; a reader that keeps what it shows."""

    def __init__(self, width: int, *arguments: str | Path, term: str = "xterm") -> None:
        self.screen, other = pty.openpty()
        fcntl.ioctl(other, termios.TIOCSWINSZ, struct.pack("HHHH", 40, width, 0, 0))
        self.process = subprocess.Popen(
            [PROGRAM, *map(str, arguments)], stdin=other, stdout=other, stderr=other,
            env={**os.environ, "TERM": term}, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
        )
        os.close(other)
        self.text = ""

    def read(self) -> bool:
        """Reads what there is; false at the end."""
        ready, _, _ = select.select([self.screen], [], [], PATIENCE_SECONDS)
        assert ready, f"nothing came after {self.text[-300:]!r}"
        try:
            data = os.read(self.screen, 65536)
        except OSError:  # The other side is closed.
            return False
        self.text += data.decode()
        return bool(data)

    def read_until(self, pattern: str) -> None:
        while not re.search(pattern, self.text):
            assert self.read(), f"ended before {pattern}: {self.text[-300:]!r}"

    def end(self) -> int:
        while self.read():
            pass
        os.close(self.screen)
        return self.process.wait(PATIENCE_SECONDS)

    def final_lines(self) -> list[str]:
        """What is left to see: each line as it stands after its last erasure."""
        return [
            re.split(r"\r\x1b\[K", line.rstrip("\r"))[-1] for line in self.text.split("\n")
        ]


@pytest.mark.parametrize("width", [40, 80, 200])
def test_a_terminal_shows_one_live_line_that_is_gone_at_the_end(
    tmp_path: Path, prices: Path, width: int
):
    terminal = Terminal(
        width, "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "20",
        "--batch-size", "8", *NO_GATES,
    )
    assert terminal.end() == 0
    drawn = re.findall(r"\r\x1b\[K(gen [^\r\n]*)", terminal.text)
    assert drawn
    # Room is left for the cursor and the echo of Ctrl-C.
    assert max(map(len, drawn)) <= width - 3
    if width < 80:
        assert max(map(len, drawn)) == width - 3
    final = terminal.final_lines()
    assert not any(line.startswith("gen ") for line in final)
    assert not any("\x1b" in line for line in final)
    assert "Metrics" in final
    if width >= 80:  # Below that the figures of the table do not fit.
        assert all(len(line) <= width for line in final)


def test_a_terminal_that_cannot_draw_gets_plain_lines(tmp_path: Path, prices: Path):
    terminal = Terminal(
        80, "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "1",
        "--batch-size", "2", term="dumb",
    )
    assert terminal.end() == 0
    assert "\x1b" not in terminal.text and "generation 1: " in terminal.text


def test_ctrl_c_at_a_terminal(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    terminal = Terminal(
        100, "run", "--prices", prices, "--db", store, "--batch-size", "16", "--jobs", "2",
    )
    terminal.read_until(r"gen [2-9]")
    os.write(terminal.screen, b"\x03")
    assert terminal.end() == 0
    final = terminal.final_lines()
    assert any(line.endswith("it was stopped by a signal.") for line in final)
    assert not any(line.startswith("gen ") for line in final)
    assert_ended_well(store, "stopped")


def test_the_first_ctrl_c_tells_what_the_second_would_do(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    terminal = Terminal(100, "run", "--prices", prices, "--db", store, "--batch-size", "16")
    terminal.read_until(r"gen [2-9]")
    hold_a_worker(terminal.process)
    os.write(terminal.screen, b"\x03")
    assert terminal.end() == 0
    assert re.search(
        r"genetic-search: stopping after \d+ candidates \(press Ctrl-C again to end at once\)\r\n",
        terminal.text,
    )


# --- check-prices ---


def test_check_prices_tells_what_a_file_holds(prices: Path):
    ended = call("check-prices", prices)
    assert ended.returncode == 0 and ended.stderr == ""
    assert "dates: 150, 2020-01-01 to 2020-06-25" in ended.stdout
    assert "instruments: 5" in ended.stdout
    assert "starts 25 days late" in ended.stdout
    assert "suspicious jumps: 0" in ended.stdout
    assert ended.stdout.endswith("Nothing looks suspicious.\n")


def test_check_prices_tells_of_a_jump_and_still_ends_well(tmp_path: Path):
    path = tmp_path / "jump.csv"
    closes = [100 + day % 3 for day in range(20)] + [50 + day % 3 for day in range(8)]
    path.write_text(
        "date,XYZ\n" + "".join(f"2020-01-{i + 1:02},{c}\n" for i, c in enumerate(closes))
    )
    ended = call("check-prices", path)
    assert ended.returncode == 0
    assert "suspicious jumps: 1" in ended.stdout and "2020-01-21" in ended.stdout
    assert "Look at the jumps" in ended.stdout
    assert "2020-01-21" not in call("check-prices", path, "--list", "0").stdout


def test_check_prices_refuses_what_it_cannot_read(tmp_path: Path):
    bad = tmp_path / "bad.csv"
    bad.write_text("date,AAA\n2020-01-01,-1\n")
    ended = call("check-prices", bad)
    assert ended.returncode == 2 and ended.stdout == ""
    assert f'{bad}: line 2, column 2 "AAA": "-1" ' in ended.stderr
    assert call("check-prices", tmp_path / "none.csv").returncode == 2
