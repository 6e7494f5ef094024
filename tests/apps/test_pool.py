"""The pool that a run tells at its end, and the configuration that it is judged by."""

from __future__ import annotations

import json
import re
import sqlite3
from pathlib import Path

import pytest

from program import NO_GATES, a_run, call, events, rows, table

# --- the pool at the end of a run ---


def test_the_end_tells_the_pool_beside_the_market(tmp_path: Path, prices: Path):
    store, text = a_run(tmp_path, prices)
    told = table(text, 'Submitted to the signal pool "signals": ')
    submitted = rows(
        store, "SELECT s.eval_id FROM submissions s JOIN evaluations e ON e.eval_id = s.eval_id "
        "WHERE s.state = 'submitted' ORDER BY e.sharpe DESC, s.settled_order",
    )
    assert [row["id"] for row in told[:-1]] == [row[0] for row in submitted[:10]]
    assert len(told) > 1 and told[-1]["id"] == "market"
    for row in told[:-1]:
        ((stored, holdout, novelty, correlation),) = rows(
            store, "SELECT e.statistics, e.holdout_statistics, s.score, s.correlation "
            f"FROM submissions s JOIN evaluations e ON e.eval_id = s.eval_id "
            f"WHERE s.eval_id = '{row['id']}'",
        )
        assert float(row["in sample"]) == pytest.approx(json.loads(stored)["sharpe"], abs=0.0051)
        assert float(row["hold-out"]) == pytest.approx(json.loads(holdout)["sharpe"], abs=0.0051)
        assert float(row["novelty"]) == pytest.approx(novelty, abs=0.0051)
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
    assert text.index("Best in sample") < text.index("Submitted to the signal pool")


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
        "replaced": ended["submissions"]["replaced"],
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
    assert 'Submitted to the signal pool "another": ' in text


def test_a_member_whose_pnl_cannot_be_read_is_named_and_the_rest_goes_on(
    tmp_path: Path, prices: Path
):
    store, _ = a_run(tmp_path, prices)
    connection = sqlite3.connect(store)
    ((member,),) = connection.execute(
        "SELECT eval_id FROM submissions WHERE state = 'submitted' ORDER BY settled_order LIMIT 1"
    ).fetchall()
    connection.execute("UPDATE submissions SET pnl = NULL WHERE eval_id = ?", (member,))
    connection.commit()
    connection.close()
    ended = call(
        "run", "--prices", prices, "--db", store, "--generations", "2", "--batch-size", "8",
        "--seed", "6", *NO_GATES,
    )
    assert ended.returncode == 0
    assert ended.stderr == (
        f"genetic-search: warning: pool member {member} is set aside: it has no PnL in the store "
        "that can be read; submit it anew, or take it out of the pool\n"
    )
    assert rows(store, "SELECT count(*) FROM submissions WHERE state = 'queued'") == [(0,)]
    assert rows(
        store, "SELECT count(*) FROM submissions WHERE run_id = 2 AND state = 'submitted'"
    )[0][0] > 0


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
