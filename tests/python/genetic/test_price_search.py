"""A search on real prices by a whole host in Python, from the first batch to the store.

Goal: a host with a backtester, gates, a planner, a signal pool, forked workers and a store runs
whole generations, and what its store holds fits together, also after Ctrl-C. Method: the sample
prices, the host of price_search.py, and statements over its store that must give no row.
"""

import json
import os
import random
import signal
import subprocess
import sys

import conftest
import price_search
import price_signals
import pytest
from varnholt.search_templates import _engine

DAYS = 260

# One row is one violation.
INVARIANTS = {
    "an attempt has one end": "SELECT id, ends FROM attempts WHERE ends <> 1",
    "its steps come in their order": """
        SELECT id, steps FROM (
            SELECT id, (SELECT group_concat(event) FROM (
                SELECT event FROM events WHERE attempt = attempts.id ORDER BY rowid)) steps
            FROM attempts)
        WHERE steps NOT IN ('created,dispatched,started,ended', 'created,dispatched,ended')""",
    "an evaluation ends one attempt, of its own graph": """
        SELECT v.id FROM evaluations v LEFT JOIN attempts a ON a.id = v.attempt
        WHERE a.id IS NULL OR a.graph <> v.graph OR a.disposition <> 'completed'
        UNION ALL SELECT attempt FROM evaluations GROUP BY attempt HAVING count(*) > 1""",
    "a completed attempt has its evaluation": """
        SELECT id FROM attempts WHERE disposition = 'completed'
        AND id NOT IN (SELECT attempt FROM evaluations)""",
    "a structure is evaluated once":
        "SELECT graph FROM evaluations GROUP BY graph HAVING count(*) > 1",
    "what is submitted has passed and was recorded, once": """
        SELECT evaluation FROM submissions
        WHERE evaluation NOT IN (SELECT id FROM evaluations WHERE passed)
        UNION ALL SELECT evaluation FROM submissions GROUP BY evaluation HAVING count(*) > 1""",
    "a signal is as good as the gates ask": f"""
        SELECT evaluation FROM signals WHERE sharpe < {price_search.THRESHOLDS["sharpe"]}
        OR correlation > {price_search.POOL_CORRELATION_MAX}
        OR novelty < {price_search.POOL_NOVELTY_MIN}""",
    "no marker is open": "SELECT id FROM markers WHERE is_open",
}


@pytest.fixture(scope="module")
def prices(tmp_path_factory):
    path = tmp_path_factory.mktemp("sample") / "prices.csv"
    maker = conftest.ROOT / "scripts" / "make_sample_prices.py"
    subprocess.run([sys.executable, maker, path], check=True, capture_output=True, timeout=120)
    return price_signals.read_prices(path, DAYS)


@pytest.fixture
def search(genetic, monkeypatch, tmp_path, prices):
    """Makes the context of a search and runs it from a fixed seed; children look at their host."""
    planner = price_search.bind(genetic, monkeypatch)

    def run(generations, **settings):
        ctx = price_search.PriceSearch(tmp_path, prices, generations, **settings)
        ctx.planner = planner
        contexts.append(ctx)
        watch_the_host(genetic, monkeypatch, ctx)
        config = genetic.with_config(
            batch_size=12, diversity_weight=0.1, parsimony_weight=0.001, restart_threshold=4,
            max_improvement_candidates=16, max_improvement_rounds=3,
        )
        config._store_rng_state(random.Random(11))
        before = host_as_it_stands(ctx)
        try:
            config(ctx)
        finally:
            assert host_as_it_stands(ctx) == before
            with pytest.raises(ChildProcessError):
                os.waitpid(-1, os.WNOHANG)
        return ctx

    contexts = []
    run.contexts = contexts
    yield run
    for ctx in contexts:
        ctx._tracker._database.close()


def host_as_it_stands(ctx):
    """What guards are put on, as objects."""
    own = {name: value for name, value in vars(ctx).items() if callable(value)}
    engine = {name: value for name, value in vars(_engine).items() if callable(value)}
    return own, vars(ctx).keys() - {"_last_evaluation_record"}, engine, id(ctx._tracker)


def watch_the_host(genetic, monkeypatch, ctx):
    """Let each child fail that leaves a guard on its host after the simulation."""
    evaluate = genetic._process_evaluation.evaluate_candidate_batch

    def evaluate_batch(candidates, simulate, *, config):
        def simulate_and_look(candidate):
            before = host_as_it_stands(ctx)
            payload = simulate(candidate)
            assert host_as_it_stands(ctx) == before
            return payload

        return evaluate(candidates, simulate_and_look, config=config)

    monkeypatch.setattr(genetic._process_evaluation, "evaluate_candidate_batch", evaluate_batch)


def check_store(ctx):
    for name, statement in INVARIANTS.items():
        assert ctx._tracker.rows(statement) == [], name


def test_whole_generations(genetic, search):
    ctx = search(2)
    check_store(ctx)
    rows = ctx._tracker.rows
    assert rows("""SELECT id FROM evaluations WHERE passed
                   AND id NOT IN (SELECT evaluation FROM submissions)""") == []
    (metrics,) = ctx.metrics
    assert metrics["terminal_reason"] == "stopped" and metrics["failure_count"] == 0
    assert rows("SELECT count(*) FROM evaluations") == [(metrics["candidate_count"],)]
    assert metrics["improvement_round_count"] > 1
    reasons = {reason for (reason,) in rows("SELECT DISTINCT reason FROM evaluations")}
    # No child failed, the pool refused some, and every gate did.
    assert reasons - {"correlation_exceeded"} == {
        None, "sharpe_min", "turnover_max", "max_weight_max", "pnl_mi_below_threshold"}
    assert rows("SELECT DISTINCT disposition FROM attempts") == [("completed",)]
    assert len(ctx._backtester.pool.members) == rows("SELECT count(*) FROM signals")[0][0] > 2
    repaired = {json.dumps(plan["graph"]) for plan in ctx.planner.planned}
    submitted = {graph for (graph,) in rows("SELECT graph FROM signals")}
    assert submitted & repaired and submitted - repaired
    # The parent ran backtests of its own: for the series of what passed, and for the pool.
    assert ctx._backtester.runs >= 2 * len(ctx._backtester.pool.members)


@pytest.fixture
def interruptible():
    """Lets an interrupt raise KeyboardInterrupt, also where the tests run in the background."""
    before = signal.signal(signal.SIGINT, signal.default_int_handler)
    yield
    signal.signal(signal.SIGINT, before)


def test_an_interrupt_leaves_no_open_attempt(genetic, search, interruptible):
    with pytest.raises(KeyboardInterrupt):
        search(50, jobs=1, interrupt_at=20)
    (ctx,) = search.contexts
    check_store(ctx)
    rows = ctx._tracker.rows
    # Nobody has called the search off: the backtest was cut short by what ended the batch.
    assert rows("SELECT disposition, reason FROM attempts WHERE id = 20") == [
        ("backtest_failed", "process_evaluation_aborted")]
    assert rows("SELECT count(*) FROM attempts WHERE disposition = 'completed'")[0][0] >= 12
    assert ctx.metrics == []
