"""The comparison of whole searches with loops of other libraries: how candidates, nodes and
processor time are counted. The libraries themselves search where they are installed."""

from __future__ import annotations

import sys
from pathlib import Path

import numpy
import pandas
import pytest

sys.path.insert(0, str(Path(__file__).parents[2] / "benchmarks" / "whole_program"))

import compare_with_peers as comparison  # noqa: E402
import panel_backtest  # noqa: E402


@pytest.fixture
def prices(tmp_path: Path) -> str:
    """Three instruments over two hundred days; the last one begins late."""
    generator = numpy.random.default_rng(2)
    close = 50.0 * numpy.exp(numpy.cumsum(0.01 * generator.normal(size=(200, 3)), axis=0))
    days = pandas.bdate_range("2020-01-01", periods=200).strftime("%Y-%m-%d")
    lines = ["date,symbol,open,high,low,close,volume"]
    for day, row in zip(days, close):
        for symbol, price in zip("ABC", row):
            if symbol != "C" or day >= days[50]:
                lines.append(f"{day},{symbol},{price},{1.01 * price},{0.99 * price},{price},1000")
    path = tmp_path / "prices.csv"
    path.write_text("\n".join(lines) + "\n")
    return str(path)


def test_windows_are_nodes():
    graph = {"children": [{"children": []}, {"children": [{"children": []}, {"children": []}]}]}
    assert comparison.nodes_of(graph) == 5

    class Node:
        def __init__(self, name: str) -> None:
            self.name = name

    assert comparison.nodes_of_program([Node("arith_add"), Node("ts_mean_20"), 1, 2]) == 5


def test_the_least_of_the_turns_counts():
    turns = [comparison.Cost(3.0, 10, 50), comparison.Cost(4.0, 20, 50)]
    assert comparison.least(turns) is turns[1]


def test_work_is_measured_in_a_process_of_its_own():
    state = []

    def work() -> tuple[int, int]:
        state.append(sum(range(2_000_000)))
        return 7, 9

    cost = comparison.measured_child(work)
    assert (cost.candidates, cost.nodes, state) == (7, 9, [])
    assert cost.seconds > 0.0
    with pytest.raises(SystemExit, match="has failed"):
        comparison.measured_child(lambda: 1 // 0)


def test_what_fails_in_that_process_is_told(capfd: pytest.CaptureFixture[str]):
    def work() -> tuple[int, int]:
        raise ModuleNotFoundError("No module named 'bottleneck'")

    with pytest.raises(SystemExit, match="a search has failed; see above"):
        comparison.measured_child(work)
    assert "ModuleNotFoundError: No module named 'bottleneck'" in capfd.readouterr().err


def test_a_users_backtest_is_ours_where_all_prices_are_there(prices: str, tmp_path: Path):
    text = Path(prices).read_text().splitlines()
    whole = tmp_path / "whole.csv"
    whole.write_text("\n".join(line for line in text if ",C," not in line) + "\n")
    market = comparison.Market(str(whole))
    signal = market.features["returns"] - market.features["range"]
    known = numpy.nan_to_num(signal)
    gross = numpy.abs(known).sum(axis=1, keepdims=True)
    weights = numpy.divide(known, gross, out=numpy.zeros_like(known), where=gross > 0)
    tested = panel_backtest.backtest(weights, market.features["close"])
    # The day before the first trade, which that one counts too, moves a mean by that day.
    assert len(tested.net) == 149
    expected = panel_backtest.sharpe_of(tested.net[panel_backtest.DELAY_DAYS :])
    assert market.sharpe(signal) == pytest.approx(expected, rel=1e-9)


def test_fast_kernels_are_the_same_functions(prices: str):
    pytest.importorskip("bottleneck")
    market = comparison.Market(prices)
    fast = comparison.Market(prices, is_fast=True).kernels
    panel = market.features["returns"]
    with numpy.errstate(all="ignore"):
        for name in comparison.fast_kernels(0.8):
            # Behind the first days of the late one, where the rules of the vocabulary differ.
            given, expected = (kernels[name](panel, 5)[60:] for kernels in (fast, market.kernels))
            numpy.testing.assert_allclose(given, expected, rtol=1e-6, atol=1e-12)


@pytest.mark.parametrize("name", sorted(comparison.PEERS))
def test_a_library_evaluates_so_many_candidates(name: str, prices: str):
    pytest.importorskip(name.lower().removesuffix(", fast"))
    if name.endswith("fast"):
        pytest.importorskip("bottleneck")
    candidates, nodes = comparison.PEERS[name](prices, 256, 3)
    assert candidates == 256
    assert nodes > 2 * candidates
