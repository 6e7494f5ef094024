"""signals, show and export: what they tell, what they refuse, and that they change nothing."""

from __future__ import annotations

import json
import math
import random
import re
import resource
import signal
import sqlite3
from datetime import date, timedelta
from pathlib import Path

import pytest

from program import (
    NO_GATES, PATIENCE_SECONDS, a_run, assert_ended_well, call, events, folder_of, rows, start,
    submitted_ids, table,
)

# --- signals, show, export ---


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


def test_signals_of_all_states_of_a_run_and_of_a_pool(tmp_path: Path, prices: Path):
    # Two of a generation that are alike: what is like a member is blocked before it is submitted.
    store, _ = a_run(tmp_path, prices, "--seed", "6", "--batch-size", "16")
    everything = events(call("signals", store, "--all", "--json").stdout)
    assert [(signal["eval_id"], signal["state"]) for signal in everything] == rows(
        store, "SELECT eval_id, state FROM submissions ORDER BY settled_order"
    )
    assert any(signal["state"] == "refused" for signal in everything)
    assert "  refused: " in call("signals", store, "--all").stdout
    assert events(call("signals", store, "--all", "--json", "--run", "1").stdout) == everything
    ended = call("signals", store, "--run", "2")
    assert ended.returncode == 2 and ended.stdout == ""
    assert "there is no run 2 in " in ended.stderr
    ended = call("signals", store, "--pool", "mine")
    assert ended.returncode == 0
    assert ended.stdout == (
        'No signal was submitted to the signal pool "mine". The signal pools are: "signals".\n'
    )


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


def net_returns(weights: list[list[float]], series: list[list[float | None]]) -> list[float]:
    """What a book earns that takes the weights of a day at the close of the next, at five basis
    points; positions without a close are carried, and bind their capital."""
    days, instruments = len(series[0]), range(len(series))
    last = [max(day for day in range(days) if closes[day] is not None) for closes in series]
    held = [0.0] * len(series)
    known: list[float] = [0.0] * len(series)
    net = []
    for day in range(days - 1):
        wanted = weights[day - 1] if day > 0 else held
        has_close = [closes[day] is not None for closes in series]
        held = [0.0 if day > last[i] else held[i] for i in instruments]
        carried = sum(abs(held[i]) for i in instruments if not has_close[i])
        tradable = sum(abs(wanted[i]) for i in instruments if has_close[i])
        share = 1.0
        if carried > 0 and tradable > 0:
            room = sum(abs(weight) for weight in wanted) - carried
            share = min(1.0, max(0.0, room / tradable))
        now = [share * wanted[i] if has_close[i] else held[i] for i in instruments]
        traded = sum(abs(now[i] - held[i]) for i in instruments)
        gross = 0.0
        for i in instruments:
            known[i] = series[i][day] or known[i]
            then = series[i][day + 1]
            if now[i] and then is not None:
                gross += now[i] * (then / known[i] - 1)
        net.append(gross - 5e-4 * traded)
        held = now
    return net


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
        series = [[closes.get((day, symbol)) for day in dates[:112]] for symbol in symbols]
        net = net_returns(weights, series)  # The search saw 112 days.
        mean = sum(net) / len(net)
        deviation = math.sqrt(sum((value - mean) ** 2 for value in net) / (len(net) - 1))
        ((stored,),) = rows(
            store, f"SELECT sharpe FROM evaluations WHERE eval_id = '{eval_id}'"
        )
        # 150 days in the 176 from the first to the last: no usual calendar.
        periods = round(149 / 176 * 365.25)
        sharpe = math.sqrt(periods) * mean / deviation if deviation else 0.0
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
    beside = [store.with_name(store.name + suffix) for suffix in ("-wal", "-shm", "-journal")]
    for path in (store, prices, *beside):
        ended = call("export", store, eval_id, "--weights", path, "--force")
        assert ended.returncode == 2 and "it is a file that the weights are made of" in ended.stderr
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
    assert f"{prices}: it cannot be opened: No such file or directory; name the" in ended.stderr
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


def test_weights_do_not_replace_what_they_are_made_of(prices: Path, store: Path):
    eval_id = submitted_ids(store)[0]
    before = folder_of(store.parent), prices.read_bytes()
    beside = [store.with_name(store.name + suffix) for suffix in ("-wal", "-shm", "-journal")]
    for path in (store, prices, *beside):
        ended = call(
            "weights", store, eval_id, "--prices", prices, "--output", path, "--force"
        )
        assert ended.returncode == 2
        assert "it is a file that the weights are made of" in ended.stderr
    assert (folder_of(store.parent), prices.read_bytes()) == before
