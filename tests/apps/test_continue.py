"""A search that goes on with what the store holds, and what an interrupted run has left undone.

Method: runs with one seed, which would try the same candidates first, on one store.
"""

from __future__ import annotations

import json
import sqlite3
from pathlib import Path

import pytest

from program import a_run, events, rows, submitted_ids

# Structures that run 2 has evaluated although run 1 had, seeds apart.
REPEATED = (
    "SELECT count(DISTINCT a.graph_key) FROM evaluations a JOIN evaluations b USING (graph_key) "
    "WHERE a.run_id = 1 AND a.statistics <> 'null' AND b.run_id = 2 "
    "AND b.lineage ->> 'origin' <> 'seed'"
)


def test_nothing_is_evaluated_again_but_the_best_which_begin(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    known = rows(
        store, "SELECT count(DISTINCT graph_key) FROM evaluations WHERE statistics <> 'null'"
    )[0][0]
    best = rows(
        store, "SELECT graph_key FROM evaluations WHERE passed = 1 GROUP BY graph_key "
        "ORDER BY max(quality_score) DESC, min(id) LIMIT 8",
    )
    _, text = a_run(tmp_path, prices, "--continue", "--json")
    begun, ended = events(text)[0], events(text)[-2]
    assert (begun["known_structures"], begun["earlier_signals"]) == (known, len(best))
    first = rows(
        store, "SELECT graph_key FROM evaluations WHERE run_id = 2 AND generation = 0 "
        "AND lineage ->> 'origin' = 'seed' ORDER BY id",
    )
    assert first == best
    assert rows(store, REPEATED) == [(0,)]
    assert ended["left_out"] > 0, "the seed would have drawn the same"
    assert rows(store, "SELECT count(*) FROM evaluations WHERE run_id = 2")[0][0] > len(best)
    # They are bred from or repaired: of what is new, some has a parent among them.
    parents = {
        parent for (parents,) in rows(
            store, "SELECT lineage ->> 'parents' FROM evaluations WHERE run_id = 2 "
            "AND lineage ->> 'parents' IS NOT NULL",
        ) for parent in json.loads(parents)
    }
    assert parents & {key for (key,) in best}


def test_without_it_the_same_is_evaluated_again(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    _, text = a_run(tmp_path, prices, "--json")
    assert rows(store, REPEATED)[0][0] > 0
    assert events(text)[0]["known_structures"] is None
    assert events(text)[-2]["left_out"] == 0


@pytest.mark.parametrize(
    "other",
    [("--cost-bps", "7"), ("--min-sharpe=-50",), ("--era", "2"), ("--pool", "other"),
     ("--periods-per-year", "100")],
)
def test_what_was_judged_otherwise_is_evaluated_again(
    tmp_path: Path, prices: Path, other: tuple[str, ...]
):
    store, _ = a_run(tmp_path, prices)
    _, text = a_run(tmp_path, prices, "--continue", "--json", *other)
    assert (events(text)[0]["known_structures"], events(text)[0]["earlier_signals"]) == (0, 0)
    assert rows(store, REPEATED)[0][0] > 0


def test_the_first_run_has_nothing_to_continue(tmp_path: Path, prices: Path):
    _, text = a_run(tmp_path, prices, "--continue")
    told = " ".join(text.split())
    assert "before 0 structures evaluated on these days before, and not again; 0 earlier" in told
    assert "Of the structures that were evaluated before 0 came up again and were left out." in told


def test_the_hold_out_of_an_interrupted_run_is_made_by_the_next(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    figures = (
        "SELECT eval_id, holdout_statistics, (SELECT group_concat(figures) FROM signal_figures f "
        "WHERE f.evaluation_id = e.id) FROM evaluations e WHERE run_id = 1 "
        "AND holdout_statistics IS NOT NULL ORDER BY eval_id"
    )
    before = rows(store, figures)
    assert [row[0] for row in before] == sorted(submitted_ids(store)) and len(before) > 1
    connection = sqlite3.connect(store)
    connection.execute("UPDATE evaluations SET holdout_statistics = NULL")
    connection.execute("DELETE FROM signal_figures")
    connection.execute("DELETE FROM price_days")
    connection.commit()
    connection.close()
    _, text = a_run(tmp_path, prices, "--json")
    assert events(text)[-2]["completed_holdouts"] == len(before)
    after = rows(store, figures)
    assert [row[:2] for row in after] == [row[:2] for row in before]
    assert rows(store, "SELECT count(*) FROM price_days WHERE run_id = 1") == [(150,)]
    _, text = a_run(tmp_path, prices, "--json")
    assert events(text)[-2]["completed_holdouts"] == 0
