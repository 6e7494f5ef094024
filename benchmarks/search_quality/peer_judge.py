"""The judge of what other libraries find on a market: it counts backtests as one of ours does."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np

from formula_service import FormulaService

FOUND_SHARPE = 0.5
FOUND_LIKENESS = 0.6
BOOK_SIZE = 10
BOOK_LIKENESS = 0.7


def likeness(left: np.ndarray, right: np.ndarray) -> float:
    """Pearson's correlation; 0 where either has no spread."""
    if left.std() == 0.0 or right.std() == 0.0:
        return 0.0
    return float(np.corrcoef(left, right)[0, 1])


@dataclass(frozen=True)
class Candidate:
    """A signal that met the gates."""

    formula: str
    sharpe: float
    net: np.ndarray


class Judge:
    """Backtests each distinct signal once, and keeps what a run is held to."""

    def __init__(self, service: FormulaService, backtests: int) -> None:
        self._service = service
        self._wanted = backtests
        self._fitness: dict[str, float] = {}  # By formula.
        self._signals: set[str] = set()
        self._behaviours: set[tuple[float, float]] = set()
        self.passed: list[Candidate] = []
        self.found_after: int | None = None

    @property
    def backtests(self) -> int:
        return len(self._signals)

    @property
    def is_spent(self) -> bool:
        return self.backtests >= self._wanted

    @property
    def structures(self) -> int:
        return len(self._fitness)

    @property
    def behaviours(self) -> int:
        return len(self._behaviours)

    def best(self) -> Candidate | None:
        return max(self.passed, key=lambda candidate: candidate.sharpe, default=None)

    def fitness(self, formula: str) -> float | None:
        """The Sharpe ratio after costs in sample, less one for each other gate that is missed. A
        signal that was there before costs nothing; None for a new one when all is spent."""
        if formula in self._fitness:
            return self._fitness[formula]
        told = self._service.judge(formula)
        if told.signal not in self._signals:
            if self.is_spent:
                return None
            self._signals.add(told.signal)
            self._behaviours.add((told.sharpe, told.turnover))
            if told.passes:
                self.passed.append(
                    Candidate(formula, told.sharpe, np.array(self._service.pnl()))
                )
                is_found = told.sharpe >= FOUND_SHARPE and told.oracle_likeness >= FOUND_LIKENESS
                if self.found_after is None and is_found:
                    self.found_after = self.backtests
        self._fitness[formula] = told.fitness
        return told.fitness

    def book(self) -> list[Candidate]:
        """The best ones that differ from each other, the best first."""
        chosen: list[Candidate] = []
        for candidate in sorted(self.passed, key=lambda passed: -passed.sharpe):
            if all(abs(likeness(candidate.net, old.net)) <= BOOK_LIKENESS for old in chosen):
                chosen.append(candidate)
            if len(chosen) == BOOK_SIZE:
                break
        return chosen
