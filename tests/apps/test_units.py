"""--units: a search adds and compares only what is of one unit, unless it is told otherwise.

Method: runs of fresh and bred expressions, of which eval tells the units of each.
"""

from __future__ import annotations

from pathlib import Path

from program import a_run, call, events, rows


def mixtures(store: Path, prices: Path, tmp_path: Path) -> list[int]:
    formulas = tmp_path / "formulas.txt"
    found = rows(store, "SELECT DISTINCT expression FROM evaluations WHERE expression <> ''")
    formulas.write_text("".join(f"{expression}\n" for (expression,) in found))
    done = call("eval", "--file", formulas, "--prices", prices, "--json")
    assert done.returncode == 0, done.stderr
    return [told["unit_mixtures"] for told in events(done.stdout)]


def test_a_run_mixes_no_units_unless_it_is_told_to(tmp_path: Path, prices: Path):
    store, _ = a_run(tmp_path, prices)
    counts = mixtures(store, prices, tmp_path)
    assert len(counts) > 15 and sum(counts) == 0
    other = tmp_path / "other"
    other.mkdir()
    # More of them: known formulas and crossover of like with like mix little of themselves.
    store, _ = a_run(other, prices, "--units", "off", "--batch-size", "24")
    assert sum(mixtures(store, prices, tmp_path)) > 0
    config = tmp_path / "c.toml"
    config.write_text("[vocabulary]\nunits = false\n")
    third = tmp_path / "third"
    third.mkdir()
    overridden, _ = a_run(third, prices, "--config", config, "--units", "on")
    assert sum(mixtures(overridden, prices, tmp_path)) == 0


def test_a_seed_that_mixes_is_taken_and_eval_notes_it(tmp_path: Path, prices: Path):
    seeds = tmp_path / "seeds.txt"
    seeds.write_text("close + returns\n")
    store, _ = a_run(tmp_path, prices, "--seeds", seeds)
    assert rows(
        store, "SELECT count(*) FROM evaluations WHERE expression = 'arith_add(close, returns)'"
    ) == [(1,)]
    page = call("eval", "close + returns", "--prices", prices).stdout
    assert "note: arith_add puts a price and a return together" in page
    assert "note:" not in call("eval", "close - open", "--prices", prices).stdout
