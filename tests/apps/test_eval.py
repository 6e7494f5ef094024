"""eval: formulas are judged as a search judges them, and nothing is stored."""

from __future__ import annotations

import json
import subprocess
from pathlib import Path

from program import NO_GATES, PROGRAM, call, events, folder_of, rows, submitted_ids


def test_a_stored_signal_has_its_stored_figures_and_correlates_with_itself(
    store: Path, prices: Path
):
    before = folder_of(store.parent)
    eval_id = submitted_ids(store)[0]
    (stored,) = events(call("show", store, eval_id, "--json").stdout)
    done = call(
        "eval", stored["expression"], "--prices", prices, "--db", store, "--json", *NO_GATES
    )
    assert (done.returncode, done.stderr) == (0, "")
    (told,) = events(done.stdout)
    assert told["expression"] == stored["expression"]
    assert told["graph"] == stored["graph"]
    ((in_sample, holdout),) = rows(
        store, "SELECT statistics, holdout_statistics FROM evaluations "
        f"WHERE eval_id = '{eval_id}'",
    )
    assert told["statistics"] == {
        "in_sample": json.loads(in_sample), "holdout": json.loads(holdout)
    }
    assert told["passes"] is True
    assert {member["eval_id"] for member in told["pool"]} == set(submitted_ids(store))
    itself = next(member for member in told["pool"] if member["eval_id"] == eval_id)
    assert abs(itself["correlation"] - 1) < 1e-12
    sizes = [abs(member["correlation"]) for member in told["pool"]]
    assert sizes == sorted(sizes, reverse=True)
    assert folder_of(store.parent) == before


def test_own_columns_are_features_and_groups(prices: Path, tmp_path: Path):
    own = tmp_path / "own.csv"
    head, *lines = prices.read_text().splitlines()
    own.write_text("\n".join([head + ",Short Interest,exchange", *(
        f"{line},{number % 7 - 3},{'NYSE' if line.split(',')[1] < 'CCC' else 'Nasdaq'}"
        for number, line in enumerate(lines)
    )]) + "\n")
    formula = "group_demean(rank(short_interest), exchange)"
    done = call("eval", formula, "--prices", own, "--json")
    assert (done.returncode, done.stderr) == (0, "")
    done = call("eval", formula, "--prices", prices, "--json")
    assert done.returncode == 2 and '"short_interest" is no feature' in done.stderr
    renamed = call(
        "eval", "rank(si)", "--prices", own, "--columns", "feature:si=Short Interest", "--json"
    )
    assert renamed.returncode == 0, renamed.stderr
    clash = call("eval", "close", "--prices", own, "--columns", "feature:delta=Short Interest")
    assert clash.returncode == 2
    assert 'the prices have a column "delta", and in formulas that name means' in clash.stderr

    # A run draws them once they are switched on, and its signals need them.
    config = tmp_path / "own.toml"
    config.write_text("[vocabulary.features]\nshort_interest = 50\n")
    common = ("--generations", "1", "--seed", "5", "--batch-size", "16", *NO_GATES)
    plain, mine, without = (tmp_path / f"{name}.db" for name in ("plain", "mine", "without"))
    for database, more in (
        (plain, (own,)), (mine, (own, "--config", config)), (without, (prices,))
    ):
        done = call("run", "--prices", *more, "--db", database, *common)
        assert done.returncode == 0, done.stderr
    texts = {
        database: [graph for (graph,) in rows(database, "SELECT graph FROM evaluations")]
        for database in (plain, mine, without)
    }
    assert texts[plain] == texts[without]
    assert any("short_interest" in text for text in texts[mine])
    ((eval_id,), *_) = rows(
        mine, "SELECT eval_id FROM evaluations WHERE graph LIKE '%short_interest%'"
    )
    ended = call("weights", mine, eval_id, "--prices", prices, "-o", "-")
    assert ended.returncode == 2
    assert '"short_interest" is no feature of these market data; use one of' in ended.stderr
    assert "or give prices with a column of numbers of that name" in ended.stderr
    ended = call("run", "--prices", prices, "--config", config, "--db", tmp_path / "no.db", *common)
    assert ended.returncode == 2 and "no column of these prices" in ended.stderr


