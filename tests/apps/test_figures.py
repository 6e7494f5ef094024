"""The figures of a submitted signal, against pandas and numpy.

A run submits two signals on random walks over three calendar years. What it stored is read as
docs/store-schema.md tells, and every figure is computed again from the daily PnL, from the exported
weights and from the prices.
"""

from __future__ import annotations

import json
import math
import random
import re
import sqlite3
from datetime import date, timedelta
from pathlib import Path

import numpy
import pandas
import pytest

from program import NO_GATES, call, events, rows, submitted_ids

COST = 5 / 10_000
PERIODS = 252
LAGS = 20


def feature(name: str) -> dict:
    return {"type": "feature", "node": name, "children": []}


def function(name: str, *children: dict) -> dict:
    return {"type": "rotation", "node": name, "children": list(children)}


def window(days: int) -> dict:
    return {"type": "window", "node": str(days), "children": []}


SEEDS = [
    function("arith_neg", feature("returns")),
    function("cross_demean", function("ts_mean", feature("returns"), window(20))),
]


@pytest.fixture(scope="module")
def prices(tmp_path_factory: pytest.TempPathFactory) -> Path:
    generator = random.Random(11)
    path = tmp_path_factory.mktemp("figures") / "prices.csv"
    closes = [100.0] * 7
    day, lines = date(2017, 3, 1), ["date," + ",".join(f"S{i}" for i in range(7))]
    for _ in range(560):
        market = generator.gauss(0.0005, 0.008)
        closes = [c * math.exp(market + generator.gauss(0, 0.015)) for c in closes]
        lines.append(f"{day.isoformat()}," + ",".join(f"{c:.6f}" for c in closes))
        day += timedelta(1 if day.weekday() < 4 else 3)
    path.write_text("\n".join(lines) + "\n")
    return path


@pytest.fixture(scope="module")
def store(prices: Path) -> Path:
    seeds = prices.parent / "seeds.json"
    seeds.write_text(json.dumps(SEEDS))
    path = prices.parent / "runs.db"
    ended = call(
        "run", "--prices", prices, "--db", path, "--seeds", seeds, "--batch-size", "2",
        "--candidates", "2", "--repairs", "0", "--seed", "1", "--periods-per-year", str(PERIODS),
        *NO_GATES,
    )
    assert ended.returncode == 0, ended.stderr
    assert len(submitted_ids(path)) == 2
    return path


def frame(store: Path, query: str, **more) -> pandas.DataFrame:
    connection = sqlite3.connect(f"file:{store}?mode=ro", uri=True)
    try:
        return pandas.read_sql(query, connection, **more)
    finally:
        connection.close()


class Book:
    """A signal on one of the samples, computed with pandas from what the program wrote."""

    def __init__(self, store: Path, prices: Path, eval_id: str, sample: str):
        daily = frame(
            store, f"SELECT * FROM daily_returns WHERE eval_id = '{eval_id}'",
            parse_dates=["date"],
        )
        self.net = daily[daily["sample"] == sample].set_index("date").sort_index()["net_return"]
        closes = pandas.read_csv(prices, index_col="date", parse_dates=True)
        changes = closes.pct_change()
        file = store.parent / f"{eval_id}.csv"
        assert call("export", store, eval_id, "--weights", file, "--force").returncode == 0
        wanted = pandas.read_csv(file, index_col="date", parse_dates=True)
        # The weights of a day's close are taken one day later, and the change of the day after
        # that is booked on the day on which it is known.
        held = wanted.shift(2).fillna(0.0)
        before = held.shift(1).fillna(0.0)
        days = self.net.index
        self.gross = (held * changes).sum(axis=1)[days]
        self.traded = (held - before).abs().sum(axis=1)[days]
        self.long = held.clip(lower=0.0).sum(axis=1)[days]
        self.short = -held.clip(upper=0.0).sum(axis=1)[days]
        self.market = changes.mean(axis=1)
        # The market is bought with the same delay, and pays once.
        self.market.iloc[:2] = 0.0
        self.market.iloc[2] -= COST
        self.market = self.market[days]
        self.wanted, self.changes = wanted, changes

    def coefficients(self, lag: int, method: str) -> pandas.Series:
        """Of the days on which the signal has any spread."""
        found = {}
        signals = self.wanted.shift(1 + lag)
        for day in self.net.index:
            signal = signals.loc[day]
            if signal.isna().any() or signal.abs().sum() == 0.0:
                continue
            earned = self.changes.loc[day]
            if method == "rank":
                signal, earned = signal.rank(), earned.rank()
            found[day] = signal.corr(earned)
        return pandas.Series(found)

    def figures(self) -> dict[str, float]:
        net, year = self.net, math.sqrt(PERIODS)
        equity = (1.0 + net).cumprod()
        peak = equity.cummax().clip(lower=1.0)
        below = (equity < peak).astype(int)
        growth = equity.iloc[-1] ** (PERIODS / len(net)) - 1.0
        drawdown = (1.0 - equity / peak).max()
        beta, intercept = numpy.polyfit(self.market, net, 1)
        pearson, rank = self.coefficients(1, "pearson"), self.coefficients(1, "rank")
        return {
            "sharpe": year * net.mean() / net.std(),
            "gross_returns_sharpe": year * self.gross.mean() / self.gross.std(),
            "annualized_returns": PERIODS * net.mean(),
            "compound_growth": growth,
            "sortino": year * net.mean() / math.sqrt((net.clip(upper=0.0) ** 2).mean()),
            "calmar": growth / drawdown,
            "hit_rate": (net > 0).sum() / (net != 0).sum(),
            "volatility": year * net.std(),
            "drawdown": drawdown,
            "longest_drawdown_days": below.groupby((below == 0).cumsum()).sum().max(),
            "skewness": net.skew(),
            "excess_kurtosis": net.kurt(),
            "beta": beta,
            "alpha": PERIODS * intercept,
            "market_correlation": net.corr(self.market),
            "information_coefficient": pearson.mean(),
            "information_coefficient_t": pearson.mean() / pearson.sem(),
            "rank_information_coefficient": rank.mean(),
            "rank_information_coefficient_t": rank.mean() / rank.sem(),
            "information_days": len(pearson),
            "turnover": self.traded.mean(),
            "break_even_cost_basis_points": 10_000 * self.gross.mean() / self.traded.mean(),
            "long_exposure": self.long.mean(),
            "short_exposure": self.short.mean(),
        }


