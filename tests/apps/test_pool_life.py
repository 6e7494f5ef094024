"""The signal pool lives on through new data: more days, another history, other rules, other eras.

Method: runs with one seed on one store, on price files that differ a little. What is in the pool is
recognised on the days of each run, and what was held out once stays held out.
"""

from __future__ import annotations

import json
import re
import signal
import sqlite3
import sys
from pathlib import Path

import pytest

from program import NO_GATES, a_run, call, events, is_alive, rows, start, submitted_ids, wait_until

sys.path.insert(0, str(Path(__file__).parents[1] / "support"))
from store_invariants import violations  # noqa: E402

MEASURES = (
    "SELECT s.eval_id, m.run_id, m.problem, m.sharpe FROM member_measures m "
    "JOIN submissions s ON s.id = m.submission_id ORDER BY m.id"
)
HOLDOUT = "SELECT signal_pool_name, market_id, holdout_from FROM pools"


def with_lines(prices: Path, name: str, change) -> Path:
    """The price file with its lines, the head apart, changed."""
    head, *lines = prices.read_text().splitlines()
    path = prices.with_name(name)
    path.write_text("\n".join([head, *change(lines)]) + "\n")
    return path


def one_more_day(prices: Path) -> Path:
    def add(lines: list[str]) -> list[str]:
        last = [line for line in lines if line.startswith("2020-06-25,")]
        return lines + [line.replace("2020-06-25", "2020-06-26") for line in last]

    return with_lines(prices, "tomorrow.csv", add)


def adjusted(prices: Path, factor: float = 0.5) -> Path:
    """A split of one instrument in the middle of the days that are searched."""

    def adjust(lines: list[str]) -> list[str]:
        found = []
        for line in lines:
            day, symbol, *figures = line.split(",")
            if symbol == "BBB" and day < "2020-03-10":
                figures = [f"{float(figure) * factor:.4f}" for figure in figures[:4]] + figures[4:]
                # A split that was not known before: the closes on its other side do not move.
            found.append(",".join([day, symbol, *figures]))
        return found

    return with_lines(prices, "adjusted.csv", adjust)


def submitted_by(store: Path, run: int) -> list[str]:
    return [name for name in submitted_ids(store) if name.startswith(f"{run}-")]


def first_generation_of(store: Path, run: int) -> set[str]:
    return {
        key for (key,) in rows(
            store, f"SELECT graph_key FROM evaluations WHERE run_id = {run} AND generation = 0"
        )
    }


