"""Other searches on the markets of the benchmark: their judge, their formulas, their results.

The judge is tried with a service whose answers are made up; the results with a stand-in for the
program. Where the program is built, what it answers is held to the numpy backtest. The libraries
themselves search where they are installed.
"""

from __future__ import annotations

import csv
import random
import re
import sys
from pathlib import Path

import numpy
import pandas
import pytest

HERE = Path(__file__).parents[2] / "benchmarks" / "search_quality"
sys.path.insert(0, str(HERE))

import panel_backtest  # noqa: E402
import panel_kernels  # noqa: E402
import peer_arms  # noqa: E402
import peers  # noqa: E402
from formula_service import (  # noqa: E402
    PROGRAM, FormulaService, Function, Judgement, ServiceError, Sharpes, Vocabulary,
)
from peer_judge import Judge, likeness  # noqa: E402

WORDS = Vocabulary(
    ("close", "volume"),
    {
        "arith_add": Function(2, False),
        "arith_neg": Function(1, False),
        "ts_mean": Function(1, True),
    },
    (5, 20),
)
DAYS = 400


class MadeUpService:
    """Each formula has a PnL of its own, drawn by its text; the longer, the better."""

    def __init__(self) -> None:
        self.asked: list[str] = []
        self._pnl = numpy.zeros(DAYS)

    def judge(self, formula: str) -> Judgement:
        self.asked.append(formula)
        draw = numpy.random.default_rng(len(formula.replace(" ", "")))
        self._pnl = draw.normal(size=DAYS)
        sharpe = min(3.0, len(formula) / 30.0)
        return Judgement(
            formula.replace(" ", ""), sharpe - 1.0 * ("volume" in formula), sharpe, 0.1,
            sharpe > 0.3, 0.7 if "right" in formula else 0.1,
        )

    def pnl(self) -> list[float]:
        return list(self._pnl)


def test_the_judge_counts_distinct_signals():
    service = MadeUpService()
    judge = Judge(service, 2)
    first = judge.fitness("close")
    assert judge.fitness("close") == first and service.asked == ["close"]
    # Another formula of the same signal is no backtest.
    assert judge.fitness("cl ose") == judge._fitness["cl ose"]
    assert (judge.backtests, judge.structures) == (1, 2)
    assert judge.fitness("volume" * 9) == pytest.approx(54 / 30 - 1)
    assert judge.is_spent and judge.behaviours == 2
    assert judge.fitness("late") is None
    assert judge.fitness("c lose") is not None  # A signal that is known.
    assert (judge.backtests, judge.structures) == (2, 4)


def test_found_is_what_passes_is_strong_and_earns_as_the_oracle():
    judge = Judge(MadeUpService(), 9)
    judge.fitness("right")  # Passes no gate.
    judge.fitness("right right")  # 0.37: passes, and is too weak.
    judge.fitness("otherwise, as strong as it may be")
    assert [c.formula for c in judge.passed] == ["right right", "otherwise, as strong as it may be"]
    assert judge.found_after is None
    judge.fitness("right right right right")
    judge.fitness("right right right right right")
    assert judge.found_after == 4
    assert judge.best().formula == "otherwise, as strong as it may be"


def test_the_book_holds_the_best_that_differ():
    class TwoKinds(MadeUpService):
        def pnl(self) -> list[float]:
            kind = len(self.asked) % 12
            return list(numpy.random.default_rng(kind).normal(size=DAYS))

    judge = Judge(TwoKinds(), 99)
    for length in range(12, 60):
        judge.fitness("x" * length)
    book = judge.book()
    assert len(book) == 10 < len(judge.passed)
    assert book[0] is judge.best()
    assert [c.sharpe for c in book] == sorted((c.sharpe for c in book), reverse=True)
    for place, member in enumerate(book):
        assert all(abs(likeness(member.net, other.net)) <= 0.7 for other in book[:place])


