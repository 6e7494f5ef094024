"""What the end of a run says of luck, against the store and Python's own normal distribution."""

from __future__ import annotations

import json
import math
import statistics
from pathlib import Path

import pytest

from program import NO_GATES, call, events, rows

YEAR = math.sqrt(252)
NORMAL = statistics.NormalDist()


def run(prices: Path, store: Path, *more: str) -> dict:
    ended = call(
        "run", "--prices", prices, "--db", store, "--generations", "3", "--batch-size", "12",
        "--seed", "5", "--periods-per-year", "252", "--json", *NO_GATES, *more,
    )
    assert ended.returncode == 0, ended.stderr
    return next(event for event in events(ended.stdout) if event["event"] == "ended")


def quantile(values: list[float], share: float) -> float:
    place = share * (len(values) - 1)
    below = int(place)
    above = min(below + 1, len(values) - 1)
    return values[below] + (place - below) * (values[above] - values[below])


def test_the_verdict_is_that_of_the_store(tmp_path: Path, prices: Path):
    store = tmp_path / "runs.db"
    # Enough of them are drawn at random to tell their spread.
    told = run(prices, store, "--no-archive", "--no-known-formulas")["luck"]
    evaluations = rows(
        store, "SELECT graph_key, statistics, lineage FROM evaluations WHERE statistics <> 'null'"
    )
    assert told["trials"] == len({key for key, _, _ in evaluations})
    days = json.loads(evaluations[0][1])["holding_days"]
    count = told["independent_trials"]
    # One backtest judges an expression and its opposite: two trials.
    assert 1 < count <= 2 * told["trials"]
    euler = 0.5772156649015329
    expected = 1 / math.sqrt(days - 1) * (
        (1 - euler) * NORMAL.inv_cdf(1 - 1 / count)
        + euler * NORMAL.inv_cdf(1 - 1 / (count * math.e))
    )
    assert told["expected_maximum_sharpe"] == pytest.approx(expected * YEAR, rel=1e-9)

    signals = rows(
        store, "SELECT eval_id, sharpe, holdout_sharpe, deflated_sharpe FROM signals "
        "WHERE state = 'submitted' ORDER BY sharpe DESC",
    )
    assert told["signals"] == len(signals)
    assert told["best"]["eval_id"] == signals[0][0]
    assert told["mean_in_sample_sharpe"] == pytest.approx(
        statistics.fmean(signal[1] for signal in signals))
    assert told["mean_holdout_sharpe"] == pytest.approx(
        statistics.fmean(signal[2] for signal in signals))
    assert told["sample_correlation"] == pytest.approx(
        statistics.correlation([s[1] for s in signals], [s[2] for s in signals]))

    def z_value(eval_id: str, sample: str, benchmark: float) -> float:
        net = [value for (value,) in rows(
            store, f"SELECT net_return FROM daily_returns WHERE eval_id = '{eval_id}' "
            f"AND sample = '{sample}'")]
        center, spread = statistics.fmean(net), statistics.stdev(net)
        sharpe = center / spread
        skew = statistics.fmean(((value - center) / spread) ** 3 for value in net)
        tails = statistics.fmean(((value - center) / spread) ** 4 for value in net)
        variance = 1 - skew * sharpe + (tails - 1) / 4 * sharpe**2
        return (sharpe - benchmark) * math.sqrt((len(net) - 1) / variance)

    for eval_id, _, _, deflated in signals:
        assert deflated == pytest.approx(
            NORMAL.cdf(z_value(eval_id, "in_sample", expected)), rel=1e-6)
    best = told["best"]["eval_id"]
    both = z_value(best, "in_sample", expected) + z_value(best, "holdout", 0.0)
    assert told["best"]["confidence"] == pytest.approx(NORMAL.cdf(both / math.sqrt(2)), rel=1e-6)
    assert told["better_than_luck"] == (told["best"]["confidence"] >= 0.95)
    assert 0.0 <= told["overfitting_probability"] <= 1.0
    ((stored,),) = rows(store, "SELECT luck FROM runs")
    fresh = sorted(
        json.loads(figures)["gross_returns_sharpe"] * json.loads(lineage).get("orientation", 1)
        for _, figures, lineage in evaluations if json.loads(lineage)["origin"] == "fresh"
    )
    assert len(fresh) >= 20
    middle = quantile(fresh, 0.75) - quantile(fresh, 0.25)
    assert json.loads(stored)["drawn_sharpe_median"] == pytest.approx(quantile(fresh, 0.5))
    assert json.loads(stored)["drawn_sharpe_deviation"] == pytest.approx(
        middle / (2 * NORMAL.inv_cdf(0.75)))
    assert json.loads(stored)["confidence"] == told["best"]["confidence"]


def test_the_verdict_does_not_depend_on_the_jobs_and_counts_earlier_runs(
    tmp_path: Path, prices: Path
):
    one = run(prices, tmp_path / "one.db", "--jobs", "1")["luck"]
    assert run(prices, tmp_path / "two.db", "--jobs", "3")["luck"] == one
    more = run(prices, tmp_path / "one.db", "--pool", "other", "--seed", "6")["luck"]
    assert more["trials"] == rows(
        tmp_path / "one.db",
        "SELECT count(DISTINCT graph_key) FROM evaluations WHERE statistics <> 'null'",
    )[0][0] > one["trials"]


def test_the_end_says_it_in_one_sentence(tmp_path: Path, prices: Path):
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "runs.db", "--generations", "2",
        "--batch-size", "12", "--seed", "5", *NO_GATES,
    )
    ((luck,),) = rows(tmp_path / "runs.db", "SELECT luck FROM runs")
    told = json.loads(luck)
    sentence = next(line for line in ended.stdout.splitlines() if " tried; the best of" in line)
    assert sentence.startswith(f"{told['trials']} expressions were tried; ")
    assert f"about {told['expected_maximum_sharpe']:.2f} by chance; the best here, " in sentence
    assert f"{told['best_eval_id']}, has {told['best_sharpe']:.2f}, and " in sentence
    verdict = "better than luck, with" if told["better_than_luck"] else "luck does not explain."
    assert verdict in sentence
    ended = call(
        "run", "--prices", prices, "--db", tmp_path / "none.db", "--generations", "1",
        "--batch-size", "4", "--seed", "5", "--min-sharpe", "99", "--repairs", "0",
    )
    assert "no signal was submitted that could be held against it." in ended.stdout
