"""The tables of the search-quality benchmark, of made-up results whose figures are worked out."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

SCRIPT = Path(__file__).parents[2] / "benchmarks" / "search_quality" / "summary.py"
HEADER = (
    "arm,effect,seed,backtests,found_after,best_sharpe,best_fresh_sharpe,book_holdout_sharpe,"
    "book_fresh_sharpe,oracle_sharpe,oracle_fresh_sharpe,submitted,structures,behaviours\n"
)
# Of ours the shares of the oracle's later Sharpe ratio are 0.5, 1 and 0 (without a gain of the
# oracle there is no share), so their median and their mean are 0.5.
OURS = (
    "ours,reversal,1,1000,100,1.0,0.5,0.4,1.0,2.0,2.0,9,900,800\n"
    "ours,reversal,2,1000,300,2.0,0.9,0.6,1.5,2.0,1.5,9,900,800\n"
    "ours,momentum,1,1000,,1.5,-0.1,-0.2,0.3,2.0,-0.1,9,1900,700\n"
)
OTHER = (
    "zebra,momentum,1,1000,700,1.25,0.2,0.1,0.5,2.0,2.0,9,900,800\n"
    "deap,reversal,1,990,,0.75,0.2,0.1,-0.5,2.0,2.0,9,900,800\n"
)


def told(*arguments: str | Path) -> subprocess.CompletedProcess:
    return subprocess.run(
        [sys.executable, str(SCRIPT), *map(str, arguments)], capture_output=True, text=True,
        check=False, timeout=60,
    )


def cells(text: str) -> list[list[str]]:
    lines = [line for line in text.splitlines() if line.startswith("|")]
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines]


def test_the_figures_of_arms_and_effects(tmp_path: Path):
    ours, other = tmp_path / "ours.csv", tmp_path / "other.csv"
    ours.write_text(HEADER + OURS)
    other.write_text(HEADER + OTHER)
    done = told(other, ours, "--backtests", "1000")
    assert (done.returncode, done.stderr) == (0, "")
    arms, effects = (cells(part) for part in done.stdout.split("\n\n"))
    assert arms[0] == [
        "arm", "runs", "found", "mean evaluations to find", "median evaluations",
        "best Sharpe in sample", "the same later", "book in the hold-out", "book later",
        "book later, share of the oracle's", "mean of the share", "distinct structures",
        "distinct behaviours",
    ]
    by_name = {line[0]: line[1:] for line in arms[2:]}
    assert list(by_name) == ["ours", "deap", "zebra"]
    # (100 + 300 + 1000) / 3 evaluations. Of three values a draw has any of them as its median,
    # the least and the greatest each in 7 of 27: so the interval goes from end to end.
    assert by_name["ours"] == [
        "3", "2 (67 %)", "467", "300 (100 to 1,000)", "1.50 (1.00 to 2.00)",
        "0.50 (-0.10 to 0.90)", "0.40 (-0.20 to 0.60)", "1.00 (0.30 to 1.50)",
        "0.50 (0.00 to 1.00)", "0.50", "900 (900 to 1,900)", "800 (700 to 800)",
    ]
    assert by_name["deap"][:5] == [
        "1", "0 (0 %)", "1,000", "1,000 (1,000 to 1,000)", "0.75 (0.75 to 0.75)",
    ]
    assert by_name["deap"][-4:-2] == ["-0.25 (-0.25 to -0.25)", "-0.25"]
    assert by_name["zebra"][:3] == ["1", "1 (100 %)", "700"]
    assert effects == [
        ["effect", "ours", "deap", "zebra"],
        ["---"] * 4,
        ["momentum", "0 of 1, 1,000", "", "1 of 1, 700"],
        ["reversal", "2 of 2, 200", "0 of 1, 1,000", ""],
    ]


def test_intervals_leave_out_what_is_rare(tmp_path: Path):
    """The one great value of forty is the median of no draw that counts."""
    lines = [
        f"ours,reversal,{seed},9,1,{9.0 if seed == 1 else 1.0},0,0,0,1,1,1,1,1\n"
        for seed in range(1, 41)
    ]
    path = tmp_path / "results.csv"
    path.write_text(HEADER + "".join(lines))
    assert cells(told(path).stdout)[2][5] == "1.00 (1.00 to 1.00)"


def test_equal_results_give_equal_tables(tmp_path: Path):
    path = tmp_path / "results.csv"
    path.write_text(HEADER + OURS + OTHER)
    assert told(path).stdout == told(path).stdout != ""


def test_results_that_cannot_be_used_are_named(tmp_path: Path):
    path = tmp_path / "results.csv"
    for text, message in (
        (HEADER, "there are no runs"),
        (HEADER + OURS.replace("1.5,-0.1", "much,-0.1"), "line 4: ValueError"),
        (HEADER + "ours,reversal,1\n", "line 2: "),
        (HEADER.replace("seed", "sed") + OURS, "line 2: KeyError('seed')"),
        (HEADER + OURS + OURS, "ours, reversal, 1 is there twice"),
    ):
        path.write_text(text)
        done = told(path)
        assert done.returncode == 1 and done.stdout == ""
        assert done.stderr.startswith("summary: ") and message in done.stderr
    assert "No such file" in told(tmp_path / "none.csv").stderr


REAL_SCRIPT = SCRIPT.with_name("real_summary.py")
REAL_HEADER = (
    "arm,universe,seed,backtests,passed,submitted,best_sharpe,best_holdout_sharpe,book_sharpe,"
    "book_holdout_sharpe,market_sharpe,market_holdout_sharpe\n"
)


def told_of_real(path: Path, text: str) -> subprocess.CompletedProcess:
    path.write_text(text)
    return subprocess.run(
        [sys.executable, str(REAL_SCRIPT), str(path)], capture_output=True, text=True, check=False,
        timeout=60,
    )


def test_the_table_of_real_prices(tmp_path: Path):
    done = told_of_real(
        tmp_path / "real.csv",
        REAL_HEADER
        + "ours,sp20,1,1024,9,4,1.0,0.5,1.5,0.25,0.5,0.75\n"
        + "ours,sample,1,1024,9,4,1.0,0.5,1.5,0.25,0.5,0.75\n"
        + "fresh,sp20,1,1024,9,6,0.5,-0.5,1.0,-0.25,0.5,0.75\n"
        + "ours,sp20,2,1024,9,6,2.0,0.5,2.5,0.75,0.5,0.75\n",
    )
    assert (done.returncode, done.stderr) == (0, "")
    rows = cells(done.stdout)[2:]
    assert [row[:3] for row in rows] == [
        ["sample", "ours", "1"], ["sp20", "ours", "2"], ["sp20", "fresh", "1"],
    ]
    assert rows[1][3:] == [
        "5.00 (4.00 to 6.00)", "1.50 (1.00 to 2.00)", "0.50 (0.50 to 0.50)",
        "2.00 (1.50 to 2.50)", "0.50 (0.25 to 0.75)", "0.75 (0.75 to 0.75)",
    ]


def test_results_of_another_benchmark_are_no_real_prices(tmp_path: Path):
    done = told_of_real(tmp_path / "planted.csv", HEADER + OURS)
    assert done.returncode == 1 and done.stdout == ""
    assert "planted.csv" in done.stderr and "market_holdout_sharpe" not in done.stdout
    empty = told_of_real(tmp_path / "empty.csv", REAL_HEADER)
    assert (empty.returncode, empty.stderr) == (1, "real_summary: there are no runs\n")
