"""Other searches on planted markets: the judge that they are held to, and the file of results.

The judge is tried on a small market whose best signal is known; the results with a stand-in for
the program that exports markets. The libraries themselves search where they are installed.
"""

from __future__ import annotations

import csv
import sys
from dataclasses import replace
from pathlib import Path

import numpy
import pandas
import pytest

HERE = Path(__file__).parents[2] / "benchmarks" / "search_quality"
sys.path.insert(0, str(HERE))

import peer_arms  # noqa: E402
import peers  # noqa: E402
from planted_market import (  # noqa: E402
    COST, Backtest, Judge, Market, MarketError, backtest, likeness, neutral_weights, read_market,
    sharpe_of,
)

KNOWN, FRESH, INSTRUMENTS = 160, 80, 6


def write_market(folder: Path) -> numpy.ndarray:
    """Prices that the volume of the day before last tells, and the PnL of the signal that says so;
    the files are those of `bench_search_quality export`."""
    folder.mkdir(parents=True, exist_ok=True)
    generator = numpy.random.default_rng(3)
    days = KNOWN + FRESH
    told = generator.normal(size=(days, INSTRUMENTS))
    for day in range(1, days):
        told[day] = 0.9 * told[day - 1] + 0.4 * told[day]
    moves = 0.01 * generator.normal(size=(days, INSTRUMENTS))
    moves[2:] += 0.004 * told[:-2]
    close = 100.0 * numpy.exp(numpy.cumsum(moves, axis=0))
    frame = pandas.DataFrame(
        {
            "date": numpy.repeat(pandas.bdate_range("2020-01-01", periods=days), INSTRUMENTS),
            "symbol": [f"S{i}" for i in range(INSTRUMENTS)] * days,
            "open": close.ravel(),
            "high": 1.01 * close.ravel(),
            "low": 0.99 * close.ravel(),
            "close": close.ravel(),
            "volume": numpy.exp(10.0 + told).ravel(),
        }
    )
    frame.to_csv(folder / "all_prices.csv", index=False)
    frame[: KNOWN * INSTRUMENTS].to_csv(folder / "prices.csv", index=False)
    pnl = backtest(neutral_weights(numpy.log(frame["volume"].to_numpy()).reshape(days, -1)), close)
    searched = KNOWN - KNOWN // 4
    numpy.savetxt(folder / "oracle.csv", pnl.net[: searched - 1])
    return pnl.net


@pytest.fixture
def market(tmp_path: Path) -> Market:
    write_market(tmp_path / "market")
    return read_market(tmp_path / "market", (2.0, 1.5))


def log_volume(market: Market) -> numpy.ndarray:
    return numpy.log(market.searched_features()["volume"])


def test_a_backtest_by_hand():
    """Two instruments, one long and one short by a half, traded one day late."""
    close = numpy.array([[10.0, 10.0], [10.0, 10.0], [11.0, 10.0], [11.0, 5.0], [11.0, 5.0]])
    weights = neutral_weights(numpy.array([[3.0, 1.0]] * 5))
    assert weights == pytest.approx(numpy.array([[0.5, -0.5]] * 5))
    tested = backtest(weights, close)
    assert tested.gross == pytest.approx([0.0, 0.05, 0.25, 0.0])
    assert tested.traded == pytest.approx([0.0, 1.0, 0.0, 0.0])
    assert tested.net == pytest.approx([0.0, 0.05 - COST, 0.25, 0.0])


def test_weights_of_days_without_a_signal_are_none():
    unknown = numpy.nan
    weights = neutral_weights(
        numpy.array([[1.0, 1.0, 1.0], [unknown] * 3, [5.0, unknown, 1.0], [0.0, 0.0, 0.0]])
    )
    nothing = [0.0] * 3
    assert weights == pytest.approx(numpy.array([nothing, nothing, [0.5, 0.0, -0.5], nothing]))


def test_gates_are_counted():
    rng = numpy.random.default_rng(1)
    gross = 0.01 + 0.001 * rng.normal(size=50)
    held = numpy.full((50, 2), 0.5)
    assert Backtest(gross, numpy.full(50, 0.1), held).passes()
    assert Backtest(gross, numpy.full(50, 1.1), held).missed_gates() == 1
    assert Backtest(gross, numpy.full(50, 1.1), held / 4).missed_gates() == 2
    assert not Backtest(-gross, numpy.full(50, 0.1), held).passes()


