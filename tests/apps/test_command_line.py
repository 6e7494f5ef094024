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
import resource
import select
import signal
import sqlite3
import struct
import subprocess
import termios
import time
from datetime import date, timedelta
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
    assert page.returncode == 0 and page.stderr == ""
    for command, told in {
        "run": "--generations N",
        "check-prices": "--list N",
        "signals": "--pool NAME",
        "show": "Usage: genetic-search show DB ID",
        "export": "--weights FILE",
    }.items():
        assert f"\n  {command} " in page.stdout
        own = call(command, "--help")
        assert own.returncode == 0 and told in own.stdout and own.stderr == ""
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
        (("run", "--prices", "p.csv", "--era", "0"), "--era wants a whole number from 1 to 1000"),
        (("run", "--prices", "p.csv", "--era", "4"), "--era 4 is beyond the 3 train eras"),
        (("run", "--prices", "p.csv", "--pool", ""), "--pool wants 1 to 100 printable ASCII"),
        (("check-prices",), "no price file is given"),
        (("signals",), "no store is given"),
        (("signals", "runs.db"), "there is no such file"),
        (("signals", "runs.db", "--run", "x"), "--run wants a whole number from 1"),
        (("show",), "no store is given"),
        (("show", "runs.db"), "no id is given"),
        (("show", "runs.db", "1-1"), "there is no such file"),
        (("export", "runs.db"), "no id is given"),
        (("export", "runs.db", "1-1"), "no file for the weights is given"),
        (("export", "runs.db", "1-1", "--weights", "w.csv"), "there is no such file"),
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
    assert re.search(r"\n *1-\d+ +-?\d+\.\d\d .*\w+\(.*\)\n", ended.stdout)
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
    assert [b["eval_id"] for b in told[-2]["best"]]
    assert [
        (event["eval_id"], event["candidate_number"], event["generation"], event["passed"])
        for event in told if event["event"] == "recorded"
    ] == rows(
        tmp_path / "runs.db",
        "SELECT eval_id, candidate_number, generation, passed FROM evaluations ORDER BY id",
    )
    stored = json.loads(rows(tmp_path / "runs.db", "SELECT record FROM metrics")[0][0])
    assert {**stored, "event": "metrics"} == metrics


# --- the pool at the end of a run ---


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


def test_the_end_tells_the_pool_beside_the_market(tmp_path: Path, prices: Path):
    store, text = a_run(tmp_path, prices)
    told = table(text, 'Submitted to the pool "signals": ')
    assert [row["id"] for row in told[:-1]] == [
        row[0] for row in rows(
            store, "SELECT eval_id FROM submissions WHERE state = 'submitted' "
            "ORDER BY settled_order",
        )
    ]
    assert len(told) > 1 and told[-1]["id"] == "market"
    for row in told[:-1]:
        ((stored, holdout, score, correlation),) = rows(
            store, "SELECT e.statistics, e.holdout_statistics, s.score, s.correlation "
            f"FROM submissions s JOIN evaluations e ON e.eval_id = s.eval_id "
            f"WHERE s.eval_id = '{row['id']}'",
        )
        assert float(row["in sample"]) == pytest.approx(json.loads(stored)["sharpe"], abs=0.0051)
        assert float(row["hold-out"]) == pytest.approx(json.loads(holdout)["sharpe"], abs=0.0051)
        assert float(row["novelty"]) == pytest.approx(score, abs=0.0051)
        assert float(row["correlation"]) == pytest.approx(correlation, abs=0.0051)
        assert "(" in row["expression"] or row["expression"].isidentifier()
    assert re.search(
        r"\nIn sample are the 112 days from 2020-01-01 to 2020-05-12, which the search saw; "
        r"hold-out are the 38 days from 2020-05-13 to 2020-06-25, which it never saw\.\n", text,
    )
    states = dict(rows(store, "SELECT state, count(*) FROM submissions GROUP BY state"))
    assert re.search(
        rf"\nSubmissions: {states['submitted']} submitted, {states.get('refused', 0)} refused"
        rf"(?: \(.*\))?, {states.get('queued', 0)} waiting\.\n", text,
    )
    assert text.index("Best in sample") < text.index("Submitted to the pool")


