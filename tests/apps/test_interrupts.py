"""genetic-search at a terminal, and when it is interrupted.

No test depends on how fast anything is: those that interrupt a run wait for what it writes first.
"""

from __future__ import annotations

import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time
from pathlib import Path

import pytest

from program import (
    NO_GATES, PATIENCE_SECONDS, PROGRAM, assert_ended_well, children_of, events, is_alive, rows,
    start, table, wait_until,
)

# --- signals ---


@pytest.mark.parametrize("which", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
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
        """The pipe, of 64 KiB, is about full, and nobody is able to write more."""
        queued = queued_bytes()
        return queued > 48 * 1024 and all(
            queued_bytes() == queued and not time.sleep(0.02) for _ in range(50)
        )

    wait_until(is_stuck, "the pipe did not fill up")
    process.send_signal(signal.SIGINT)
    wait_until(lambda: pending_signals(process) == 0, "the first signal was not taken")
    assert process.poll() is None
    # Workers may wait for the parent, which writes: they end with it.
    workers = children_of(process.pid)
    process.send_signal(signal.SIGINT)
    assert process.wait(PATIENCE_SECONDS) == 130
    assert not any(map(is_alive, workers)), "a worker outlives its parent"
    assert "ended at once" in process.stderr.read()
    assert rows(store, "SELECT terminal_reason FROM runs") == [("interrupted",)]


# --- before the run, and after it ---


@pytest.mark.parametrize("option", ["--prices", "--config", "--seeds"])
def test_ctrl_c_ends_the_reading_of_a_pipe_that_stalls(tmp_path: Path, prices: Path, option: str):
    store, pipe = tmp_path / "runs.db", tmp_path / "pipe"
    os.mkfifo(pipe)
    writer = os.open(pipe, os.O_RDWR)
    os.write(writer, b"date,symbol,close\n" if option == "--prices" else b"[")
    files = {"--prices": prices, option: pipe}
    process = start(
        "run", "--db", store, *(word for pair in files.items() for word in pair),
    )
    wait_until(lambda: is_open_in(process, pipe), "the pipe was not opened")
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=PATIENCE_SECONDS)
    os.close(writer)
    assert (process.returncode, output) == (130, "")
    assert errors == "genetic-search: ended before the run began; nothing was stored\n"
    assert not store.exists()


def is_open_in(process: subprocess.Popen, path: Path) -> bool:
    for link in Path(f"/proc/{process.pid}/fd").glob("*"):
        try:
            if os.readlink(link) == str(path):
                return True
        except OSError:
            continue
    return False


def test_the_limit_of_seconds_holds_while_prices_are_read(tmp_path: Path):
    store, pipe = tmp_path / "runs.db", tmp_path / "pipe"
    os.mkfifo(pipe)
    writer = os.open(pipe, os.O_RDWR)
    process = start("run", "--prices", pipe, "--db", store, "--seconds", "0.5")
    output, errors = process.communicate(timeout=PATIENCE_SECONDS)
    os.close(writer)
    assert (process.returncode, output) == (1, "")
    assert "the limit of 0.5 seconds was over before the files were read" in errors
    assert "--seconds" in errors and not store.exists()


def test_ctrl_c_ends_a_command_that_only_looks(tmp_path: Path):
    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    writer = os.open(pipe, os.O_RDWR)
    process = start("check-prices", pipe)
    wait_until(lambda: is_open_in(process, pipe), "the pipe was not opened")
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=PATIENCE_SECONDS)
    os.close(writer)
    assert process.returncode == -signal.SIGINT


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
