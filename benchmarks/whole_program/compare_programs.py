#!/usr/bin/env python3
"""The processor time of a candidate in two builds of genetic-search, beside each other.

    compare_programs.py OLD NEW prices.csv [--candidates N] [--turns T] [--new-option=--OPTION ...]

Two builds search differently, so both are given the same expressions: those that NEW draws at
random are the seeds of one generation of each, without repairs, by the same gates. The time is that
of a whole run, user and system, of the parent and of all children; the runs take turns, and the
least of the turns counts. "In all" is that of a run over its candidates, with the reading of the
prices and the report at the end; "each" is what a candidate costs beyond the first 128 of them,
which the report backtests once more.
"""

import argparse
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile

BASE = 128
GATES = ["--min-sharpe", "0.6", "--min-gross-sharpe", "0.3"]


def run(command):
    """The processor seconds of a program with its children."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    complaint = process.stderr.read().decode()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)}: exit status {process.returncode}\n{complaint}")
    return usage.ru_utime + usage.ru_stime


def search(program, prices, database, candidates, options):
    return [program, "run", "--prices", *prices, "--db", str(database), "--quiet", "--seed", "7",
            "--generations", "1", "--repairs", "0", "--batch-size", str(candidates), *GATES,
            *options]


def evaluations(database):
    with sqlite3.connect(database) as store:
        return store.execute(
            "SELECT graph, statistics FROM evaluations ORDER BY candidate_number"
        ).fetchall()


def draw_seeds(program, prices, folder, candidates):
    """Files with the first 128, and with all, of the expressions that the program draws."""
    database = folder / "drawn.db"
    options = ["--no-archive", "--as-written", "--jobs", "1"]
    run(search(program, prices, database, candidates, options))
    graphs = [graph for graph, _ in evaluations(database)]
    files = []
    for count in (BASE, candidates):
        file = folder / f"seeds_{count}.json"
        file.write_text("[" + ",\n".join(graphs[:count]) + "]\n")
        files.append(file)
    return files


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("old")
    parser.add_argument("new")
    parser.add_argument("prices", nargs="+")
    parser.add_argument("--candidates", type=int, default=640)
    parser.add_argument("--turns", type=int, default=3)
    parser.add_argument("--jobs", default="1")
    parser.add_argument("--new-option", action="append", default=[],
                        help="given to NEW only: --new-option=--isolation --new-option=candidate")
    arguments = parser.parse_args()
    if arguments.candidates <= BASE:
        sys.exit(f"--candidates must be above {BASE}")
    with tempfile.TemporaryDirectory() as name:
        compare(arguments, pathlib.Path(name))


def compare(arguments, folder):
    programs = {"old": (arguments.old, []), "new": (arguments.new, arguments.new_option)}
    counts = (BASE, arguments.candidates)
    seeds = dict(zip(counts, draw_seeds(arguments.new, arguments.prices, folder,
                                        arguments.candidates)))
    least = {}
    found = {}
    for turn in range(arguments.turns):
        for who, (program, options) in programs.items():
            for count in counts:
                database = folder / f"{who}_{count}_{turn}.db"
                seconds = run(search(program, arguments.prices, database, count,
                                     ["--seeds", str(seeds[count]), "--jobs", arguments.jobs,
                                      *options]))
                least[who, count] = min(seconds, least.get((who, count), seconds))
                found[who] = evaluations(database)
    report(arguments, least, found)


def report(arguments, least, found):
    most = arguments.candidates
    same = len({graph for graph, _ in found["old"]} & {graph for graph, _ in found["new"]})
    print(f"{len(found['old'])} and {len(found['new'])} candidates, {same} expressions in both")
    print(f"{'':8}{'old, ms':>10}{'new, ms':>10}{'times':>8}")
    rows = {
        "in all": lambda who: least[who, most] / most,
        "each": lambda who: (least[who, most] - least[who, BASE]) / (most - BASE),
    }
    for name, cost in rows.items():
        old, new = 1000 * cost("old"), 1000 * cost("new")
        print(f"{name:8}{old:10.2f}{new:10.2f}{old / new:8.2f}")


if __name__ == "__main__":
    main()