def test_json_tells_each_settled_submission_and_the_pool_at_the_end(tmp_path: Path, prices: Path):
    store, text = a_run(tmp_path, prices, "--json", "--era", "2", "--pool", "mine")
    told = events(text)
    begun, ended = told[0], told[-2]
    assert (begun["signal_pool_name"], begun["market_id"], begun["era_number"]) == ("mine", 1, 2)
    assert (begun["seen_days"], begun["last_seen_date"]) == (74, "2020-03-24")
    assert (begun["holdout_days"], begun["first_holdout_date"]) == (38, "2020-05-13")
    settled = [event for event in told if event["event"] == "settled"]
    assert settled and [
        (event["eval_id"], event["submitted"], event["refusal_reason"]) for event in settled
    ] == [
        (eval_id, state == "submitted", reason) for eval_id, state, reason in rows(
            store, "SELECT eval_id, state, refusal_reason FROM submissions ORDER BY settled_order",
        )
    ]
    submitted = [event["eval_id"] for event in settled if event["submitted"]]
    assert submitted and [signal["eval_id"] for signal in ended["submitted"]] == submitted
    for signal in ended["submitted"]:
        ((stored, holdout),) = rows(
            store, "SELECT statistics, holdout_statistics FROM evaluations "
            f"WHERE eval_id = '{signal['eval_id']}'",
        )
        assert signal["in_sample"] == json.loads(stored)
        assert signal["holdout"] == json.loads(holdout)
        assert signal["holdout"]["holding_days"] == 38
    assert ended["market"]["in_sample"]["holding_days"] == 73
    assert set(ended["market"]["holdout"]) == set(ended["submitted"][0]["holdout"])
    assert ended["submissions"] == {
        "submitted": len(submitted),
        "refused": ended["submissions"]["refused"],
        "waiting": 0,
    }
    assert sum(ended["submissions"]["refused"].values()) == len(settled) - len(submitted)
    assert rows(store, "SELECT DISTINCT signal_pool_name, era_number FROM submissions") == [
        ("mine", 2)
    ]


def test_a_second_run_on_the_same_pool_submits_nothing_twice(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    members = "SELECT count(*), count(DISTINCT graph_key) FROM submissions WHERE state='submitted'"
    first_generation = (
        "SELECT count(*) FROM submissions s JOIN evaluations e ON e.id = s.evaluation_id "
        "WHERE s.state = 'submitted' AND e.generation = 0 AND s.run_id = "
    )
    assert rows(store, first_generation + "1")[0][0] > 0
    # It begins with the same candidates, and these are in the pool, or too much like it.
    a_run(tmp_path, prices)
    assert rows(store, first_generation + "2") == [(0,)]
    ((count, structures),) = rows(store, members)
    assert count == structures
    _, text = a_run(tmp_path, prices, "--pool", "another")
    assert rows(store, first_generation + "3")[0][0] > 0
    assert 'Submitted to the pool "another": ' in text


# --- the configuration ---


def test_a_configuration_is_used_and_options_override_it(tmp_path: Path, prices: Path):
    config = tmp_path / "my.toml"
    config.write_text(
        "[gates]\nsharpe_min = 50.0\n[pool]\nname = 'mine'\n[eras]\ntrain = 2\nera = 1\n"
        "holdout = 0.2\n[market]\nid = 9\n"
    )
    told = events(
        call(
            "run", "--prices", prices, "--db", tmp_path / "a.db", "--generations", "1",
            "--batch-size", "4", "--json", "--config", config,
        ).stdout
    )
    begun = told[0]
    assert (begun["signal_pool_name"], begun["market_id"], begun["era_number"]) == ("mine", 9, 1)
    assert (begun["seen_days"], begun["holdout_days"]) == (60, 30)
    assert told[-2]["passing"] == 0
    _, text = a_run(tmp_path, prices, "--config", config, "--json", "--pool", "other", "--era=2")
    told = events(text)
    assert (told[0]["signal_pool_name"], told[0]["era_number"]) == ("other", 2)
    assert told[0]["market_id"] == 9 and told[0]["seen_days"] == 120
    assert told[-2]["passing"] > 0  # --min-sharpe is over the 50 of the file.


@pytest.mark.parametrize(
    ("text", "told"),
    [
        ("[gates]\nsharpe_min = 'high'\n", "line 2, column 14, gates.sharpe_min: "),
        ("[gates]\nturnover_max = 3.5\n", "write a number from 0 to 2"),
        ("[gates]\nsharp_min = 1\n", "[gates] has no such key"),
        ("[eras]\ntrain = 3\nera = 4\n", "line 3"),
        ("[eras\n", "is not TOML"),
        ("[eras]\ntrain = 100\n", "a train era has 1 day"),
    ],
)
def test_a_bad_configuration_is_refused_with_place_and_mend(
    tmp_path: Path, prices: Path, text: str, told: str
):
    config = tmp_path / "my.toml"
    config.write_text(text)
    before = sorted(tmp_path.iterdir())
    ended = call("run", "--prices", prices, "--db", tmp_path / "runs.db", "--config", config)
    assert ended.returncode == 2
    assert ended.stdout == "" and ended.stderr.count("\n") == 1
    assert told in ended.stderr
    assert sorted(tmp_path.iterdir()) == before


def test_a_missing_configuration(tmp_path: Path, prices: Path):
    ended = call("run", "--prices", prices, "--db", tmp_path / "runs.db", "--config", "/no/my.toml")
    assert ended.returncode == 2 and "/no/my.toml" in ended.stderr
    assert not (tmp_path / "runs.db").exists()


# --- signals, show, export ---


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
            store, "SELECT eval_id FROM submissions WHERE state = 'submitted' ORDER BY id"
        )
    ]


