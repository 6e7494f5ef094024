"""Batches and whole searches on real forks.

Goal: whatever becomes of a child, and at whatever stage, each attempt is created once, started
before its backtest and ended once, each candidate has one record, and neither a child nor a
descriptor nor a guard is left. Method: the small host's pool of forked processes and a tracker in
SQLite, which a child cannot write; graphs that say what goes wrong, one by one and mixed at random
(a difference prints its seed).
"""

import gc
import itertools
import os
import random
import signal

import pytest
import small_search

# Ends the child without a whole record.
LOSSES = ("kill", "segfault", "abort", "exit", "leave", "quit")
STAGES = ("before", "backtest", "after")


@pytest.fixture
def context(tmp_path):
    """Makes search contexts. What they opened is closed when the test has let go of them."""
    descriptors = sorted(os.listdir("/proc/self/fd"))
    made = []

    def make(**attributes):
        made.append(small_search.SearchContext(tmp_path, **attributes))
        return made[-1]

    yield make
    for one in made:
        one._tracker._database.close()
    # The traceback of an error that left a batch holds the queues of its ledger.
    gc.collect()
    assert sorted(os.listdir("/proc/self/fd")) == descriptors


def graph(name, **others):
    return {"node": name, **others}


def evaluate(genetic, context, *graphs, timeout=20.0):
    """Evaluate, and see that no child of it is left."""
    try:
        results = genetic._evaluate_candidate_batch(context, graphs, timeout)
    finally:
        with pytest.raises(ChildProcessError):
            os.waitpid(-1, os.WNOHANG)
        check_ends(context)
    check_store(context)
    return results


def check_ends(context):
    """What holds in the store whatever happened, an error of the tracker's own included."""
    tracker = context._tracker
    assert all(ends <= 1 for (ends,) in tracker.rows("SELECT ends FROM attempts"))
    assert tracker.rows("PRAGMA integrity_check") == [("ok",)]


def check_store(context):
    """What holds in the store after a batch that came to its end."""
    tracker = context._tracker
    for (attempt,) in tracker.rows("SELECT id FROM attempts"):
        events = [event for (event,) in tracker.rows(
            "SELECT event FROM events WHERE attempt = ? ORDER BY rowid", attempt)]
        assert events == ["created", "dispatched", "started", "ended"][: len(events)]
    assert tracker.rows("SELECT COUNT(*) FROM markers WHERE is_open") == [(0,)]


def attempts(context):
    return context._tracker.rows("SELECT state, disposition, reason FROM attempts ORDER BY id")


def failures(results):
    return [next(iter(result["failures"]), None) for result in results]


def test_candidates_that_pass(genetic, context):
    ctx = context()
    results = evaluate(genetic, ctx, graph("a"), graph("b"), graph("c", passes=False))
    assert [result["graph"]["node"] for result in results] == ["a", "b", "c"]
    assert failures(results) == [None, None, "low"]
    assert attempts(ctx) == [
        ("ended", "completed", reason)
        for (reason,) in ctx._tracker.rows("SELECT reason FROM attempts ORDER BY id")
    ]
    assert len({result["worker_pid"] for result in results} | {os.getpid()}) == 4
    assert ctx._tracker.rows("SELECT COUNT(*) FROM submissions") == [(2,)]
    rows = dict(ctx._tracker.rows("SELECT id, graph FROM attempts"))
    for result in results:
        assert result["source_attempt_id"] == result["attempt_evidence"]["attempt_id"]
        assert result["graph"]["node"] in rows[result["source_attempt_id"]]


@pytest.mark.parametrize("jobs", [1, 3])
@pytest.mark.parametrize(("fault", "stage"), list(itertools.product(LOSSES, STAGES)))
def test_a_lost_worker_is_tried_again(genetic, context, fault, stage, jobs):
    ctx = context(jobs=jobs)
    results = evaluate(
        genetic, ctx, graph("a"), graph("x", fault=fault, at=stage, once=True), graph("c")
    )
    assert failures(results) == [None, None, None]
    assert [result["process_attempt"] for result in results] == [0, 1, 0]
    retried = [] if stage == "before" else [("ended", "backtest_failed", "process_child_exception")]
    assert sorted(attempts(ctx), key=str) == sorted(
        retried + [("ended", "completed", None)] * 3, key=str
    )