# A stand-in for bench_formula_service: writes down how it is called, and answers the same always.
STAND_IN = """#!{python}
import json, sys
with open("{folder}/calls.txt", "a") as calls:
    calls.write(" ".join(sys.argv[1:]) + "\\n")
if "absent" in sys.argv:
    sys.exit(3)
sharpes = lambda x: dict(sharpe=x, holdout_sharpe=x / 2, later_sharpe=x / 4)
told = dict(features=["close"], functions=dict(ts_mean=dict(panels=1, has_window=True)),
            windows=[5], market=sharpes(1.0))
if sys.argv[1] == "planted":
    told["oracle"] = sharpes(2.0)
print(json.dumps(told), flush=True)
for line in sys.stdin:
    what, _, rest = line.strip().partition(" ")
    if what == "judge" and rest == "wrong":
        told = dict(error="no such word")
    elif what == "judge":
        told = dict(signal=rest, fitness=1.5, sharpe=1.5, turnover=0.1, passes=True,
                    oracle_likeness=0.9)
    elif what == "pnl":
        told = dict(pnl=[0.1, -0.1, 0.2])
    else:
        told = sharpes(float(len(rest.split(";"))))
    print(json.dumps(told), flush=True)
"""


@pytest.fixture
def stand_in(tmp_path: Path) -> Path:
    program = tmp_path / "service"
    program.write_text(STAND_IN.format(python=sys.executable, folder=tmp_path))
    program.chmod(0o755)
    return program


def offers_three(vocabulary: Vocabulary, judge: Judge, seed: int, progress) -> None:
    for formula in ("close", "ts_mean(close, 5)", "close"):
        judge.fitness(formula)
        progress()


def rows_of(results: Path) -> list[dict[str, str]]:
    with results.open(newline="") as lines:
        return list(csv.DictReader(lines))


def test_results_are_added_and_lines_that_are_there_passed_over(
    tmp_path: Path, stand_in: Path, monkeypatch: pytest.MonkeyPatch
):
    monkeypatch.setattr(peers, "ARMS", {"three": offers_three})
    results = tmp_path / "results.csv"
    results.write_text(peers.HEADER + "\nthree,one,1,9,,0,0,0,0,0,0,0,0,0\n")
    options = [str(results), "--service", str(stand_in), "--effect", "one", "--effect", "two"]
    options += ["--seeds", "2", "--backtests", "9"]
    assert peers.main(options) == 0
    calls = (tmp_path / "calls.txt").read_text().splitlines()
    assert calls == ["planted two 1", "planted one 2", "planted two 2"]
    rows = rows_of(results)
    assert [(row["effect"], row["seed"]) for row in rows] == [
        ("one", "1"), ("two", "1"), ("one", "2"), ("two", "2"),
    ]
    assert rows[1] == {
        "arm": "three", "effect": "two", "seed": "1", "backtests": "2", "found_after": "1",
        "best_sharpe": "1.0000", "best_fresh_sharpe": "0.2500",
        # Both signals have the same PnL, so that the book is one of them.
        "book_holdout_sharpe": "0.5000", "book_fresh_sharpe": "0.2500",
        "oracle_sharpe": "2.0000", "oracle_fresh_sharpe": "0.5000",
        "submitted": "1", "structures": "2", "behaviours": "1",
    }
    before = results.read_text()
    assert peers.main(options) == 0
    assert results.read_text() == before