@pytest.fixture
def store(tmp_path: Path, prices: Path) -> Path:
    """The store of a run of several generations, in a folder of its own."""
    folder = tmp_path / "stored"
    folder.mkdir()
    return a_run(folder, prices)[0]


def test_signals_lists_what_was_submitted(store: Path):
    before = folder_of(store.parent)
    listed = call("signals", store)
    assert listed.returncode == 0 and listed.stderr == ""
    told = table("\n" + listed.stdout, "\n")
    assert [row["id"] for row in told] == submitted_ids(store)
    assert {(row["run"], row["pool"], row["market"], row["era"]) for row in told} == {
        ("1", "signals", "1", "3")
    }
    objects = events(call("signals", store, "--json").stdout)
    assert [signal["eval_id"] for signal in objects] == submitted_ids(store)
    for row, signal in zip(told, objects):
        ((stored, holdout),) = rows(
            store, "SELECT statistics, holdout_statistics FROM evaluations "
            f"WHERE eval_id = '{row['id']}'",
        )
        assert signal["in_sample_sharpe"] == json.loads(stored)["sharpe"]
        assert signal["holdout_sharpe"] == json.loads(holdout)["sharpe"]
        assert row["in sample"] == f"{signal['in_sample_sharpe']:.2f}"
        assert row["hold-out"] == f"{signal['holdout_sharpe']:.2f}"
        assert row["expression"] == signal["expression"]
        assert signal["state"] == "submitted" and signal["run_id"] == 1
    assert folder_of(store.parent) == before


def test_signals_of_all_states_of_a_run_and_of_a_pool(store: Path):
    everything = events(call("signals", store, "--all", "--json").stdout)
    assert [(signal["eval_id"], signal["state"]) for signal in everything] == rows(
        store, "SELECT eval_id, state FROM submissions ORDER BY id"
    )
    assert any(signal["state"] == "refused" for signal in everything)
    assert "  refused: " in call("signals", store, "--all").stdout
    assert events(call("signals", store, "--all", "--json", "--run", "1").stdout) == everything
    ended = call("signals", store, "--run", "2")
    assert ended.returncode == 2 and ended.stdout == ""
    assert "there is no run 2 in " in ended.stderr
    ended = call("signals", store, "--pool", "mine")
    assert ended.returncode == 0
    assert ended.stdout == 'No signal was submitted to the pool "mine". The pools are: "signals".\n'