@pytest.mark.parametrize(("fault", "stage"), list(itertools.product(LOSSES, STAGES)))
def test_a_worker_that_is_lost_twice_is_its_candidates_failure(genetic, context, fault, stage):
    ctx = context()
    results = evaluate(genetic, ctx, graph("a"), graph("x", fault=fault, at=stage))
    assert failures(results) == [None, "worker_failed"]
    evidence = results[1]["attempt_evidence"]
    started = stage != "before"
    assert evidence["backtest_started"] is started
    assert evidence["terminal_disposition_override"] == (
        "backtest_failed" if started else "resource_blocked"
    )
    # The attempt that was given up has no end: its record came without it.
    given_up = [("ended", "backtest_failed", "process_child_exception"), ("started", None, None)]
    assert sorted(attempts(ctx), key=str) == sorted(
        (given_up if started else []) + [("ended", "completed", None)], key=str
    )
    assert ctx._tracker.rows("SELECT COUNT(*) FROM evaluations") == [(2,)]


@pytest.mark.parametrize("stage", STAGES)
def test_an_error_of_the_evaluator_is_data(genetic, context, stage):
    """Before the backtest it has no attempt; after it the evidence denies what the ledger saw."""
    ctx = context()
    batch = (graph("a"), graph("x", fault="raise", at=stage))
    if stage == "before":
        results = evaluate(genetic, ctx, *batch)
        assert failures(results) == [None, "evaluate_exception"]
        assert "the evaluator failed" in results[1]["failures"]["evaluate_exception"]["detail"]
        return
    with pytest.raises(RuntimeError, match="child result lost backtest-start evidence"):
        evaluate(genetic, ctx, *batch)
    assert all(state == "ended" for state, _, _ in attempts(ctx))


@pytest.mark.parametrize("fault", ["hang", "stop"])
@pytest.mark.parametrize("stage", STAGES)
def test_a_worker_that_takes_too_long_is_killed(genetic, context, fault, stage):
    ctx = context()
    results = evaluate(
        genetic, ctx, graph("x", fault=fault, at=stage), graph("b"), graph("c"), timeout=0.5
    )
    assert failures(results) == ["worker_timeout", None, None]
    assert ("ended", "completed", None) in attempts(ctx)


def test_a_worker_without_memory_is_its_candidates_failure(genetic, context):
    ctx = context(_worker_memory_limit_bytes=400 << 20)
    results = evaluate(genetic, ctx, graph("a"), graph("x", fault="exhaust", at="before"))
    assert failures(results) == [None, "evaluate_exception"]
    # A MemoryError has no text.
    assert results[1]["failures"]["evaluate_exception"]["detail"] == ""


@pytest.mark.parametrize(("fault", "operation"), [
    ("enqueue", "_enqueue_deferred_submission_payload"), ("report", "record_search_run_metrics"),
])
def test_a_child_is_refused_what_is_the_parents(genetic, context, fault, operation):
    ctx = context()
    results = evaluate(genetic, ctx, graph("x", fault=fault, at="before"), graph("b"))
    assert failures(results) == ["evaluate_exception", None]
    assert results[0]["failures"]["evaluate_exception"]["detail"].endswith(
        "child process cannot call parent-only operation " + operation
    )
    assert ctx.metrics == []


def test_the_store_is_the_parents(genetic, context):
    ctx = context()
    results = evaluate(genetic, ctx, graph("x", fault="write", at="before"))
    assert "a child writes into the store" in str(results[0]["failures"])


def test_the_guards_stay_in_the_child(genetic, context):
    ctx = context()
    before = sorted(vars(ctx)), sorted(vars(genetic._engine))
    evaluate(genetic, ctx, graph("a"))
    vars(ctx).pop("_last_evaluation_record")
    assert (sorted(vars(ctx)), sorted(vars(genetic._engine))) == before


@pytest.fixture
def interrupt_in_the_pool():
    """Interrupts arrive where the pool asks whether to go on, and not within a step of the tracker.

    Between the row that the tracker writes and the identity that the ledger keeps lies a moment in
    which an interrupt loses the row. No host in Python can close it, and it is not looked at here.
    """
    arrived = []

    def go_on():
        if arrived:
            arrived.clear()
            raise KeyboardInterrupt
        return False

    before = signal.signal(signal.SIGINT, lambda number, frame: arrived.append(number))
    yield go_on
    signal.signal(signal.SIGINT, before)


