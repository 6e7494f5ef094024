"""genetic-search as its users meet it: arguments, files, outputs, whole runs.

No test depends on how fast anything is.
"""

from __future__ import annotations

import json
import os
import re
import subprocess
from pathlib import Path

import pytest

from program import (
    METRICS, NO_GATES, PATIENCE_SECONDS, PROGRAM, assert_ended_well, call, events, rows, start,
)

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


@pytest.mark.parametrize(
    ("option", "size", "limit"), [("--prices", 5 << 30, 4 << 30), ("--seeds", 65 << 20, 64 << 20)]
)
def test_a_file_beyond_the_limit_is_refused(
    tmp_path: Path, prices: Path, option: str, size: int, limit: int
):
    large = tmp_path / "large"
    large.touch()
    os.truncate(large, size)  # Without a byte on the disk.
    files = {"--prices": prices, option: large}
    ended = call(
        "run", "--db", tmp_path / "runs.db", "--generations", "1",
        *(word for pair in files.items() for word in pair),
    )
    assert ended.returncode == 2 and ended.stdout == ""
    assert f"{large}: is larger than {limit} bytes, the most that are read" in ended.stderr
    assert ended.stderr.count("\n") == 1 and not (tmp_path / "runs.db").exists()


@pytest.mark.parametrize("option", ["--prices", "--seeds", "--config"])
@pytest.mark.parametrize("name", ["/dev/zero", "/", "/proc/self/mem", "none"])
def test_what_is_no_file_is_refused_in_one_line(
    tmp_path: Path, prices: Path, option: str, name: str
):
    files = {"--prices": prices, option: name}
    ended = call(
        "run", "--db", tmp_path / "runs.db", "--generations", "1",
        *(word for pair in files.items() for word in pair), cwd=tmp_path,
    )
    assert ended.returncode == 2 and ended.stdout == "" and ended.stderr.count("\n") == 1
    assert name in ended.stderr and not (tmp_path / "runs.db").exists()


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
    # The four of the batch and their repairs.
    assert re.search(r"No signal passed. Why \d+ candidates failed", ended.stdout)
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


def test_the_limit_of_candidates(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--candidates", "5",
        "--batch-size", "4", "--json",
    )
    assert ended.returncode == 0, ended.stderr
    told = events(ended.stdout)
    assert told[-2]["stop_cause"] == "candidates"
    # The batch, or the round of repairs, in which the limit is reached is completed.
    recorded = [event for event in told if event["event"] == "recorded"]
    assert 5 <= told[-1]["candidate_count"] == len(recorded)


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
    # Each on a store of its own: what the first run submits is in the pool of the next.
    def told(store: str, *more: str) -> list[dict]:
        ended = call(
            "run", "--prices", prices, "--db", tmp_path / store, "--generations", "1",
            "--batch-size", "4", *more, "--json",
        )
        return events(ended.stdout)

    def expressions(run: list[dict]) -> list[str]:
        return [event["expression"] for event in run if event["event"] == "recorded"]

    drawn = told("drawn.db")
    assert expressions(told("again.db", "--seed", str(drawn[0]["seed"]))) == expressions(drawn)


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


def test_a_closed_standard_error_loses_nothing(tmp_path: Path, prices: Path):
    """What would be told there cannot be; the code says it."""
    store = tmp_path / "runs.db"
    command = f'exec "{PROGRAM}" run --prices "{prices}" --db "{store}" --batch-size 2 '
    for more, code in (("--generations 1 2>&-", 0), ("--jobs 0 2>&-", 2), ("--bogus 2>&- 1>&-", 2)):
        ended = subprocess.run(
            ["/bin/sh", "-c", command + more], stdin=subprocess.DEVNULL, capture_output=True,
            text=True, check=False, timeout=PATIENCE_SECONDS,
        )
        assert ended.returncode == code and ended.stderr == ""
    assert rows(store, "PRAGMA integrity_check") == [("ok",)]
    assert_ended_well(store, "stopped")


# --- check-prices ---


def test_all_mistakes_of_a_price_file_are_told_one_a_line(tmp_path: Path):
    prices = tmp_path / "bad.csv"
    prices.write_text("date,A\n2011-01-03,x\n2011-01-04\n")
    ended = call("check-prices", prices)
    assert ended.returncode == 2 and ended.stdout == ""
    first, second = ended.stderr.splitlines()
    assert first.startswith(f'genetic-search: {prices}: line 2, column 2 "A": "x" is not a number')
    assert second.startswith(f"  {prices}: line 3: the row has 1 cells where the header has 2")


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


