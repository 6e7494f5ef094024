#!/usr/bin/env python3
"""Adds to the results of bench_search_quality what other libraries find on the same markets.

    python3 -m venv build/peers
    build/peers/bin/pip install -r benchmarks/search_quality/requirements.txt
    build/peers/bin/python benchmarks/search_quality/peers.py RESULTS.csv

Every search of a library gets as many backtests as one of ours; a signal that is, to the last bit,
one that was there before costs none. RESULTS.csv is the file to which bench_search_quality writes,
or another: lines that stand there already are passed over, so that the same command goes on where
it was stopped. summary.py makes tables of it.
"""

from __future__ import annotations

import argparse
import os
import re
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

import numpy as np

from peer_arms import ARMS
from planted_market import Judge, Market, MarketError, neutral_weights, read_market

HEADER = (
    "arm,effect,seed,backtests,found_after,best_sharpe,best_fresh_sharpe,book_holdout_sharpe,"
    "book_fresh_sharpe,oracle_sharpe,oracle_fresh_sharpe,submitted,structures,behaviours"
)
HERE = Path(__file__).resolve().parent
PROGRAM = HERE.parents[1] / "build" / "release" / "bin" / "bench_search_quality"
SECONDS_BETWEEN_LINES = 10.0


def known_effects() -> list[str]:
    """The names of the table of effects, which stands with the generator of the markets."""
    table = HERE / "planted_universe.cpp"
    names = re.findall(r'^ {4}\{"(\w+)", "', table.read_text(encoding="utf-8"), re.MULTILINE)
    if not names:
        raise MarketError(f"{table} has no table of effects; name them with --effect")
    return names


def exported(program: Path, effect: str, seed: int) -> Market:
    with tempfile.TemporaryDirectory(prefix="peers-") as folder:
        told = subprocess.run(
            [str(program), "export", effect, str(seed), folder],
            stdout=subprocess.PIPE, text=True, check=False,
        )
        if told.returncode != 0:
            raise MarketError(f"{program} could not export {effect} with seed {seed}")
        searched, fresh = (float(part) for part in told.stdout.strip().split(","))
        return read_market(Path(folder), (searched, fresh))


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


def results_of(arm: str, market: Market, seed: int, backtests: int, what: str) -> list[str]:
    """The columns after the seed."""
    judge = Judge(market, backtests)
    search = ARMS[arm](market, judge, seed, telling(what, judge, backtests))
    best, book = judge.best(), judge.book()
    best_sharpe = best_fresh = book_holdout = book_fresh = 0.0
    if best is not None:
        best_sharpe = best.sharpe
        best_fresh = market.later_sharpes(neutral_weights(search.signal(best.program)))[1]
        weights = [neutral_weights(search.signal(member.program)) for member in book]
        book_holdout, book_fresh = market.later_sharpes(np.mean(weights, axis=0))
    figures = (
        best_sharpe, best_fresh, book_holdout, book_fresh, market.oracle_sharpe,
        market.oracle_fresh_sharpe,
    )
    return [
        str(judge.backtests),
        "" if judge.found_after is None else str(judge.found_after),
        *(f"{figure:.4f}" for figure in figures),
        *map(str, (len(book), search.structures, judge.behaviours)),
    ]


def keys_in(results: Path) -> set[tuple[str, ...]]:
    if not results.exists():
        return set()
    lines = results.read_text(encoding="utf-8").splitlines()
    if lines and lines[0] != HEADER:
        raise MarketError(f"{results}: the first line is not {HEADER}; name another file")
    return {tuple(line.split(",")[:3]) for line in lines[1:]}


def add_line(results: Path, line: str) -> None:
    is_new = not results.exists()
    with results.open("a", encoding="utf-8") as file:
        file.write((HEADER + "\n" if is_new else "") + line + "\n")
        file.flush()
        os.fsync(file.fileno())


def run(options: argparse.Namespace) -> None:
    done = keys_in(options.results)
    for seed in range(1, options.seeds + 1):
        for effect in options.effect or known_effects():
            missing = [arm for arm in options.arm if (arm, effect, str(seed)) not in done]
            if not missing:
                continue
            market = exported(options.program, effect, seed)
            for arm in missing:
                key = (arm, effect, str(seed))
                columns = results_of(arm, market, seed, options.backtests, " ".join(key))
                line = ",".join((*key, *columns))
                add_line(options.results, line)
                print(line, flush=True)


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(description="Let other libraries search planted markets.")
    parser.add_argument("results", type=Path, help="the CSV to which a line a search is added")
    parser.add_argument("--arm", action="append", choices=sorted(ARMS), help="default: all")
    parser.add_argument("--effect", action="append", help="default: all that are planted")
    parser.add_argument("--seeds", type=int, default=20, help="from 1 to this; default: 20")
    parser.add_argument("--backtests", type=int, default=2048, help="a search; default: 2048")
    parser.add_argument("--program", type=Path, default=PROGRAM, help="bench_search_quality")
    options = parser.parse_args(arguments)
    options.arm = options.arm or list(ARMS)
    try:
        run(options)
    except (MarketError, OSError) as error:
        print(f"peers: {error}", file=sys.stderr)
        return 1
    except ImportError as error:
        print(f"peers: {error}; install {HERE / 'requirements.txt'}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