def test_a_store_in_which_nothing_was_submitted(tmp_path: Path, prices: Path):
    call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "1",
        "--batch-size", "2", "--min-sharpe=99",
    )
    ended = call("signals", tmp_path / "runs.db")
    assert (ended.returncode, ended.stdout) == (0, "No signal was submitted.\n")
    ended = call("signals", tmp_path / "runs.db", "--json")
    assert (ended.returncode, ended.stdout) == (0, "")
    assert call("show", tmp_path / "runs.db", "1-1").returncode == 0


def test_show_tells_all_of_a_submitted_signal(store: Path):
    before = folder_of(store.parent)
    eval_id = submitted_ids(store)[-1]
    page = call("show", store, eval_id)
    assert page.returncode == 0 and page.stderr == ""
    for name in ("evaluation", "expression", "verdict", "submission", "run", "prices", "days"):
        assert re.search(rf"^{name} +\S", page.stdout, re.MULTILINE), name
    for heading in ("Statistics", "Lineage, parents below their child", "Graph"):
        assert f"\n{heading}\n" in page.stdout
    shown = events(call("show", store, eval_id, "--json").stdout)[0]
    ((graph, stored, holdout, lineage),) = rows(
        store, "SELECT graph, statistics, holdout_statistics, lineage FROM evaluations "
        f"WHERE eval_id = '{eval_id}'",
    )
    assert page.stdout.endswith(f"\nGraph\n{graph}\n")
    assert shown["graph"] == json.loads(graph)
    assert shown["statistics"] == json.loads(stored)
    assert shown["holdout_statistics"] == json.loads(holdout)
    assert shown["lineage"]["origin"] == json.loads(lineage)["origin"]
    assert shown["submissions"][0]["state"] == "submitted"
    assert shown["passed"] is True and shown["failures"] == {}
    assert f"expression  {shown['expression']}\n" in page.stdout
    assert folder_of(store.parent) == before


def test_show_resolves_parents_of_the_run(store: Path):
    bred = rows(
        store, "SELECT eval_id, lineage FROM evaluations WHERE generation > 0 "
        "AND json_extract(lineage, '$.origin') = 'bred'",
    )
    assert bred
    for eval_id, lineage in bred:
        parents = json.loads(lineage)["parents"]
        shown = events(call("show", store, eval_id, "--json").stdout)[0]["lineage"]
        assert [parent["graph_key"] for parent in shown["parents"]] == parents
        for parent in shown["parents"]:
            assert rows(
                store, f"SELECT graph_key FROM evaluations WHERE eval_id = '{parent['eval_id']}'"
            ) == [(parent["graph_key"],)]


def test_show_tells_failures_with_value_threshold_and_gate(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices, "--min-sharpe=99")
    page = call("show", store, "1-1").stdout
    assert re.search(r"\nverdict +failed: \w+\n", page)
    assert re.search(r"\n  sharpe_min  sharpe -?[\d.]+ < 99, gate sharpe_min\n", page)
    failure = events(call("show", store, "1-1", "--json").stdout)[0]["failures"]["sharpe_min"]
    assert failure["threshold"] == 99 and failure["gate"] == "sharpe_min"


@pytest.mark.parametrize("command", ["show", "export"])
@pytest.mark.parametrize("eval_id", ["9-9", "1-", "diary", "1-1 OR 1=1"])
def test_an_id_that_is_not_there(store: Path, command: str, eval_id: str):
    before = folder_of(store.parent)
    more = ("--weights", store.parent / "w.csv") if command == "export" else ()
    ended = call(command, store, eval_id, *more)
    assert ended.returncode == 2 and ended.stdout == ""
    assert f'there is no evaluation "{eval_id}" in ' in ended.stderr
    assert folder_of(store.parent) == before