def test_real_prices_have_the_columns_of_their_own_benchmark(
    tmp_path: Path, stand_in: Path, monkeypatch: pytest.MonkeyPatch
):
    monkeypatch.setattr(peers, "ARMS", {"three": offers_three})
    results = tmp_path / "real.csv"
    options = [str(results), "--service", str(stand_in), "--seeds", "1", "--backtests", "9"]
    assert peers.main([*options, "--prices", "mine=prices.csv"]) == 0
    assert (tmp_path / "calls.txt").read_text() == "prices prices.csv\n"
    assert rows_of(results) == [
        {
            "arm": "three", "universe": "mine", "seed": "1", "backtests": "2", "passed": "2",
            "submitted": "1", "best_sharpe": "1.0000", "best_holdout_sharpe": "0.5000",
            "book_sharpe": "1.0000", "book_holdout_sharpe": "0.5000", "market_sharpe": "1.0000",
            "market_holdout_sharpe": "0.5000",
        }
    ]
    header = (HERE / "bench_real_prices.cpp").read_text()
    assert peers.REAL_HEADER == "".join(re.findall(r'"(arm,universe.*,)"\n +"(.*)";', header)[0])
    header = (HERE / "bench_search_quality.cpp").read_text()
    assert peers.HEADER == "".join(re.findall(r'"(arm,effect.*,)"\n +"(.*)";', header)[0])


def test_what_cannot_be_done_is_told(
    tmp_path: Path, stand_in: Path, monkeypatch: pytest.MonkeyPatch,
    capsys: pytest.CaptureFixture[str],
):
    monkeypatch.setattr(
        peers, "ARMS", {"wrong": lambda words, judge, seed, progress: judge.fitness("wrong")}
    )
    results = tmp_path / "results.csv"
    options = [str(results), "--service", str(stand_in), "--effect"]
    assert peers.main([*options, "absent"]) == 1
    assert "service has ended with status 3" in capsys.readouterr().err
    assert peers.main([*options, "one"]) == 1
    assert "no such word" in capsys.readouterr().err
    assert not results.exists()
    results.write_text("date,symbol\n")
    assert peers.main([*options, "one"]) == 1
    assert "name another file" in capsys.readouterr().err


def test_the_effects_are_those_of_the_generator(tmp_path: Path, monkeypatch: pytest.MonkeyPatch):
    monkeypatch.setattr(peers, "HERE", tmp_path)
    table = tmp_path / "planted_universe.cpp"
    table.write_text(
        'constexpr auto kEffects = {\n    {"reversal", "-1 * returns", true},\n'
        '    {"own_trend", "close", false},\n};\nString text{"other"};\n'
    )
    assert peers.known_effects() == ["reversal", "own_trend"]
    table.write_text("\n")
    with pytest.raises(peers.PeerError, match="name them with --effect"):
        peers.known_effects()


def write_prices(path: Path) -> dict[str, numpy.ndarray]:
    """Twelve instruments, of which the market is taken out, on three hundred days."""
    generator = numpy.random.default_rng(8)
    shape = (300, 12)
    close = 50.0 * numpy.exp(numpy.cumsum(0.01 * generator.normal(size=shape), axis=0))
    columns = {
        "open": close * 1.001, "high": close * 1.02, "low": close * 0.98, "close": close,
        "volume": numpy.round(numpy.exp(10.0 + generator.normal(size=shape))),
    }
    days = pandas.bdate_range("2020-01-01", periods=shape[0])
    pandas.DataFrame(
        {
            "date": numpy.repeat(days, shape[1]), "symbol": [f"S{i:02}" for i in range(12)] * 300,
            **{name: panel.ravel() for name, panel in columns.items()},
        }
    ).to_csv(path, index=False)
    return panel_kernels.features_of(columns)


