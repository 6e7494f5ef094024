"""[vocabulary] of a configuration: what a search draws from, and what formulas may call by name."""

from __future__ import annotations

import json
from pathlib import Path

from program import NO_GATES, call, events, rows

CONFIG = """
[vocabulary]
windows = [4, 9]
constants = [0.5, 3]
constant_share = 0.5
[vocabulary.families]
cross = false
[vocabulary.functions]
ts_ema = 9
[vocabulary.formulas]
reversal = "-delta(close, 6)"
"""


def test_a_search_draws_from_what_the_file_says(tmp_path: Path, prices: Path):
    config = tmp_path / "search.toml"
    config.write_text(CONFIG)
    store = tmp_path / "runs.db"
    done = call(
        "run", "--prices", prices, "--db", store, "--config", config, "--candidates", "40",
        "--seed", "3", "--repairs", "0", "--no-known-formulas", *NO_GATES,
    )
    assert done.returncode == 0, done.stderr
    graphs = " ".join(row[0] for row in rows(store, "SELECT graph FROM evaluations"))
    for there in ('"4"', '"9"', '"0.5"', '"ts_ema"', '"6"'):
        assert there in graphs, there
    for gone in ('"cross_', '"20"', '"60"'):
        assert gone not in graphs, gone
    ((settings,),) = rows(store, "SELECT settings FROM runs")
    assert json.loads(settings)["vocabulary"]["windows"] == [4, 9]
    assert json.loads(settings)["vocabulary"]["formulas"] == {"reversal": "-delta(close, 6)"}


def test_a_seed_gives_the_graphs_that_it_gives_without_the_table(tmp_path: Path, prices: Path):
    config = tmp_path / "search.toml"
    config.write_text("[vocabulary]\n")
    graphs = []
    for number, more in enumerate(([], ["--config", str(config)])):
        store = tmp_path / f"{number}.db"
        done = call(
            "run", "--prices", prices, "--db", store, "--candidates", "20", "--seed", "3", *more
        )
        assert done.returncode == 0, done.stderr
        graphs.append(rows(store, "SELECT graph FROM evaluations ORDER BY eval_id"))
    assert graphs[0] == graphs[1]


def test_formulas_may_call_those_of_the_file(tmp_path: Path, prices: Path):
    config = tmp_path / "search.toml"
    config.write_text(CONFIG)
    done = call("eval", "rank(reversal)", "--prices", prices, "--config", config, "--json")
    assert done.returncode == 0, done.stderr
    (told,) = events(done.stdout)
    assert told["expression"] == "cross_rank(arith_neg(ts_delta(close, 6)))"
    config.write_text('[vocabulary.formulas]\nreversal = "-delta(clos, 6)"\n')
    done = call("eval", "reversal", "--prices", prices, "--config", config)
    assert done.returncode == 2
    assert 'did you mean "close"?' in done.stderr and "line 2, column 12" in done.stderr
