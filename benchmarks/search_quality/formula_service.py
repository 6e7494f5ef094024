"""The other end of bench_formula_service, which judges formulas on one market."""

from __future__ import annotations

import json
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PROGRAM = ROOT / "build" / "release" / "bin" / "bench_formula_service"


class ServiceError(Exception):
    """The service has ended, or cannot answer."""


@dataclass(frozen=True)
class Function:
    """How many panels it takes, and whether a window of days follows them."""

    panels: int
    has_window: bool


@dataclass(frozen=True)
class Vocabulary:
    """What formulas are made of: what fresh graphs of ours draw from on the same prices."""

    features: tuple[str, ...]
    functions: dict[str, Function]
    windows: tuple[int, ...]


@dataclass(frozen=True)
class Judgement:
    signal: str  # The same for signals that are the same to the last bit.
    fitness: float
    sharpe: float
    turnover: float
    passes: bool
    oracle_likeness: float = 0.0


@dataclass(frozen=True)
class Sharpes:
    """In sample, in the hold-out, and on later days where the market has them."""

    sharpe: float
    holdout_sharpe: float
    later_sharpe: float


class FormulaService:
    """A context: the program runs as long as it is open. `market` are the program's arguments."""

    def __init__(self, *market: str | Path, program: Path = PROGRAM) -> None:
        self._process = subprocess.Popen(
            [str(program), *map(str, market)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, encoding="utf-8",
        )
        told = self._answer()
        self.vocabulary = Vocabulary(
            tuple(told["features"]),
            {name: Function(**figures) for name, figures in told["functions"].items()},
            tuple(told["windows"]),
        )
        self.market = Sharpes(**told["market"])
        self.oracle = Sharpes(**told["oracle"]) if "oracle" in told else None

    def __enter__(self) -> FormulaService:
        return self

    def __exit__(self, *_error: object) -> None:
        self._process.stdin.close()
        self._process.wait()
        self._process.stdout.close()

    def judge(self, formula: str) -> Judgement:
        return Judgement(**self._asked(f"judge {formula}"))

    def pnl(self) -> list[float]:
        """In sample, of the formula that was judged last."""
        return self._asked("pnl")["pnl"]

    def book(self, formulas: Sequence[str]) -> Sharpes:
        """Of the mean of the formulas' weights."""
        return Sharpes(**self._asked("book " + ";".join(formulas)))

    def _asked(self, line: str) -> dict:
        try:
            self._process.stdin.write(line + "\n")
            self._process.stdin.flush()
        except BrokenPipeError:
            pass  # That it has ended is told by what is read.
        return self._answer()

    def _answer(self) -> dict:
        line = self._process.stdout.readline()
        if not line:
            status = self._process.wait()
            raise ServiceError(f"{self._process.args[0]} has ended with status {status}")
        told = json.loads(line)
        if "error" in told:
            raise ServiceError(told["error"])
        return told
