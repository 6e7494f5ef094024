"""The numpy backtest of the benchmarks, by hand. Beside the program it stands in tests/apps."""

from __future__ import annotations

import sys
from pathlib import Path

import numpy
import pytest

sys.path.insert(0, str(Path(__file__).parents[2] / "benchmarks" / "search_quality"))

from panel_backtest import COST, Backtest, backtest, neutral_weights  # noqa: E402


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
    assert Backtest(gross, numpy.full(50, 1.6), held).missed_gates() == 1
    assert Backtest(gross, numpy.full(50, 1.6), held / 4).missed_gates() == 2
    assert not Backtest(-gross, numpy.full(50, 0.1), held).passes()