def test_gates_tell_how_near_they_are(prices: Path):
    done = call("eval", "-rank(delta(close, 5))", "--prices", prices, "--json", "--min-sharpe", "9")
    (told,) = events(done.stdout)
    assert told["expression"] == "arith_neg(cross_rank(ts_delta(close, 5)))"
    assert told["passes"] is False and told["pool"] is None
    gates = {gate["reason"]: gate for gate in told["gates"]}
    sharpe = gates["sharpe_min"]
    assert sharpe["actual"] == told["statistics"]["in_sample"]["sharpe"]
    assert sharpe["threshold"] == 9 and sharpe["passes"] is False
    assert sharpe["room"] == sharpe["actual"] - 9
    turnover = gates["turnover_exceeded"]
    assert turnover["room"] == 2 - turnover["actual"] and turnover["passes"] is True
    page = call("eval", "-rank(delta(close, 5))", "--prices", prices, "--min-sharpe", "9").stdout
    assert "It fails" in page and "sharpe_min" in page and "hold-out" in page


def test_formulas_come_from_arguments_a_file_and_standard_input(prices: Path, tmp_path: Path):
    path = tmp_path / "formulas.txt"
    path.write_text("# two\nreversal = -1 *\n  delta(close, 5)\nrank(volume)\n")
    done = call("eval", "-1 * close", "--file", path, "--prices", prices, "--json")
    assert [(told["formula"], told["expression"]) for told in events(done.stdout)] == [
        ("1", "arith_mul(-1, close)"),
        ("reversal", "arith_mul(-1, ts_delta(close, 5))"),
        ("3", "cross_rank(volume)"),
    ]
    piped = subprocess.run(
        [PROGRAM, "eval", "--file", "-", "--prices", prices, "--json"], input=path.read_text(),
        capture_output=True, text=True, check=True, timeout=120,
    )
    assert [told["formula"] for told in events(piped.stdout)] == ["reversal", "2"]


def test_a_formula_that_cannot_be_read_is_told_with_its_place(prices: Path, tmp_path: Path):
    done = call("eval", "-rank(clos)", "returns", "--prices", prices, "--json")
    assert done.returncode == 2
    assert done.stderr == (
        'genetic-search: formula 1, line 1, column 7: "clos" is no feature of these market data; '
        'did you mean "close"?\n    -rank(clos)\n          ^\n'
    )
    assert [told["expression"] for told in events(done.stdout)] == ["returns"]
    path = tmp_path / "formulas.txt"
    path.write_text("close\nrank(close,\n  5)\n")
    done = call("eval", "--file", path, "--prices", prices)
    assert done.returncode == 2
    assert f"genetic-search: {path}, line 2, column 11: cross_rank takes 1 argument" in done.stderr
    done = call("eval", "--prices", prices)
    assert done.returncode == 2 and "no formula is given" in done.stderr
    done = call("eval", "close")
    assert done.returncode == 2 and "no price file is given" in done.stderr


def test_values_and_weights_are_written_and_not_replaced(prices: Path, tmp_path: Path):
    values, weights = tmp_path / "values.csv", tmp_path / "weights.csv"
    done = call(
        "eval", "close - open", "--prices", prices, "--values", values, "--weights", weights
    )
    assert done.returncode == 0, done.stderr
    head, first, *more = values.read_text().splitlines()
    assert head == "date,AAA,BBB,CCC,DDD,EEE" and len(more) == 149
    assert first.endswith(",nan")
    for value_row, weight_row in zip(
        values.read_text().splitlines()[1:], weights.read_text().splitlines()[1:]
    ):
        numbers = [float(cell) for cell in value_row.split(",")[1:]]
        gross = sum(abs(number) for number in numbers if number == number)
        for number, weight in zip(numbers, weight_row.split(",")[1:]):
            assert abs(float(weight) - (number / gross if number == number else 0)) < 1e-12
    done = call("eval", "close", "--prices", prices, "--values", values)
    assert done.returncode == 2 and "--force" in done.stderr
    done = call("eval", "close", "open", "--prices", prices, "--values", values, "--force")
    assert done.returncode == 0
    lines = values.read_text().splitlines()
    assert lines[0] == "formula,date,AAA,BBB,CCC,DDD,EEE" and len(lines) == 301
    assert {line.split(",")[0] for line in lines[1:]} == {"1", "2"}