@pytest.mark.skipif(not PROGRAM.exists(), reason="bench_formula_service is not built")
def test_the_service_judges_as_numpy_does(tmp_path: Path):
    features = write_prices(tmp_path / "prices.csv")
    searched = 300 - round(panel_backtest.HOLDOUT_SHARE * 300)
    close = features["close"]
    tables = (panel_kernels.PLAIN, panel_kernels.WINDOWED)
    with FormulaService("prices", tmp_path / "prices.csv") as service:
        words = service.vocabulary
        assert set(words.features) == set(features)
        assert words.windows == panel_kernels.WINDOWS
        assert words.functions == {
            name: Function(panels, table is panel_kernels.WINDOWED)
            for table in tables
            for name, (panels, _) in table.items()
        }
        assert service.oracle is None
        for name, kind in words.functions.items():
            taken = ("volume", "returns")[: kind.panels]
            windows = [10] * kind.has_window
            panels = [features[feature] for feature in taken]
            kernel = tables[kind.has_window][name][1]
            weights = panel_backtest.neutral_weights(kernel(*panels, *windows))
            tested = panel_backtest.backtest(weights[:searched], close[:searched])
            formula = f"{name}({', '.join([*taken, *map(str, windows)])})"
            told = service.judge(formula)
            assert told.sharpe == pytest.approx(tested.sharpe(), abs=1e-9), formula
            assert told.turnover == pytest.approx(tested.traded.mean(), abs=1e-9), formula
            assert told.fitness == pytest.approx(tested.sharpe() - tested.missed_gates()), formula
            assert told.passes == tested.passes(), formula
            assert service.pnl() == pytest.approx(list(tested.net), abs=1e-12), formula
        first, second = (panel_backtest.neutral_weights(features[n]) for n in ("volume", "range"))
        net = panel_backtest.backtest((first + second) / 2, close).net
        assert service.book(["volume", "range"]) == Sharpes(
            pytest.approx(panel_backtest.sharpe_of(net[: searched - 1])),
            pytest.approx(panel_backtest.sharpe_of(net[searched - 1 :])), 0.0,
        )
        with pytest.raises(ServiceError, match="no function of this vocabulary"):
            service.judge("ts_meen(close, 5)")
        twice = service.judge("arith_neg(arith_neg(volume))")
        assert twice.signal == service.judge("volume").signal


@pytest.mark.parametrize("arm", sorted(peer_arms.ARMS))
def test_a_library_searches_as_far_as_it_may_and_repeats_itself(arm: str):
    pytest.importorskip(arm)
    told = []
    for _ in range(2):
        service = MadeUpService()
        judge = Judge(service, 150)
        peer_arms.ARMS[arm](WORDS, judge, 7, lambda: None)
        assert judge.backtests == 150
        for formula in service.asked:
            words = set(re.findall(r"\w+", formula))
            assert words <= {*WORDS.features, *WORDS.functions, *map(str, WORDS.windows)}
        # Of the later half, more have what is selected for than of the first.
        lengths = [len(formula) for formula in service.asked]
        assert numpy.mean(lengths[-40:]) > numpy.mean(lengths[:40])
        told.append(service.asked)
    assert told[0] == told[1]


def test_types_have_the_same_order_in_every_process():
    assert (hash(peer_arms.Series), hash(peer_arms.Days)) == (6, 4)


def test_programs_of_gplearn_are_written_as_formulas():
    pytest.importorskip("gplearn")
    functions = {function.name: function for function in peer_arms.gplearn_functions(WORDS)}
    assert set(functions) == {"arith_add", "arith_neg", "ts_mean_5", "ts_mean_20"}
    nodes = [functions["arith_add"], functions["ts_mean_20"], 1, functions["arith_neg"], 0]
    formula = peer_arms.gplearn_formula(nodes, WORDS.features)
    assert formula == "arith_add(ts_mean(volume, 20), arith_neg(close))"
    assert peer_arms.gplearn_formula([1], WORDS.features) == "volume"


def test_trees_keep_their_types():
    pytest.importorskip("deap")
    from deap import gp

    random.seed(2)
    primitives = peer_arms.deap_primitives(WORDS)
    heights, formulas = set(), set()
    for _ in range(300):
        tree = gp.PrimitiveTree(peer_arms.random_tree(primitives, 1, 3))
        heights.add(tree.height)
        formulas.add(peer_arms.deap_formula(tree))
        assert str(gp.PrimitiveTree.from_string(str(tree), primitives)) == str(tree)
    assert heights == {1, 2, 3}
    assert {"arith_add(close, volume)", "ts_mean(close, 20)"} <= formulas
    window = peer_arms.random_tree(primitives, 0, 2, type_=peer_arms.Days)
    assert [node.ret for node in window] == [peer_arms.Days]