@pytest.mark.parametrize(
    "arguments", [("signals",), ("show", "1-1"), ("export", "1-1", "--weights", "w.csv")]
)
def test_commands_that_look_refuse_what_is_no_store(tmp_path: Path, arguments: tuple[str, ...]):
    other = tmp_path / "other.db"
    connection = sqlite3.connect(other)
    connection.execute("CREATE TABLE diary (day)")
    connection.commit()
    connection.close()
    (tmp_path / "diary.txt").write_text("This is a diary. " * 100)
    (tmp_path / "empty.db").touch()
    before = folder_of(tmp_path)
    for name in ("other.db", "diary.txt", "empty.db", "none.db", "."):
        ended = call(arguments[0], tmp_path / name, *arguments[1:], cwd=tmp_path)
        assert ended.returncode == 2 and ended.stdout == ""
        assert ended.stderr.startswith("genetic-search: store ")
        assert ended.stderr.count("\n") == 1
    assert folder_of(tmp_path) == before


def test_a_store_can_be_looked_at_while_a_run_writes_it(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = start(
        "run", "--prices", prices, "--db", store, "--batch-size", "8", "--json", *NO_GATES
    )
    for line in process.stdout:
        if json.loads(line)["event"] == "generation":
            break
    assert call("show", store, "1-1").returncode == 0
    assert call("signals", store, "--all").returncode == 0
    assert "not ended" in call("show", store, "1-1").stdout
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=PATIENCE_SECONDS)
    assert process.returncode == 0
    assert_ended_well(store, "stopped")


