#!/usr/bin/env python3
"""Adds to the results of the benchmarks what other libraries find on the same markets.

    python3 -m venv build/peers
    build/peers/bin/pip install -r benchmarks/search_quality/requirements.txt
    build/peers/bin/python benchmarks/search_quality/peers.py RESULTS.csv
    build/peers/bin/python benchmarks/search_quality/peers.py REAL.csv --prices sp20=PRICES.csv

The first form searches the planted markets, the second real prices, in the columns of
bench_search_quality and of bench_real_prices. Every search of a library gets as many backtests as
one of ours, by the same evaluator (bench_formula_service); a signal that is, to the last bit, one
that was there before costs none. Lines that stand in the file already are passed over, so that the
same command goes on where it was stopped. summary.py and real_summary.py make tables of it.
"""

from __future__ import annotations

import argparse
import os
import re
import sys
import time
from collections.abc import Callable, Iterator
from pathlib import Path

from formula_service import PROGRAM, FormulaService, ServiceError, Sharpes
from peer_arms import ARMS
from peer_judge import Judge

HEADER = (
    "arm,effect,seed,backtests,found_after,best_sharpe,best_fresh_sharpe,book_holdout_sharpe,"
    "book_fresh_sharpe,oracle_sharpe,oracle_fresh_sharpe,submitted,structures,behaviours"
)
REAL_HEADER = (
    "arm,universe,seed,backtests,passed,submitted,best_sharpe,best_holdout_sharpe,book_sharpe,"
    "book_holdout_sharpe,market_sharpe,market_holdout_sharpe"
)
HERE = Path(__file__).resolve().parent
SECONDS_BETWEEN_LINES = 10.0


class PeerError(Exception):
    """The peers cannot be run as asked."""


def known_effects() -> list[str]:
    """The names of the table of effects, which stands with the generator of the markets."""
    table = HERE / "planted_universe.cpp"
    names = re.findall(r'^ {4}\{"(\w+)", "', table.read_text(encoding="utf-8"), re.MULTILINE)
    if not names:
        raise PeerError(f"{table} has no table of effects; name them with --effect")
    return names


def telling(what: str, judge: Judge, backtests: int) -> Callable[[], None]:
    """Says on standard error now and then how far a search is."""
    last = time.monotonic()

    def tell() -> None:
        nonlocal last
        if time.monotonic() - last < SECONDS_BETWEEN_LINES:
            return
        last = time.monotonic()
        best = judge.best()
        print(
            f"{what}: {judge.backtests} of {backtests} backtests, "
            f"best {'-' if best is None else format(best.sharpe, '.2f')}, "
            f"found after {judge.found_after or '-'}",
            file=sys.stderr, flush=True,
        )

    return tell


def figures(*numbers: float) -> list[str]:
    return [f"{number:.4f}" for number in numbers]


def columns_of(service: FormulaService, judge: Judge) -> list[str]:
    """The columns after the seed."""
    nothing = Sharpes(0.0, 0.0, 0.0)  # What is held, and earned, without a signal.
    members, one = judge.book(), judge.best()
    best = nothing if one is None else service.book([one.formula])
    book = service.book([member.formula for member in members]) if members else nothing
    if service.oracle is None:
        return [
            str(judge.backtests), str(len(judge.passed)), str(len(members)),
            *figures(
                best.sharpe, best.holdout_sharpe, book.sharpe, book.holdout_sharpe,
                service.market.sharpe, service.market.holdout_sharpe,
            ),
        ]
    return [
        str(judge.backtests),
        "" if judge.found_after is None else str(judge.found_after),
        *figures(
            best.sharpe, best.later_sharpe, book.holdout_sharpe, book.later_sharpe,
            service.oracle.sharpe, service.oracle.later_sharpe,
        ),
        *map(str, (len(members), judge.structures, judge.behaviours)),
    ]


def keys_in(results: Path, header: str) -> set[tuple[str, ...]]:
    if not results.exists():
        return set()
    lines = results.read_text(encoding="utf-8").splitlines()
    if lines and lines[0] != header:
        raise PeerError(f"{results}: the first line is not {header}; name another file")
    return {tuple(line.split(",")[:3]) for line in lines[1:]}


def add_line(results: Path, header: str, line: str) -> None:
    is_new = not results.exists()
    with results.open("a", encoding="utf-8") as file:
        file.write((header + "\n" if is_new else "") + line + "\n")
        file.flush()
        os.fsync(file.fileno())


def searches(options: argparse.Namespace) -> Iterator[tuple[str, int, tuple[str, ...]]]:
    """Name and seed of each, and what the service is told of its market."""
    for seed in range(1, options.seeds + 1):
        if options.prices:
            for name, path in options.prices:
                yield name, seed, ("prices", path)
            continue
        for effect in options.effect or known_effects():
            yield effect, seed, ("planted", effect, str(seed))


def run(options: argparse.Namespace) -> None:
    header = REAL_HEADER if options.prices else HEADER
    done = keys_in(options.results, header)
    for name, seed, market in searches(options):
        missing = [arm for arm in options.arm if (arm, name, str(seed)) not in done]
        if not missing:
            continue
        with FormulaService(*market, program=options.service) as service:
            for arm in missing:
                key = (arm, name, str(seed))
                judge = Judge(service, options.backtests)
                progress = telling(" ".join(key), judge, options.backtests)
                ARMS[arm](service.vocabulary, judge, seed, progress)
                line = ",".join((*key, *columns_of(service, judge)))
                add_line(options.results, header, line)
                print(line, flush=True)


def named_prices(text: str) -> tuple[str, str]:
    name, equals, path = text.partition("=")
    if not (name and equals and path) or "," in name:
        raise argparse.ArgumentTypeError(f"{text!r} is not NAME=FILE")
    return name, path


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(description="Let other libraries search the same markets.")
    parser.add_argument("results", type=Path, help="the CSV to which a line a search is added")
    parser.add_argument("--arm", action="append", choices=sorted(ARMS), help="default: all")
    parser.add_argument("--effect", action="append", help="default: all that are planted")
    parser.add_argument(
        "--prices", action="append", type=named_prices, metavar="NAME=FILE",
        help="search these prices in place of planted markets",
    )
    parser.add_argument("--seeds", type=int, default=20, help="from 1 to this; default: 20")
    parser.add_argument("--backtests", type=int, default=2048, help="a search; default: 2048")
    parser.add_argument("--service", type=Path, default=PROGRAM, help="bench_formula_service")
    options = parser.parse_args(arguments)
    options.arm = options.arm or list(ARMS)
    try:
        run(options)
    except (PeerError, ServiceError, OSError) as error:
        print(f"peers: {error}", file=sys.stderr)
        return 1
    except ImportError as error:
        print(f"peers: {error}; install {HERE / 'requirements.txt'}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
