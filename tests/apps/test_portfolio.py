"""The pool as one book: its shares know the days in sample alone, and its weights are theirs."""

from __future__ import annotations

import csv
import io
import json
import random
from pathlib import Path

import pytest

from program import a_run, call

METHODS = ("ridge", "equal-risk", "equal")


@pytest.fixture
def pool(tmp_path: Path, prices: Path) -> Path:
    """A store with several signals in the pool "signals", some of them with volumes in them."""
    return a_run(tmp_path, prices, "--no-simple-forms")[0]


def book_of(pool: Path, *arguments: str | Path) -> dict:
    done = call("portfolio", pool, "--json", *arguments)
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)


def weights_in(text: str) -> tuple[list[str], list[list[float]]]:
    head, *lines = csv.reader(io.StringIO(text))
    return [line[0] for line in lines], [[float(cell) for cell in line[1:]] for line in lines]


@pytest.mark.parametrize("method", METHODS)
def test_the_book_is_the_shares_of_the_signals_added_up(pool: Path, tmp_path: Path, method: str):
    book = book_of(pool, "--method", method, "--output", tmp_path / "book.csv")
    days, weights = weights_in((tmp_path / "book.csv").read_text())
    assert len(book["members"]) > 2 and book["left_out"] == []
    assert sum(member["share"] for member in book["members"]) == pytest.approx(1.0)
    added = [[0.0] * 5 for _ in days]
    for member in book["members"]:
        file = tmp_path / f"{member['eval_id']}.csv"
        assert call("export", pool, member["eval_id"], "--weights", file).returncode == 0
        for row, signal in zip(added, weights_in(file.read_text())[1], strict=True):
            for i, weight in enumerate(signal):
                row[i] += member["share"] * weight
    for row, expected in zip(weights, added, strict=True):
        assert row == pytest.approx(expected, abs=1e-12)
    gross = [sum(map(abs, row)) for row in weights]
    sample = book["in_sample"]["days"]
    told = book["statistics"]["in_sample"]
    # Traded a day after the signal: day t holds what day t - 1 wanted.
    assert told["abs_weight_sum_mean"] == pytest.approx(
        sum(gross[: sample - 2]) / (sample - 1), abs=1e-9)
    assert told["turnover"] <= book["turnover_without_netting"]["in_sample"] + 1e-12


def test_the_first_method_is_the_default(pool: Path):
    assert book_of(pool) == book_of(pool, "--method", METHODS[0])


def test_equal_risk_gives_each_the_same(pool: Path):
    book = book_of(pool, "--method", "equal-risk")
    risks = [member["risk"] for member in book["members"]]
    assert risks == pytest.approx([1 / len(risks)] * len(risks), abs=1e-9)


def test_the_shares_know_nothing_of_the_holdout(pool: Path, prices: Path, tmp_path: Path):
    book = book_of(pool, "--method", "ridge")
    first_holdout = book["holdout"]["first_date"]
    head, *lines = prices.read_text().splitlines()
    generator = random.Random(3)
    changed = [head]
    for line in lines:
        day, symbol, *cells = line.split(",")
        if day >= first_holdout:
            factor = generator.uniform(0.5, 2.0)
            cells[:4] = [f"{factor * float(cell):.4f}" for cell in cells[:4]]
        changed.append(",".join([day, symbol, *cells]))
    other = tmp_path / "other.csv"
    other.write_text("\n".join(changed) + "\n")
    again = book_of(pool, "--method", "ridge", "--prices", other)
    assert [member["share"] for member in again["members"]] == [
        member["share"] for member in book["members"]]
    assert again["statistics"]["in_sample"] == book["statistics"]["in_sample"]
    assert again["statistics"]["holdout"] != book["statistics"]["holdout"]


def test_the_page_tells_the_book_beside_its_signals_and_the_market(pool: Path):
    done = call("portfolio", pool)
    assert done.returncode == 0, done.stderr
    days = "in sample 112, 2020-01-01 to 2020-05-12; hold-out 38, 2020-05-13 to 2020-06-25"
    assert days in done.stdout
    for told in ("Sharpe ratio of the market", "turnover without netting", "share %"):
        assert told in done.stdout
    for member in book_of(pool)["members"]:
        assert member["eval_id"] in [line.split()[0] for line in done.stdout.split("\n") if line]


def test_weights_on_standard_output_displace_the_figures(pool: Path):
    done = call("portfolio", pool, "-o", "-")
    assert done.returncode == 0
    days, _ = weights_in(done.stdout)
    assert (days[0], days[-1]) == ("2020-01-01", "2020-06-25")
    assert "Sharpe ratio" in done.stderr


def test_what_cannot_be_done_is_told(pool: Path, prices: Path, tmp_path: Path):
    done = call("portfolio", pool, "--pool", "mine")
    assert done.returncode == 2 and 'submitted to the signal pool "mine"' in done.stderr
    done = call("portfolio", pool, "--method", "luck")
    assert done.returncode == 2
    assert '--method wants one of ridge, equal-risk, equal, not "luck"' in done.stderr
    done = call("portfolio", pool, "--output", pool, "--force")
    assert done.returncode == 2 and "a file that the weights are made of" in done.stderr
    few = tmp_path / "few.csv"
    lines = prices.read_text().splitlines()
    kept = [line for line in lines if line < "2020-05-20" or "date" in line]
    few.write_text("\n".join(kept) + "\n")
    done = call("portfolio", pool, "--prices", few)
    assert done.returncode == 2
    assert "the hold-out has 7 days on these prices; it needs 20" in done.stderr


def test_a_signal_that_cannot_be_computed_is_left_out(pool: Path, prices: Path, tmp_path: Path):
    closes = tmp_path / "closes.csv"
    lines = [line.split(",") for line in prices.read_text().splitlines()]
    closes.write_text("\n".join(f"{line[0]},{line[1]},{line[5]}" for line in lines) + "\n")
    whole = book_of(pool)
    done = call("portfolio", pool, "--json", "--prices", closes)
    left = json.loads(done.stdout)["left_out"]
    assert done.returncode == 1 and left
    assert len(left) + len(json.loads(done.stdout)["members"]) == len(whole["members"])
    for row in left:
        assert f"{row['eval_id']} is not part of the book: " in done.stderr
