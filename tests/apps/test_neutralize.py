"""--neutralize: what is taken out of the weights, from the run to all that is made of its signals.

Method: twelve instruments in three sectors. The weights that a run's signals have, wherever they
are written, add up to nothing within what was neutralized; without the option the number of the
instruments decides.
"""

from __future__ import annotations

import csv
import json
import math
import random
import sqlite3
from pathlib import Path

import pytest

from program import a_run, call, events, rows, submitted_ids

SECTORS = {f"S{i:02}": ("Tech", "Oil", "Banks")[i % 3] for i in range(12)}


@pytest.fixture
def sectors(tmp_path: Path) -> Path:
    generator = random.Random(3)
    path = tmp_path / "sectors.csv"
    days = [f"2020-{month:02}-{day:02}" for month in range(1, 7) for day in range(1, 26)]
    lines = ["date,symbol,open,close,volume,sector"]
    for symbol, sector in SECTORS.items():
        close = 50.0
        for day in days:
            opened, close = close, close * math.exp(generator.gauss(0.0005, 0.02))
            lines.append(
                f"{day},{symbol},{opened:.4f},{close:.4f},{generator.randrange(100, 900)},{sector}"
            )
    path.write_text("\n".join(lines) + "\n")
    return path


def books(path: Path) -> list[dict[str, float]]:
    with path.open() as file:
        return [
            {symbol: float(weight) for symbol, weight in row.items() if symbol in SECTORS}
            for row in csv.DictReader(file)
        ]


def assert_neutral(path: Path, parts: list[list[str]]) -> None:
    held = [book for book in books(path) if any(book.values())]
    assert len(held) > 50
    for book in held:
        assert abs(sum(map(abs, book.values())) - 1) < 1e-9
        for part in parts:
            assert abs(sum(book[symbol] for symbol in part)) < 1e-9


def in_sectors() -> list[list[str]]:
    return [[s for s, sector in SECTORS.items() if sector == name] for name in ("Tech", "Oil")]


def test_all_that_is_made_of_a_run_keeps_its_rule(tmp_path: Path, sectors: Path):
    store, text = a_run(tmp_path, sectors, "--neutralize", "sector")
    assert "neutralized within each sector" in " ".join(text.split())
    eval_id = submitted_ids(store)[0]
    (page,) = events(call("show", store, eval_id, "--json").stdout)
    assert page["run"]["neutralize"] == "sector"
    exported, weights = tmp_path / "exported.csv", tmp_path / "weights.csv"
    assert call("export", store, eval_id, "--weights", exported).returncode == 0
    assert_neutral(exported, in_sectors())
    done = call("weights", store, eval_id, "--prices", sectors, "--output", weights)
    assert done.returncode == 0, done.stderr
    assert books(weights) == books(exported)
    ((attempt,),) = rows(
        store, "SELECT max(id) FROM attempts WHERE terminal_disposition = 'passed'"
    )
    done = call("replay", store, attempt)
    assert done.returncode == 0 and "The recorded statistics again" in done.stdout, done.stdout
    # Judged by the same rule the formula has the same figures, in sample and hold-out.
    ((in_sample, holdout),) = rows(
        store, "SELECT statistics, holdout_statistics FROM evaluations "
        f"WHERE eval_id = '{eval_id}'",
    )
    done = call(
        "eval", page["expression"], "--prices", sectors, "--json", "--neutralize", "sector"
    )
    (told,) = events(done.stdout)
    assert told["statistics"] == {
        "in_sample": json.loads(in_sample), "holdout": json.loads(holdout)
    }
    # On prices without sectors the signal has no weights by its rule.
    plain = tmp_path / "plain.csv"
    with sectors.open() as source:
        plain.write_text("".join(line.rsplit(",", 1)[0] + "\n" for line in source))
    done = call("weights", store, eval_id, "--prices", plain, "--output", tmp_path / "no.csv")
    assert done.returncode == 2 and 'no column "sector"' in done.stderr


def test_the_market_is_taken_out_from_ten_instruments_on(
    tmp_path: Path, sectors: Path, prices: Path
):
    weights = tmp_path / "weights.csv"
    done = call("eval", "close", "--prices", sectors, "--weights", weights)
    assert "neutralized across the market" in " ".join(done.stdout.split())
    assert_neutral(weights, [list(SECTORS)])
    done = call("eval", "close", "--prices", prices)
    assert "not neutralized" in " ".join(done.stdout.split())
    done = call("eval", "close", "--prices", sectors, "--neutralize", "none")
    assert "not neutralized" in " ".join(done.stdout.split())


def test_other_rules_share_no_evaluations_and_members_are_measured_anew(
    tmp_path: Path, sectors: Path
):
    store, text = a_run(tmp_path, sectors, "--json")
    assert events(text)[0]["neutralize"] == "market"
    members = len(submitted_ids(store))
    _, text = a_run(tmp_path, sectors, "--continue", "--json", "--neutralize", "none")
    assert events(text)[0]["known_structures"] == 0
    ((measured,),) = rows(
        store, "SELECT count(*) FROM member_measures WHERE run_id = 2 AND problem IS NULL"
    )
    assert measured == members
    _, text = a_run(tmp_path, sectors, "--continue", "--json", "--neutralize", "market")
    assert events(text)[0]["known_structures"] > 0


def test_a_run_of_the_version_before_was_not_neutralized(tmp_path: Path, sectors: Path):
    store, _ = a_run(tmp_path, sectors, "--neutralize", "none")
    connection = sqlite3.connect(store)
    with connection:
        connection.execute("UPDATE runs SET settings = json_remove(settings, '$.neutralize')")
    connection.close()
    eval_id = submitted_ids(store)[0]
    (page,) = events(call("show", store, eval_id, "--json").stdout)
    assert page["run"]["neutralize"] == "none"
    _, text = a_run(tmp_path, sectors, "--continue", "--json", "--neutralize", "none")
    assert events(text)[0]["known_structures"] > 0


@pytest.mark.parametrize("command", ["run", "eval"])
def test_a_group_that_is_not_there_is_refused(tmp_path: Path, prices: Path, command: str):
    more = ("close",) if command == "eval" else ("--db", tmp_path / "new.db")
    done = call(command, *more, "--prices", prices, "--neutralize", "sector")
    assert done.returncode == 2
    assert (
        'the prices have no column "sector" whose groups weights can be neutralized by; give '
        "prices that have it, or neutralize by none or market" in done.stderr
    )