def test_check_prices_tells_what_makes_a_backtest_lie(tmp_path: Path):
    path = tmp_path / "split.csv"
    closes = [100 + day % 3 for day in range(20)] + [50 + day % 3 for day in range(8)]
    path.write_text(
        "date,XYZ\n" + "".join(f"2999-01-{i + 1:02},{c}\n" for i, c in enumerate(closes))
    )
    ended = call("check-prices", path)
    assert ended.returncode == 0
    assert "unadjusted_splits: 1 (" in ended.stdout
    assert "  XYZ      2999-01-20 to 2999-01-21: 101 to 50, as in a split of 2 to 1" in ended.stdout
    assert "  remedy: divide the prices before it by the ratio" in ended.stdout
    assert "2999-01-01 to 2999-01-28: 28 days in the future" in ended.stdout
    assert "Nothing looks suspicious" not in ended.stdout
    (told,) = events(call("check-prices", path, "--json").stdout)
    found = {check["name"]: check["findings"] for check in told["checks"]}
    assert [name for name, findings in found.items() if findings] == [
        "future_dates", "unadjusted_splits"
    ]
    (split,) = found["unadjusted_splits"]
    assert (split["symbol"], split["last_date"]) == ("XYZ", "2999-01-21")
    assert split["figure"] == pytest.approx(101 / 50)
    assert told["jumps"][0]["to"] == 50 and told["days"] == 28


def test_every_check_of_prices_stands_in_the_documentation(prices: Path):
    (told,) = events(call("check-prices", prices, "--json").stdout)
    page = (Path(__file__).parents[2] / "docs" / "price-files.md").read_text()
    section = page[page.index("## Checks"):]
    assert [line for line in section.splitlines() if line.startswith("| `")] == [
        f"| `{check['name']}` | {check['threshold']} | {check['remedy']} |"
        for check in told["checks"]
    ]


def one_file_a_symbol(prices: Path, folder: Path) -> list[Path]:
    """The same prices as files of a symbol each, which do not say it."""
    folder.mkdir()
    head, *lines = prices.read_text().splitlines()
    by_symbol: dict[str, list[str]] = {}
    for line in lines:
        day, symbol, rest = line.split(",", 2)
        by_symbol.setdefault(symbol, []).append(f"{day},{rest}")
    for symbol, own in by_symbol.items():
        columns = head.replace("symbol,", "")
        (folder / f"{symbol}.csv").write_text("\n".join([columns, *own]) + "\n")
    return sorted(folder.iterdir())


def test_several_files_and_a_folder_are_the_same_prices_to_every_command(
    prices: Path, tmp_path: Path
):
    files = one_file_a_symbol(prices, tmp_path / "symbols")
    common = ("--generations", "2", "--seed", "5", "--batch-size", "8", *NO_GATES)
    again = tuple(part for file in files for part in ("--prices", file))
    given = {
        "one": ("--prices", prices),
        "files": ("--prices", *reversed(files)),
        "again": again,
        "folder": ("--prices", tmp_path / "symbols"),
    }
    digests, keys = set(), set()
    for name, arguments in given.items():
        database = tmp_path / f"{name}.db"
        ended = call("run", *arguments, "--db", database, *common)
        assert ended.returncode == 0, ended.stderr
        digests |= set(rows(database, "SELECT price_digest FROM runs"))
        keys |= set(rows(database, "SELECT evaluation_key FROM runs"))
    assert len(digests) == 2  # Of the one file, and of the five, however they were named.
    assert len(keys) == 1

    database = tmp_path / "files.db"
    ((eval_id,),) = rows(database, "SELECT eval_id FROM evaluations LIMIT 1")
    ((attempt,),) = rows(database, "SELECT MIN(id) FROM attempts")
    assert f"{files[-1]} and 4 more" in " ".join(call("show", database, eval_id).stdout.split())
    whole = tmp_path / "one.csv"
    assert call("export", tmp_path / "one.db", eval_id, "--weights", whole).returncode == 0
    for name, arguments in {
        "kept": (), "folder": ("--prices", tmp_path / "symbols"), "again": again
    }.items():
        weights = tmp_path / f"{name}.csv"
        ended = call("export", database, eval_id, "--weights", weights, *arguments)
        assert ended.returncode == 0, ended.stderr
        assert weights.read_bytes() == whole.read_bytes()
        assert call("replay", database, attempt, *arguments).returncode == 0
        ended = call("eval", "close", *(arguments or given["one"]), "--json")
        assert ended.returncode == 0, ended.stderr
        ended = call("weights", database, eval_id, *(arguments or given["one"]), "-o", "-")
        assert ended.stdout.encode() == whole.read_bytes(), ended.stderr
    assert "instruments: 5" in call("check-prices", *files).stdout
    assert "instruments: 5" in call("check-prices", tmp_path / "symbols").stdout
    clash = call("export", database, eval_id, "--weights", files[0], "--force")
    assert clash.returncode == 2 and "it is a file that the weights are made of" in clash.stderr

    files[0].unlink()
    ended = call("replay", database, attempt, "--prices", tmp_path / "symbols")
    assert ended.returncode == 2 and "not the price file of the run" in ended.stderr


def test_check_prices_refuses_what_it_cannot_read(tmp_path: Path):
    bad = tmp_path / "bad.csv"
    bad.write_text("date,AAA\n2020-01-01,-1\n")
    ended = call("check-prices", bad)
    assert ended.returncode == 2 and ended.stdout == ""
    assert f'{bad}: line 2, column 2 "AAA": "-1" ' in ended.stderr
    assert call("check-prices", tmp_path / "none.csv").returncode == 2