@pytest.mark.parametrize("stage", STAGES)
def test_an_interrupt_ends_every_attempt_and_goes_on(
    genetic, context, interrupt_in_the_pool, stage
):
    ctx = context(jobs=3, _submission_cancelled=interrupt_in_the_pool)
    with pytest.raises(KeyboardInterrupt):
        evaluate(
            genetic, ctx, graph("a", fault="hang", at="backtest"),
            graph("x", fault="interrupt", at=stage), graph("b", fault="hang", at="backtest"),
        )
    for state, disposition, reason in attempts(ctx):
        assert (state, disposition, reason) == (
            "ended", "backtest_failed", "process_evaluation_aborted"
        )


def test_a_search_that_is_called_off(genetic, context):
    ctx = context(jobs=2)
    results = evaluate(
        genetic, ctx, graph("a"), graph("x", fault="cancel", at="backtest"), graph("c"),
    )
    assert len(results) < 3
    for state, disposition, reason in attempts(ctx):
        assert state == "ended"
        assert (disposition, reason) in (("completed", None), ("cancelled", "search_stopped"))
    assert ("ended", "cancelled", "search_stopped") in attempts(ctx)


@pytest.mark.parametrize("call", [
    "create_simulation_attempt", "mark_simulation_attempt_dispatched",
    "mark_simulation_attempt_backtest_started",
])
def test_a_tracker_that_fails_releases_the_child_and_ends_the_batch(genetic, context, call):
    # Two that signal at once would fail twice, the second time while the batch is being closed.
    ctx = context(jobs=1)

    def fail(*args, **keywords):
        raise OSError("disk full")

    setattr(ctx._tracker, call, fail)
    with pytest.raises(OSError, match="disk full"):
        evaluate(genetic, ctx, graph("a"))
    created = [] if call == "create_simulation_attempt" else [("ended", "resource_blocked")]
    assert [row[:2] for row in attempts(ctx)] == created


def test_whole_generations_with_faults(genetic, context, make_event):
    ctx = context(_stop_event=make_event(set_after=12))
    seeds = [
        graph("a"), graph("low", passes=False), graph("lost", fault="kill", at="backtest"),
        graph("again", fault="exit", at="before", once=True),
        graph("late", fault="hang", at="before"), graph("bad", fault="raise", at="before"),
    ]
    genetic.with_config(
        batch_size=3, initial_candidates=seeds, process_timeout_seconds=1.0
    )(ctx)
    check_store(ctx)
    (metrics,) = ctx.metrics
    assert metrics["terminal_reason"] == "stopped" and metrics["candidate_count"] >= 6
    evaluations = ctx._tracker.rows("SELECT COUNT(*) FROM evaluations")
    assert evaluations == [(metrics["candidate_count"],)]
    open_attempts = [row for row in attempts(ctx) if row[0] != "ended"]
    assert open_attempts == [("started", None, None)], "the one that was given up"
    submitted = ctx._tracker.rows("SELECT COUNT(DISTINCT evaluation), COUNT(*) FROM submissions")
    passed = ctx._tracker.rows("SELECT COUNT(*) FROM evaluations WHERE passed")
    assert submitted == [(passed[0][0], passed[0][0])]


@pytest.mark.parametrize("seed", range(12))
def test_random_mixes_of_faults(genetic, context, seed):
    rng = random.Random(seed)
    ctx = context(jobs=rng.choice((1, 2, 4)))
    graphs = []
    for place in range(rng.randrange(1, 7)):
        one = graph(f"g{place}", passes=rng.random() < 0.5)
        if rng.random() < 0.6:
            one.update(
                fault=rng.choice((*LOSSES, "hang")), at=rng.choice(STAGES),
                once=rng.random() < 0.5,
            )
        graphs.append(one)
    results = evaluate(genetic, ctx, *graphs, timeout=0.6)
    what = f"seed {seed}"
    assert [result["graph"]["node"] for result in results] == [one["node"] for one in graphs], what
    assert ctx._tracker.rows("SELECT COUNT(*) FROM evaluations") == [(len(graphs),)], what
    for one, result in zip(graphs, results):
        reason = next(iter(result["failures"]), None)
        if one.get("fault") == "hang":
            assert reason == "worker_timeout", what
        elif one.get("fault") and not one["once"]:
            assert reason == "worker_failed", what
        else:
            assert reason == (None if one["passes"] else "low"), what