def test_the_days_of_a_market(market: Market, tmp_path: Path):
    assert (market.searched, market.known) == (120, 160)
    net = write_market(tmp_path / "market")
    weights = neutral_weights(numpy.log(market.features["volume"]))
    assert market.later_sharpes(weights) == pytest.approx(
        (sharpe_of(net[119:159]), sharpe_of(net[159:]))
    )


def test_the_judge_counts_distinct_signals_and_knows_the_oracle(market: Market):
    judge = Judge(market, 3)
    noise = numpy.random.default_rng(9).normal(size=log_volume(market).shape)
    first = judge.fitness(noise, "noise")
    assert judge.fitness(noise.copy(), "again") == first
    assert (judge.backtests, judge.found_after) == (1, None)
    right = judge.fitness(log_volume(market), "right")
    assert right > 0.5 and judge.found_after == 2
    assert judge.best().program == "right"
    assert judge.fitness(-log_volume(market), "wrong") < 0.0
    assert judge.is_spent and judge.behaviours == 3
    assert judge.fitness(2.0 * noise, "late") is None
    assert judge.fitness(noise, "known") == first
    assert judge.backtests == 3 and [c.program for c in judge.passed if c.sharpe > 2] == ["right"]


def test_what_earns_otherwise_than_the_oracle_is_not_found(market: Market):
    earned = backtest(neutral_weights(log_volume(market)), market.close[: market.searched]).net
    generator = numpy.random.default_rng(6)
    for share, is_found in ((0.5, True), (3.0, False)):
        noise = earned.std() * generator.normal(size=len(earned))
        judge = Judge(replace(market, oracle_pnl=earned + share * noise), 9)
        judge.fitness(log_volume(market), "right")
        assert judge.best().sharpe > 0.5
        assert (judge.found_after == 1) is is_found


def test_the_book_holds_the_best_that_differ(market: Market):
    judge = Judge(market, 1000)
    generator = numpy.random.default_rng(4)
    for number in range(60):
        share = generator.uniform(0.0, 3.0)
        # Of an instrument for all days, so that it is not traded.
        noise = generator.normal(size=INSTRUMENTS)
        judge.fitness(log_volume(market) + share * noise, number)
    book = judge.book()
    assert 2 <= len(book) <= 10 < len(judge.passed)
    assert book[0] is judge.best()
    assert [c.sharpe for c in book] == sorted((c.sharpe for c in book), reverse=True)
    for place, member in enumerate(book):
        assert all(abs(likeness(member.net, other.net)) <= 0.7 for other in book[:place])


def test_an_oracle_of_other_days_is_refused(tmp_path: Path):
    write_market(tmp_path)
    (tmp_path / "oracle.csv").write_text("0\n0\n")
    with pytest.raises(MarketError, match="2 holding days, not 119; export the market anew"):
        read_market(tmp_path)


@pytest.fixture
def exporter(tmp_path: Path) -> Path:
    """Stands in for bench_search_quality: writes down how it is called, and copies a market."""
    write_market(tmp_path / "kept")
    program = tmp_path / "exporter"
    program.write_text(
        f'#!/bin/bash\necho "$1 $2 $3" >>{tmp_path}/calls.txt\n[[ $2 != absent ]] || exit 1\n'
        f'cp {tmp_path}/kept/* "$4"\necho 2.0000,1.5000\n'
    )
    program.chmod(0o755)
    return program


def offers_three(market: Market, judge: Judge, seed: int, progress) -> peer_arms.Search:
    for sign in (-1.0, 1.0, 1.0):
        judge.fitness(sign * log_volume(market), sign)
        progress()
    return peer_arms.Search(2, lambda sign: sign * numpy.log(market.features["volume"]))


