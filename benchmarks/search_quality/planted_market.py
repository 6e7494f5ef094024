"""One planted market, as the benchmark exports it, and the judge of what is found on it.

The rules are those of a run of the program with its defaults (docs/configuration.md,
docs/command-line.md): the market is taken out of a signal, what is left is scaled to one unit of
gross exposure, traded a day after its close, and pays 5 basis points of what is traded.
"""

from __future__ import annotations

import hashlib
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import pandas as pd

from panel_kernels import CONSTANT, Panel, features_of

COST = 5.0 / 10_000.0
DELAY_DAYS = 1
PERIODS = 252
HOLDOUT_SHARE = 0.25

LEAST_SHARPE_IN_ERRORS = 2.0
LEAST_GROSS_SHARPE = 0.3
MOST_TURNOVER = 1.0
MOST_WEIGHT = 1.0
MOST_NET_EXPOSURE = 1.0
LEAST_GROSS_EXPOSURE = 0.5

FOUND_SHARPE = 0.5
FOUND_LIKENESS = 0.6
BOOK_SIZE = 10
BOOK_LIKENESS = 0.7

COLUMNS = ("open", "high", "low", "close", "volume")


class MarketError(Exception):
    """The exported market is not what it should be."""


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


def likeness(left: np.ndarray, right: np.ndarray) -> float:
    """Pearson's correlation; 0 where either has no spread."""
    if left.std() == 0.0 or right.std() == 0.0:
        return 0.0
    return float(np.corrcoef(left, right)[0, 1])


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


@dataclass(frozen=True)
class Market:
    """The features of all days, how many of them are searched and known, and the oracle."""

    features: dict[str, Panel]
    searched: int
    known: int
    oracle_pnl: np.ndarray
    oracle_sharpe: float = 0.0
    oracle_fresh_sharpe: float = 0.0

    @property
    def close(self) -> Panel:
        return self.features["close"]

    def searched_features(self) -> dict[str, Panel]:
        return {name: panel[: self.searched].copy() for name, panel in self.features.items()}

    def later_sharpes(self, weights: Panel) -> tuple[float, float]:
        """In the hold-out and on the fresh days, of weights of all days."""
        net = backtest(weights, self.close).net
        return (
            sharpe_of(net[self.searched - 1 : self.known - 1]),
            sharpe_of(net[self.known - 1 :]),
        )


def read_market(folder: Path, oracle: tuple[float, float] = (0.0, 0.0)) -> Market:
    """The files that `bench_search_quality export` writes."""
    prices = pd.read_csv(folder / "all_prices.csv")
    columns = {
        name: prices.pivot(index="date", columns="symbol", values=name).to_numpy(dtype=float)
        for name in COLUMNS
    }
    if np.isnan(columns["close"]).any():
        raise MarketError(f"{folder}: a close is missing; this backtest takes no gaps")
    known = pd.read_csv(folder / "prices.csv", usecols=["date"])["date"].nunique()
    searched = known - round(HOLDOUT_SHARE * known)
    oracle_pnl = np.loadtxt(folder / "oracle.csv", ndmin=1)
    if len(oracle_pnl) != searched - 1:
        raise MarketError(
            f"{folder}: the oracle has {len(oracle_pnl)} holding days, not {searched - 1}; "
            "export the market anew"
        )
    return Market(features_of(columns), searched, known, oracle_pnl, *oracle)


@dataclass(frozen=True)
class Candidate:
    """A signal that met the gates, as the searching library knows it."""

    program: object
    sharpe: float
    net: np.ndarray


class Judge:
    """Backtests each distinct signal once, and keeps what a run is held to."""

    def __init__(self, market: Market, backtests: int) -> None:
        self._market = market
        self._close = market.close[: market.searched]
        self._wanted = backtests
        self._fitness: dict[bytes, float] = {}
        self._behaviours: set[tuple[float, float]] = set()
        self.passed: list[Candidate] = []
        self.found_after: int | None = None

    @property
    def backtests(self) -> int:
        return len(self._fitness)

    @property
    def is_spent(self) -> bool:
        return self.backtests >= self._wanted

    @property
    def behaviours(self) -> int:
        return len(self._behaviours)

    def best(self) -> Candidate | None:
        return max(self.passed, key=lambda candidate: candidate.sharpe, default=None)

    def fitness(self, signal: Panel, program: object) -> float | None:
        """The Sharpe ratio after costs in sample, less one for each other gate that is missed. A
        signal that was there before costs nothing; None for a new one when all is spent."""
        key = hashlib.blake2b(np.ascontiguousarray(signal).tobytes(), digest_size=16).digest()
        if key in self._fitness:
            return self._fitness[key]
        if self.is_spent:
            return None
        tested = backtest(neutral_weights(signal), self._close)
        sharpe = tested.sharpe()
        self._fitness[key] = sharpe - tested.missed_gates()
        self._behaviours.add((sharpe, float(tested.traded.mean())))
        if tested.passes():
            self._keep(Candidate(program, sharpe, tested.net))
        return self._fitness[key]

    def _keep(self, candidate: Candidate) -> None:
        self.passed.append(candidate)
        if self.found_after is None and candidate.sharpe >= FOUND_SHARPE:
            if likeness(candidate.net, self._market.oracle_pnl) >= FOUND_LIKENESS:
                self.found_after = self.backtests

    def book(self) -> list[Candidate]:
        """The best ones that differ from each other, the best first."""
        chosen: list[Candidate] = []
        for candidate in sorted(self.passed, key=lambda passed: -passed.sharpe):
            if all(abs(likeness(candidate.net, old.net)) <= BOOK_LIKENESS for old in chosen):
                chosen.append(candidate)
            if len(chosen) == BOOK_SIZE:
                break
        return chosen
