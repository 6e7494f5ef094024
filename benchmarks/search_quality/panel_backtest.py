"""A backtest of panels in numpy, as a user of another library would write it.

The rules are those of a run of the program with its defaults (docs/configuration.md,
docs/command-line.md): the market is taken out of a signal, what is left is scaled to one unit of
gross exposure, traded a day after its close, and pays 5 basis points of what is traded.
"""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np

from panel_kernels import CONSTANT, Panel

COST = 5.0 / 10_000.0
DELAY_DAYS = 1
PERIODS = 252
HOLDOUT_SHARE = 0.25

LEAST_SHARPE_IN_ERRORS = 2.0
LEAST_GROSS_SHARPE = 0.3
MOST_TURNOVER = 1.5
MOST_WEIGHT = 1.0
MOST_NET_EXPOSURE = 1.0
LEAST_GROSS_EXPOSURE = 0.5


def neutral_weights(signal: Panel) -> Panel:
    """The signal less its mean of the day, as one unit of gross exposure; a day on which nothing
    is known, or all values are the same, has no weights."""
    with np.errstate(all="ignore"):
        known = np.isfinite(signal)
        values = np.where(known, signal, 0.0)
        greatest = np.abs(values).max(axis=1, keepdims=True)
        values = np.where(greatest > 0.0, values / greatest, 0.0)
        count = np.maximum(known.sum(axis=1, keepdims=True), 1)
        centred = np.where(known, values - values.sum(axis=1, keepdims=True) / count, 0.0)
        squares = (values * values).sum(axis=1, keepdims=True)
        constant = (centred * centred).sum(axis=1, keepdims=True) <= CONSTANT * squares
        centred = np.where(constant, 0.0, centred)
        gross = np.abs(centred).sum(axis=1, keepdims=True)
        return np.where(gross > 0.0, centred / gross, 0.0)


def sharpe_of(returns: np.ndarray) -> float:
    if len(returns) < 2:
        return 0.0
    spread = returns.std(ddof=1)
    if spread <= 1e-12 * np.abs(returns).max():
        return 0.0
    return float(np.sqrt(PERIODS) * returns.mean() / spread)


def least_sharpe(days: int) -> float:
    """Of a search over so many days: that of the gate."""
    return LEAST_SHARPE_IN_ERRORS * float(np.sqrt(PERIODS / days))


@dataclass(frozen=True)
class Backtest:
    """What weights earned on each holding day of a history, and how the book looked."""

    gross: np.ndarray
    traded: np.ndarray
    held: Panel

    @property
    def net(self) -> np.ndarray:
        return self.gross - COST * self.traded

    def sharpe(self) -> float:
        return sharpe_of(self.net)

    def missed_gates(self) -> int:
        """How many gates are missed beside those of the Sharpe ratios."""
        return sum(
            (
                self.traded.mean() > MOST_TURNOVER,
                np.abs(self.held).max() > MOST_WEIGHT + 1e-9,
                np.abs(self.held.sum(axis=1)).mean() > MOST_NET_EXPOSURE,
                np.abs(self.held).sum(axis=1).mean() < LEAST_GROSS_EXPOSURE,
            )
        )

    def passes(self) -> bool:
        return (
            self.missed_gates() == 0
            and self.sharpe() >= least_sharpe(len(self.gross) + 1)
            and sharpe_of(self.gross) >= LEAST_GROSS_SHARPE
        )


def backtest(weights: Panel, close: Panel) -> Backtest:
    """Of closes without gaps. The holding day t earns from the close of t to that of t + 1."""
    held = np.zeros((len(close) - 1, close.shape[1]))
    held[DELAY_DAYS:] = weights[: len(close) - 1 - DELAY_DAYS]
    before = np.vstack([np.zeros((1, close.shape[1])), held[:-1]])
    gross = (held * (close[1:] / close[:-1] - 1.0)).sum(axis=1)
    return Backtest(gross, np.abs(held - before).sum(axis=1), held)