def test_results_are_added_and_lines_that_are_there_passed_over(
    tmp_path: Path, exporter: Path, monkeypatch: pytest.MonkeyPatch
):
    monkeypatch.setattr(peers, "ARMS", {"three": offers_three})
    results = tmp_path / "results.csv"
    results.write_text(peers.HEADER + "\nthree,one,1,9,,0,0,0,0,0,0,0,0,0\n")
    options = [str(results), "--program", str(exporter), "--effect", "one", "--effect", "two"]
    options += ["--seeds", "2", "--backtests", "9"]
    assert peers.main(options) == 0
    calls = (tmp_path / "calls.txt").read_text().splitlines()
    assert calls == ["export two 1", "export one 2", "export two 2"]
    with results.open(newline="") as lines:
        rows = list(csv.DictReader(lines))
    assert [(row["effect"], row["seed"]) for row in rows] == [
        ("one", "1"), ("two", "1"), ("one", "2"), ("two", "2"),
    ]
    row = rows[1]
    assert (row["backtests"], row["found_after"], row["submitted"]) == ("2", "2", "1")
    assert (row["structures"], row["behaviours"]) == ("2", "2")
    assert (row["oracle_sharpe"], row["oracle_fresh_sharpe"]) == ("2.0000", "1.5000")
    net = write_market(tmp_path / "again")
    assert float(row["best_sharpe"]) == pytest.approx(sharpe_of(net[:119]), abs=1e-4)
    assert float(row["best_fresh_sharpe"]) == pytest.approx(sharpe_of(net[159:]), abs=1e-4)
    # The book is the best one alone.
    assert row["book_fresh_sharpe"] == row["best_fresh_sharpe"]
    assert float(row["book_holdout_sharpe"]) == pytest.approx(sharpe_of(net[119:159]), abs=1e-4)
    before = results.read_text()
    assert peers.main(options) == 0
    assert results.read_text() == before


def test_what_cannot_be_done_is_told(
    tmp_path: Path, exporter: Path, monkeypatch: pytest.MonkeyPatch,
    capsys: pytest.CaptureFixture[str],
):
    monkeypatch.setattr(peers, "ARMS", {"three": offers_three})
    results = tmp_path / "results.csv"
    options = [str(results), "--program", str(exporter), "--effect", "absent"]
    assert peers.main(options) == 1
    assert "could not export absent with seed 1" in capsys.readouterr().err
    assert not results.exists()
    results.write_text("date,symbol\n")
    assert peers.main(options) == 1
    assert "name another file" in capsys.readouterr().err


def test_the_effects_are_those_of_the_generator(tmp_path: Path, monkeypatch: pytest.MonkeyPatch):
    monkeypatch.setattr(peers, "HERE", tmp_path)
    table = tmp_path / "planted_universe.cpp"
    table.write_text(
        'constexpr auto kEffects = {\n    {"reversal", "-1 * returns", true},\n'
        '    {"own_trend", "close", false},\n};\nString text{"other"};\n'
    )
    assert peers.known_effects() == ["reversal", "own_trend"]
    table.write_text("\n")
    with pytest.raises(MarketError, match="name them with --effect"):
        peers.known_effects()


@pytest.mark.parametrize("arm", sorted(peer_arms.ARMS))
def test_a_library_searches_as_far_as_it_may_and_repeats_itself(arm: str, market: Market):
    pytest.importorskip(arm)
    told = []
    for _ in range(2):
        judge = Judge(market, 150)
        search = peer_arms.ARMS[arm](market, judge, 7, lambda: None)
        assert judge.backtests == 150
        assert search.structures >= 150
        best = judge.best()
        assert best is not None
        # What the search keeps of a program gives the signal that was judged.
        weights = neutral_weights(search.signal(best.program))[: market.searched]
        again = backtest(weights, market.close[: market.searched])
        assert again.sharpe() == pytest.approx(best.sharpe, rel=1e-9)
        told.append((best.sharpe, judge.found_after, search.structures))
    assert told[0] == told[1]


def test_trees_keep_their_types():
    pytest.importorskip("deap")
    import random

    from deap import gp

    random.seed(2)
    primitives = peer_arms.deap_primitives(["close", "volume"])
    heights = set()
    for _ in range(300):
        tree = gp.PrimitiveTree(peer_arms.random_tree(primitives, 1, 3))
        heights.add(tree.height)
        assert str(gp.PrimitiveTree.from_string(str(tree), primitives)) == str(tree)
    assert heights == {1, 2, 3}
    window = peer_arms.random_tree(primitives, 0, 2, type_=peer_arms.Days)
    assert [node.ret for node in window] == [peer_arms.Days]