@pytest.mark.parametrize("number", range(len(SEEDS)))
@pytest.mark.parametrize(
    ("sample", "key"), [("in_sample", "figures"), ("holdout", "holdout_figures")]
)
def test_figures_are_those_of_pandas(
    store: Path, prices: Path, number: int, sample: str, key: str
):
    eval_id = submitted_ids(store)[number]
    shown = events(call("show", store, eval_id, "--json").stdout)[0][key]
    book = Book(store, prices, eval_id, sample)
    assert len(book.net) == shown["holding_days"]
    assert numpy.allclose(book.gross - COST * book.traded, book.net, rtol=0, atol=1e-12)
    for name, expected in book.figures().items():
        assert shown[name] == pytest.approx(expected, rel=1e-6, abs=1e-9), name
    for lag in range(1, LAGS + 1):
        expected = book.coefficients(lag, "pearson").mean()
        told = shown["information_coefficient_by_lag"][lag - 1]
        assert told == pytest.approx(expected, rel=1e-6, abs=1e-9), lag
    years = frame(
        store, f"SELECT * FROM yearly_figures WHERE eval_id = '{eval_id}' "
        f"AND sample = '{sample}' ORDER BY year",
    ).set_index("year")
    by_year = book.net.groupby(book.net.index.year)
    assert list(years.index) == list(by_year.groups)
    growth = by_year.apply(lambda net: (1.0 + net).prod() - 1.0)
    assert numpy.allclose(years["net_return"], growth)
    assert numpy.allclose(years["volatility"], by_year.std() * math.sqrt(PERIODS))
    assert numpy.allclose(years["sharpe"], by_year.mean() / by_year.std() * math.sqrt(PERIODS))
    assert numpy.allclose(years["turnover"], book.traded.groupby(book.net.index.year).mean())
    assert list(years["days"]) == list(by_year.size())


def test_the_views_of_the_store(store: Path):
    ids = submitted_ids(store)
    signals = frame(store, "SELECT * FROM signals WHERE state = 'submitted'")
    assert sorted(signals["eval_id"]) == sorted(ids)
    for _, signal in signals.iterrows():
        shown = events(call("show", store, signal["eval_id"], "--json").stdout)[0]
        assert signal["expression"] == shown["expression"]
        assert signal["sharpe"] == shown["statistics"]["sharpe"]
        assert signal["holdout_sharpe"] == shown["holdout_statistics"]["sharpe"]
        # All numbers of the page, in a row each.
        long = frame(store, f"SELECT * FROM figures WHERE eval_id = '{signal['eval_id']}'")
        for sample, key in (("in_sample", "figures"), ("holdout", "holdout_figures")):
            told = long[long["sample"] == sample].set_index("name")["value"].to_dict()
            assert told == {
                name: value for name, value in shown[key].items()
                if isinstance(value, (int, float))
            }
    days = frame(store, "SELECT * FROM daily_returns", parse_dates=["date"])
    last_seen = days[days["sample"] == "in_sample"]["date"].max()
    assert (days[days["sample"] == "holdout"]["date"] > last_seen).all()


def test_the_example_in_the_documentation_runs(store: Path, monkeypatch: pytest.MonkeyPatch):
    page = (Path(__file__).parents[2] / "docs" / "store-schema.md").read_text()
    (example,) = re.findall(r"```python\n(.*?)```", page, re.DOTALL)
    assert len(example.strip().splitlines()) <= 5
    monkeypatch.chdir(store.parent)
    names: dict = {}
    exec(example.replace("genetic-search.db", store.name), names)  # The page's own lines.
    frames = [value for value in names.values() if isinstance(value, pandas.DataFrame)]
    assert frames and all(len(found) > 0 for found in frames)


def test_show_has_the_figures_in_groups(store: Path):
    page = call("show", store, submitted_ids(store)[0]).stdout
    for heading in ("Return", "Risk", "Beside the market", "Prediction", "Book"):
        assert re.search(rf"^{heading} +in sample +hold-out$", page, re.MULTILINE), heading
    assert re.search(r"^  20 +-?\d", page, re.MULTILINE)
    assert re.search(r"^  2017 +in sample +\d+", page, re.MULTILINE)
    assert re.search(r"^  20(18|19) +hold-out +\d+", page, re.MULTILINE)


def test_every_evaluation_has_its_expression(store: Path):
    for eval_id, expression in rows(store, "SELECT eval_id, expression FROM evaluations"):
        assert events(call("show", store, eval_id, "--json").stdout)[0]["expression"] == expression