def test_a_day_more_begins_no_new_pool(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    before = submitted_ids(store)
    assert before
    _, text = a_run(tmp_path, one_more_day(prices))
    # The same seed tries the same candidates first; those of the pool are in it.
    assert first_generation_of(store, 1) == first_generation_of(store, 2)
    again = rows(
        store, "SELECT graph_key FROM submissions WHERE state = 'submitted' "
        "GROUP BY graph_key HAVING count(*) > 1",
    )
    assert again == []
    first = "SELECT eval_id FROM submissions JOIN evaluations USING (eval_id) WHERE " \
        "submissions.state = 'submitted' AND generation = 0 AND submissions.run_id = "
    assert rows(store, first + "1") and rows(store, first + "2") == []
    # Tomorrow's day belongs to the hold-out, and what is searched is what it was: nothing is new.
    assert rows(store, MEASURES) == []
    assert "in sample 112, to 2020-05-12; hold-out 39, from 2020-05-13, as the signal pool" in text
    assert rows(store, HOLDOUT) == [("signals", 1, "2020-05-13")]
    assert submitted_ids(store)[: len(before)] == before


def test_a_file_in_another_order_is_the_same(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    other = with_lines(prices, "other.csv", lambda lines: sorted(lines, reverse=True))
    a_run(tmp_path, other)
    assert rows(store, MEASURES) == []
    assert rows(store, "SELECT count(DISTINCT data_key) FROM submissions") == [(1,)]


def test_members_are_measured_on_a_history_that_was_adjusted(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    before = submitted_ids(store)
    _, text = a_run(tmp_path, adjusted(prices), "--json")
    told = [event for event in events(text) if event["event"] == "measured"]
    assert told == [{"event": "measured", "members": len(before), "done": len(before), "failed": 0}]
    measured = rows(store, MEASURES)
    assert sorted(row[:3] for row in measured) == sorted((name, 2, None) for name in before)
    stored = dict(rows(store, "SELECT eval_id, sharpe FROM evaluations"))
    assert any(row[3] != stored[row[0]] for row in measured), "both figures are kept"
    # The very statistics of a backtest on the new prices: the second run made it as well.
    for eval_id, _, _, sharpe in measured:
        twins = rows(
            store, "SELECT b.sharpe FROM evaluations a JOIN evaluations b USING (graph) "
            f"WHERE a.eval_id = '{eval_id}' AND b.run_id = 2 AND b.sharpe IS NOT NULL",
        )
        assert all(twin == (sharpe,) for twin in twins)
    shown = json.loads(call("show", store, before[0], "--json").stdout)
    assert [(row["run_id"], row["sharpe"]) for row in shown["measures"]] == [
        (row[1], row[3]) for row in measured if row[0] == before[0]
    ]
    # Each once: the same prices again find the measures there.
    _, text = a_run(tmp_path, adjusted(prices), "--json")
    assert [row[1] for row in rows(store, MEASURES)] == [2] * len(before)
    assert violations(store) == []


@pytest.mark.parametrize("rule", [("--cost-bps", "9"), ("--delay", "2"), ("--era", "2")])
def test_members_are_measured_by_other_rules_and_in_other_eras(
    tmp_path: Path, prices: Path, rule: tuple[str, str]
):
    store, _ = a_run(tmp_path, prices)
    before = submitted_ids(store)
    _, text = a_run(tmp_path, prices, *rule)
    measured = [row[:3] for row in rows(store, MEASURES)]
    assert sorted(measured) == sorted((name, 2, None) for name in before)
    assert f"{len(before)} signals of the signal pool are from other prices or rules: " \
        f"{len(before)} measured anew on these" in text


def test_periods_of_a_year_measure_nothing_anew(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    a_run(tmp_path, prices, "--periods-per-year", "100")
    assert rows(store, MEASURES) == []


def test_a_member_that_cannot_be_computed_stays_with_its_reason(tmp_path: Path, prices: Path):
    # Of the members of this run some have volumes in them, and some have not.
    store, _ = a_run(tmp_path, prices, "--no-simple-forms")
    before = submitted_ids(store)
    # Prices without volumes: what is made of them cannot be computed.
    without = with_lines(
        prices, "without.csv", lambda lines: [line.rsplit(",", 1)[0] for line in lines]
    )
    without.write_text(without.read_text().replace(",volume", "", 1))
    graphs = dict(rows(store, "SELECT eval_id, graph FROM evaluations"))
    ended = call(
        "run", "--prices", without, "--db", store, "--generations", "2", "--batch-size", "8",
        "--seed", "6", *NO_GATES,
    )
    assert ended.returncode == 0
    measured = {row[0]: row[2] for row in rows(store, MEASURES)}
    assert set(measured) == set(before)
    of_volume = {name for name, problem in measured.items() if problem}
    assert 0 < len(of_volume) < len(before)
    for name in before:
        assert (name in of_volume) == bool(re.search('"(dollar_)?volume"', graphs[name]))
    for name in of_volume:
        told = f"pool member {name} is set aside: it cannot be measured on these prices ("
        assert told in ended.stderr
        assert "measured    on the days of run 2: cannot be, " in call("show", store, name).stdout
    assert f"{len(before) - len(of_volume)} measured anew on these, {len(of_volume)} cannot be" in \
        ended.stdout.replace("\n", " ")
    left = {name for (name,) in rows(
        store, "SELECT eval_id FROM submissions WHERE refusal_reason = 'replaced_by_better'"
    )}
    assert set(before) <= set(submitted_ids(store)) | left, "they are members, or were"
    assert of_volume <= set(submitted_ids(store)), "what cannot be computed is not compared"
    assert rows(store, "SELECT count(*) FROM submissions WHERE state = 'queued'") == [(0,)]
    # On the prices that have what they need they count as before.
    _, text = a_run(tmp_path, prices)
    assert "is set aside" not in text


# --- the founding member ---


def test_the_market_is_in_every_pool_from_the_beginning(tmp_path: Path, prices: Path):
    close = {"node": "close", "type": "feature", "children": []}
    market = {"node": "arith_div", "type": "rotation", "children": [close, close]}
    seeds = tmp_path / "seeds.json"
    seeds.write_text(json.dumps([market]))
    store, _ = a_run(tmp_path, prices, "--seeds", seeds)
    # The same weight in each instrument on each day: the first signal of an empty pool, once.
    ((passed, reason, detail),) = rows(
        store, "SELECT passed, failure_reason, failure_detail FROM evaluations "
        "WHERE lineage ->> 'origin' = 'seed'",
    )
    assert (passed, reason) == (0, "pnl_mi_below_threshold")
    assert detail.startswith("is_pnl_mi 0 is below 0.2") or "below 0.2" in detail
    first = rows(store, "SELECT correlation FROM submissions ORDER BY settled_order LIMIT 1")
    assert first[0][0] > 0.0, "it was compared"


# --- the split ---


def test_the_split_is_kept_by_its_date(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices, "--holdout-from", "2020-05-01")
    assert rows(store, HOLDOUT) == [("signals", 1, "2020-05-01")]
    _, text = a_run(tmp_path, one_more_day(prices), "--json")
    begun = events(text)[0]
    assert (begun["seen_days"], begun["first_holdout_date"]) == (100, "2020-05-01")
    assert (begun["holdout_days"], begun["split_is_kept"]) == (51, True)
    a_run(tmp_path, prices, "--pool", "other", "--json")
    assert rows(store, HOLDOUT)[1] == ("other", 1, "2020-05-13")


@pytest.mark.parametrize("day", ["2020-04-30", "2020-05-12", "2020-06-01"])
def test_another_split_is_refused(tmp_path: Path, prices: Path, day: str):
    store, _ = a_run(tmp_path, prices)
    count = rows(store, "SELECT count(*) FROM runs")
    refused = call(
        "run", "--prices", prices, "--db", store, "--generations", "1", "--holdout-from", day
    )
    assert refused.returncode == 2
    assert refused.stderr == (
        f"genetic-search: a hold-out from {day} on was asked for, and the signal pool \"signals\" "
        "keeps its hold-out from 2020-05-13 on; leave --holdout-from out, or begin another signal "
        "pool with --pool NAME\n"
    )
    assert rows(store, "SELECT count(*) FROM runs") == count
    a_run(tmp_path, prices, "--holdout-from", "2020-05-13")
    assert rows(store, "SELECT count(*) FROM runs") != count


def test_a_history_without_the_hold_out_is_refused(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    short = with_lines(
        prices, "short.csv", lambda lines: [line for line in lines if line < "2020-05-20"]
    )
    refused = call("run", "--prices", short, "--db", store, "--generations", "1")
    assert refused.returncode == 2
    assert 'the signal pool "signals" keeps its hold-out from 2020-05-13 on: of a history of 119 ' \
        "days (train eras: 3, hold-out: from 2020-05-13) the hold-out has 7 days" in refused.stderr


def test_a_configuration_names_the_day(tmp_path: Path, prices: Path):
    config = tmp_path / "my.toml"
    for number, day in enumerate(["2020-05-04", '"2020-05-04"']):
        config.write_text(f"[eras]\nholdout_from = {day}\n")
        _, text = a_run(tmp_path, prices, "--config", config, "--json", "--pool", f"p{number}")
        assert events(text)[0]["first_holdout_date"] == "2020-05-04"
    config.write_text("[eras]\nholdout_from = 20200504\n")
    refused = call("run", "--prices", prices, "--db", tmp_path / "no.db", "--config", config)
    assert refused.returncode == 2
    assert "eras.holdout_from: is not a day; write a day as 2026-01-31" in refused.stderr \
        or "write a day as 2026-01-31" in refused.stderr


# --- several runs, and runs that end in the middle ---


def test_runs_on_other_prices_share_a_pool_at_the_same_time(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    files = [prices, adjusted(prices)]
    runs = [
        start(
            "run", "--prices", file, "--db", store, "--generations", "6", "--batch-size", "8",
            "--seed", str(seed), "--jobs", "1", *NO_GATES,
        ) for seed, file in enumerate(files)
    ]
    for run in runs:
        _, messages = run.communicate(timeout=120)
        assert run.returncode == 0, messages
    a_run(tmp_path, prices)
    a_run(tmp_path, adjusted(prices))
    assert rows(store, "SELECT count(*) FROM submissions WHERE state = 'queued'") == [(0,)]
    assert rows(
        store, "SELECT count(*) FROM submissions WHERE state = 'submitted' "
        "GROUP BY graph_key HAVING count(*) > 1",
    ) == []
    # Both price files know every member now.
    keys = rows(store, "SELECT DISTINCT data_key FROM submissions")
    assert len(keys) == 2
    for (key,) in keys:
        assert rows(
            store, "SELECT s.eval_id FROM submissions s WHERE s.state = 'submitted' AND "
            f"s.data_key <> '{key}' AND s.settled_order < (SELECT max(settled_order) FROM "
            f"submissions WHERE run_id < 3) AND NOT EXISTS (SELECT 1 FROM member_measures m "
            f"WHERE m.submission_id = s.id AND m.data_key = '{key}' AND m.pnl IS NOT NULL)",
        ) == []
    assert violations(store) == []


def test_an_interrupted_measuring_goes_on_with_the_next_run(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    # Many members that take their time: copies of one, under structures of their own.
    connection = sqlite3.connect(store)
    names = [row[1] for row in connection.execute("PRAGMA table_info(submissions)")]
    kept = ", ".join(name for name in names if name not in ("id", "graph_key", "settled_order"))
    for number in range(400):
        connection.execute(
            f"INSERT INTO submissions (graph_key, settled_order, {kept}) SELECT 'copy-{number}', "
            f"(SELECT max(settled_order) + 1 FROM submissions), {kept} FROM submissions "
            "WHERE state = 'submitted' ORDER BY id LIMIT 1"
        )
    connection.commit()
    connection.close()
    members = len(submitted_ids(store))
    count = "SELECT count(*) FROM member_measures"
    for number, how in enumerate((signal.SIGINT, signal.SIGKILL)):
        before = rows(store, count)[0][0]
        run = start(
            "run", "--prices", adjusted(prices), "--db", store, "--generations", "2",
            "--batch-size", "8", "--seed", "5", "--jobs", "1", *NO_GATES,
        )
        wait_until(lambda: rows(store, count)[0][0] > before + 20, "members are measured")
        run.send_signal(how)
        run.communicate(timeout=120)
        assert not is_alive(run.pid)
        between = rows(store, count)[0][0]
        assert before < between < members, number
        assert rows(store, "SELECT count(*) FROM submissions WHERE run_id > 1") == [(0,)], \
            "nothing is settled beside a pool that is known in part"
    a_run(tmp_path, adjusted(prices))
    assert rows(store, count)[0][0] >= members
    by_run = rows(store, "SELECT run_id, count(*) FROM member_measures GROUP BY 1 ORDER BY 1")
    assert len(by_run) == 3 and all(number > 0 for _, number in by_run), "none is lost"