def test_looking_leaves_a_run_that_died_as_it_is(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    process = start("run", "--prices", prices, "--db", store, "--batch-size", "8", "--json")
    for line in process.stdout:
        if json.loads(line)["event"] == "recorded":
            break
    process.kill()
    process.communicate(timeout=PATIENCE_SECONDS)
    before = folder_of(tmp_path)
    assert "runs.db-wal" in before
    assert "not ended" in call("show", store, "1-1").stdout
    assert folder_of(tmp_path) == before


def weights_of(path: Path) -> tuple[list[str], list[str], list[list[float]]]:
    """Symbols, dates, and a row of weights a day."""
    lines = [line.split(",") for line in path.read_text().splitlines()]
    assert lines[0][0] == "date"
    return lines[0][1:], [row[0] for row in lines[1:]], [list(map(float, r[1:])) for r in lines[1:]]


def closes_of(path: Path) -> dict[tuple[str, str], float]:
    lines = [line.split(",") for line in path.read_text().splitlines()[1:]]
    return {(row[0], row[1]): float(row[5]) for row in lines}


def test_export_writes_weights_that_earn_what_was_recorded(
    tmp_path: Path, prices: Path, store: Path
):
    """A backtest of its own, in another language, over the exported weights."""
    before = folder_of(store.parent)
    closes = closes_of(prices)
    for eval_id in submitted_ids(store):
        out = tmp_path / f"{eval_id}.csv"
        ended = call("export", store, eval_id, "--weights", out)
        assert ended.returncode == 0 and ended.stderr == ""
        assert ended.stdout == (
            f"{out}: the weights of {eval_id} on 150 days, 2020-01-01 to 2020-06-25, "
            "in 5 instruments\n"
        )
        symbols, dates, weights = weights_of(out)
        assert symbols == ["AAA", "BBB", "CCC", "DDD", "EEE"]
        assert dates == sorted({day for day, _ in closes})
        held = [0.0] * len(symbols)
        net = []
        for day in range(111):  # The search saw 112 days.
            gross = 0.0
            for i, symbol in enumerate(symbols):
                now = closes.get((dates[day], symbol))
                then = closes.get((dates[day + 1], symbol))
                if now is not None and then is not None:
                    gross += weights[day][i] * (then / now - 1)
            traded = sum(abs(new - old) for new, old in zip(weights[day], held))
            net.append(gross - 5e-4 * traded)
            held = weights[day]
        mean = sum(net) / len(net)
        deviation = math.sqrt(sum((value - mean) ** 2 for value in net) / (len(net) - 1))
        ((stored,),) = rows(
            store, f"SELECT sharpe FROM evaluations WHERE eval_id = '{eval_id}'"
        )
        sharpe = math.sqrt(252) * mean / deviation if deviation else 0.0
        assert sharpe == pytest.approx(stored, rel=1e-9, abs=1e-9)
    assert folder_of(store.parent) == before


def test_export_keeps_a_file_that_is_there(tmp_path: Path, store: Path):
    eval_id = submitted_ids(store)[0]
    out = tmp_path / "w.csv"
    out.write_text("mine")
    ended = call("export", store, eval_id, "--weights", out)
    assert ended.returncode == 2 and ended.stdout == ""
    assert "there is such a file already" in ended.stderr and "--force" in ended.stderr
    assert out.read_text() == "mine"
    assert call("export", store, eval_id, "--weights", out, "--force").returncode == 0
    assert len(weights_of(out)[2]) == 150


def test_export_does_not_replace_what_it_reads_or_what_is_no_file(
    tmp_path: Path, prices: Path, store: Path
):
    eval_id = submitted_ids(store)[0]
    before = folder_of(store.parent), prices.read_bytes()
    for path in (store, prices):
        ended = call("export", store, eval_id, "--weights", path, "--force")
        assert ended.returncode == 2 and "it is a file that the export reads" in ended.stderr
    ended = call("export", store, eval_id, "--weights", tmp_path, "--force")
    assert ended.returncode == 2 and "it is no regular file" in ended.stderr
    assert (folder_of(store.parent), prices.read_bytes()) == before


def test_export_refuses_other_prices_than_those_of_the_run(
    tmp_path: Path, prices: Path, store: Path
):
    eval_id = submitted_ids(store)[0]
    out = tmp_path / "w.csv"
    moved = tmp_path / "moved.csv"
    prices.rename(moved)
    ended = call("export", store, eval_id, "--weights", out)
    assert ended.returncode == 2 and not out.exists()
    assert f"{prices}: it cannot be opened; name the price file of the run" in ended.stderr
    assert call("export", store, eval_id, "--weights", out, "--prices", moved).returncode == 0
    out.unlink()
    moved.write_text(moved.read_text() + "\n")
    ended = call("export", store, eval_id, "--weights", out, "--prices", moved)
    assert ended.returncode == 2 and ended.stdout == "" and not out.exists()
    assert f"{moved}: it is not the price file of the run: its SHA-256 is " in ended.stderr


def test_a_failed_export_leaves_no_file(tmp_path: Path):
    generator = random.Random(3)
    prices = tmp_path / "long.csv"
    first = date(2000, 1, 1)
    prices.write_text("date,A,B,C,D\n" + "".join(
        f"{first + timedelta(days)}," + ",".join(f"{generator.uniform(90, 110)}" for _ in "ABCD")
        + "\n" for days in range(4000)
    ))
    store, _ = a_run(tmp_path, prices)
    eval_id = submitted_ids(store)[0]
    ended = call("export", store, eval_id, "--weights", tmp_path / "no" / "w.csv")
    assert ended.returncode == 2 and "it cannot be made" in ended.stderr
    folder = tmp_path / "small"
    folder.mkdir()

    def limit_files() -> None:
        """A full disk, but for the 32 KiB in which the readers of a store meet."""
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (40_000, 40_000))

    ended = call(
        "export", store, eval_id, "--weights", folder / "w.csv", preexec_fn=limit_files
    )
    assert ended.returncode == 1 and ended.stdout == ""
    assert f"cannot write {folder}/w.csv: File too large" in ended.stderr
    assert list(folder.iterdir()) == []


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


@pytest.mark.parametrize(
    "arguments",
    [
        ("--help",), ("--version",), ("check-prices", "PRICES"), ("signals", "STORE"),
        ("signals", "STORE", "--json"), ("show", "STORE", "1-1"),
        ("export", "STORE", "1-1", "--weights", "OUT"),
    ],
)
def test_other_commands_notice_a_full_device(
    tmp_path: Path, prices: Path, store: Path, arguments: tuple[str, ...]
):
    names = {"PRICES": prices, "STORE": store, "OUT": tmp_path / "w.csv"}
    words = [str(names.get(word, word)) for word in arguments]
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
