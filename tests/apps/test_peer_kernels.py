"""What other libraries are given in benchmarks is what the program computes.

The kernels of benchmarks/search_quality stand beside `eval --values` on prices with gaps, the
weights beside `--weights`, and the figures of the backtest beside those of `eval` on whole prices.
"""

from __future__ import annotations

import random
import sys
from pathlib import Path

import numpy
import pandas
import pytest

from program import call, events

sys.path.insert(0, str(Path(__file__).parents[2] / "benchmarks" / "search_quality"))

import panel_backtest  # noqa: E402
import panel_kernels  # noqa: E402

DAYS = 260
COLUMNS = ("open", "high", "low", "close", "volume")
# Windows that are constant, values that are equal, and what is not known within a history.
CORNERS = {
    "ts_std(comparison_gt(returns, ts_mean(returns, 3)), 5)": lambda k, f: k["ts_std"](
        k["comparison_gt"](f["returns"], k["ts_mean"](f["returns"], 3)), 5
    ),
    "ts_zscore(comparison_lt(returns, ts_mean(returns, 3)), 10)": lambda k, f: k["ts_zscore"](
        k["comparison_lt"](f["returns"], k["ts_mean"](f["returns"], 3)), 10
    ),
    "ts_correlation(arith_sign(returns), ts_max(close, 20), 3)": lambda k, f: k["ts_correlation"](
        k["arith_sign"](f["returns"]), k["ts_max"](f["close"], 20), 3
    ),
    "cross_rank(arith_sign(returns))": lambda k, f: k["cross_rank"](k["arith_sign"](f["returns"])),
    "cross_zscore(ts_rank(arith_sign(returns), 2))": lambda k, f: k["cross_zscore"](
        k["ts_rank"](k["arith_sign"](f["returns"]), 2)
    ),
    "ts_decay(close / (returns - ts_max(returns, 10)), 5)": lambda k, f: k["ts_decay"](
        k["arith_div"](f["close"], k["arith_sub"](f["returns"], k["ts_max"](f["returns"], 10))), 5
    ),
    "ts_covariance(dollar_volume, log_returns, 15)": lambda k, f: k["ts_covariance"](
        f["dollar_volume"], f["log_returns"], 15
    ),
}


def write_prices(path: Path, with_gaps: bool) -> Path:
    generator = random.Random(5)
    days = pandas.bdate_range("2015-01-01", periods=DAYS).strftime("%Y-%m-%d")
    lines = ["date,symbol," + ",".join(COLUMNS)]
    for name in ("AAA", "BBB", "CCC", "DDD", "EEE", "FFF"):
        close = 100.0
        for place, day in enumerate(days):
            opened, close = close, round(close * (1 + generator.gauss(0.0003, 0.02)), 2)
            high, low = max(opened, close) * 1.01, min(opened, close) * 0.99
            late = name == "FFF" and place < 40
            if with_gaps and (late or generator.random() < 0.04):
                continue
            volume = generator.randrange(1000, 9000)
            lines.append(f"{day},{name},{opened},{high:.4f},{low:.4f},{close},{volume}")
    path.write_text("\n".join(lines) + "\n")
    return path


def columns_of(path: Path) -> dict[str, numpy.ndarray]:
    frame = pandas.read_csv(path)
    return {
        name: frame.pivot(index="date", columns="symbol", values=name).to_numpy(dtype=float)
        for name in COLUMNS
    }


def asked(path: Path, formulas: list[str], option: str) -> dict[str, numpy.ndarray]:
    """The panel of each formula that the program writes."""
    listed, written = path.parent / "formulas.txt", path.parent / f"{option}.csv"
    listed.write_text("".join(f"f{i} = {formula}\n" for i, formula in enumerate(formulas)))
    done = call(
        "eval", "--file", listed, "--prices", path, f"--{option}", written, "--force",
        "--neutralize", "market", "--json",
    )
    assert done.returncode == 0, done.stderr
    frame = pandas.read_csv(written)
    if "formula" not in frame:  # There is one.
        return {formulas[0]: frame.iloc[:, 1:].to_numpy(dtype=float)}
    return {
        formula: frame[frame["formula"] == f"f{i}"].iloc[:, 2:].to_numpy(dtype=float)
        for i, formula in enumerate(formulas)
    }


def simple_formulas() -> dict:
    """Each function, with each window, on prices and on what varies around zero."""
    made = {}
    for name, (panels, _) in panel_kernels.PLAIN.items():
        for inputs in (("close", "open"), ("returns", "range")):
            chosen = inputs[:panels]
            made[f"{name}({', '.join(chosen)})"] = lambda k, f, n=name, c=chosen: k[n](
                *(f[feature] for feature in c)
            )
    for name, (panels, _) in panel_kernels.WINDOWED.items():
        for window in panel_kernels.WINDOWS:
            chosen = ("volume", "returns")[:panels]
            made[f"{name}({', '.join(chosen)}, {window})"] = (
                lambda k, f, n=name, c=chosen, w=window: k[n](*(f[feature] for feature in c), w)
            )
    return made


KERNELS = {
    name: kernel
    for table in (panel_kernels.PLAIN, panel_kernels.WINDOWED)
    for name, (_, kernel) in table.items()
}


@pytest.mark.parametrize("with_gaps", [False, True])
def test_kernels_give_what_the_program_gives(tmp_path: Path, with_gaps: bool):
    path = write_prices(tmp_path / "prices.csv", with_gaps)
    features = panel_kernels.features_of(columns_of(path))
    formulas = {**simple_formulas(), **CORNERS}
    expected = asked(path, list(formulas), "values")
    assert len(expected) == 2 * 17 + 9 * 11 + len(CORNERS)
    for formula, kernel in formulas.items():
        panel = kernel(KERNELS, features)
        assert numpy.isfinite(panel).any(), formula
        scale = numpy.nanmax(numpy.abs(panel))
        numpy.testing.assert_allclose(
            panel, expected[formula], rtol=1e-9, atol=1e-12 * scale, err_msg=formula
        )


def test_weights_and_figures_are_the_programs(tmp_path: Path):
    path = write_prices(tmp_path / "prices.csv", with_gaps=False)
    features = panel_kernels.features_of(columns_of(path))
    formula = "-1 * ts_mean(returns, 5)"
    weights = panel_backtest.neutral_weights(-KERNELS["ts_mean"](features["returns"], 5))
    numpy.testing.assert_allclose(
        weights, asked(path, [formula], "weights")[formula], rtol=1e-9, atol=1e-12
    )
    (told,) = events(
        call("eval", formula, "--prices", path, "--neutralize", "market", "--json").stdout
    )
    searched = DAYS - round(panel_backtest.HOLDOUT_SHARE * DAYS)
    tested = panel_backtest.backtest(weights[:searched], features["close"][:searched])
    figures = told["statistics"]["in_sample"]
    assert tested.sharpe() == pytest.approx(figures["sharpe"], rel=1e-9)
    assert panel_backtest.sharpe_of(tested.gross) == pytest.approx(
        figures["gross_returns_sharpe"], rel=1e-9
    )
    assert tested.traded.mean() == pytest.approx(figures["turnover"], rel=1e-9)
    gross_exposure = numpy.abs(tested.held).sum(axis=1).mean()
    assert gross_exposure == pytest.approx(figures["abs_weight_sum_mean"], rel=1e-9)
    held_out = panel_backtest.backtest(weights, features["close"]).net[searched - 1 :]
    assert panel_backtest.sharpe_of(held_out) == pytest.approx(
        told["statistics"]["holdout"]["sharpe"], rel=1e-9
    )
    assert tested.passes() == told["passes"]


def test_the_gates_are_the_programs_defaults(tmp_path: Path):
    path = write_prices(tmp_path / "prices.csv", with_gaps=False)
    (told,) = events(call("eval", "-returns", "--prices", path, "--json").stdout)
    thresholds = {gate["reason"]: gate["threshold"] for gate in told["gates"]}
    searched = DAYS - round(panel_backtest.HOLDOUT_SHARE * DAYS)
    assert thresholds["sharpe_min"] == pytest.approx(panel_backtest.least_sharpe(searched))
    assert {
        "gross_returns_sharpe_below_min": panel_backtest.LEAST_GROSS_SHARPE,
        "turnover_max": panel_backtest.MOST_TURNOVER,
        "max_weight_max": panel_backtest.MOST_WEIGHT,
        "delta_exposure_max": panel_backtest.MOST_NET_EXPOSURE,
        "abs_weight_sum_mean_below_min": panel_backtest.LEAST_GROSS_EXPOSURE,
    }.items() <= thresholds.items()
