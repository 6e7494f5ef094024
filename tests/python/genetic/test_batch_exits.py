"""Every way into and out of a batch, on Python objects.

Goal: each exit closes what is open with its own reason, leaves as the very object that came, and
returns what it should; each result and each failure is recorded once, before anything is submitted.
Method: a table of the exits, with a ledger that notes what it is told; scripted passes of a pool
that starts no process; and what the pool is given, looked at piece by piece.
"""

import contextlib
import inspect
import types

import pytest
from attempt_host import ENDING, STARTING, HostError
from batch_host import BatchWorld, Interrupted, PoolError

from batch_player import GRAPHS, nodes, play, told, work  # noqa: F401


def test_an_empty_batch_asks_nothing(genetic):
    for empty in ([], (), iter(())):
        assert genetic._evaluate_candidate_batch(None, empty) == []
    assert str(inspect.signature(genetic._evaluate_candidate_batch)) == (
        "(ctx, batch, process_timeout_seconds=None)"
    )


def test_a_search_that_is_called_off_before_anything(genetic, told, monkeypatch):
    world = BatchWorld()
    world.cancelled = True
    world.bind(genetic, monkeypatch)
    assert genetic._evaluate_candidate_batch(world.context, GRAPHS) == []
    assert world.called == ["_submission_cancelled"]
    assert told == [("process_evaluation_cancelled",)]


@pytest.mark.parametrize(
    ("call", "reason"),
    [
        ("request_for_sync", "found_pnl_prefetch_failed"),
        ("resolve_process_worker_count_details", "process_capacity_resolution_failed"),
        ("log_worker_count_reduction", "process_capacity_resolution_failed"),
        ("prefetch_candidate_features", "candidate_feature_prefetch_failed"),
        ("evaluate_candidate_batch", "process_evaluation_aborted"),
    ],
)
@pytest.mark.parametrize("error", [
    Interrupted(), KeyboardInterrupt(), SystemExit(2), GeneratorExit(), HostError("host"),
], ids=lambda error: type(error).__name__)
def test_a_guarded_step_closes_and_leaves_as_the_same_object(
    genetic, told, play, call, reason, error
):
    notes = []
    for _ in range(2):
        left = play.fail_at(call, error)
        notes = told[-1:]
    if call == "request_for_sync" and isinstance(error, Exception):
        # The list of files is the one thing that a batch does without.
        assert left is None and notes == [("process_result_missing",)]
        return
    assert left is error
    assert notes == [(reason, error)] and notes[0][1] is error


@pytest.mark.parametrize("call", ["_fork_context", "SimpleQueue", "CandidateEvaluation",
                                  "ProcessEvaluationConfig"])
def test_a_step_that_is_not_guarded_leaves_as_it_stands(genetic, play, monkeypatch, call):
    def finalize_all_open(self, *args):
        raise AssertionError("nothing is to be closed")

    error = HostError("host")
    with monkeypatch.context() as patch:
        patch.setattr(genetic, "_ProcessAttemptLedger", genetic._ProcessAttemptLedger)
        number = next(
            number for number in range(200)
            if reached(play, number, error) == call
        )
        patch.setattr(genetic._ProcessAttemptLedger, "finalize_all_open", finalize_all_open)
        with pytest.raises(HostError) as caught:
            play(work(0, 1), failures={number: (error, False)})
    assert caught.value is error


def reached(play, number, error):
    """The name of the call that fails."""
    with contextlib.suppress(HostError):
        play(work(0, 1), failures={number: (error, False)})
    return play.failed(number)


def test_what_fails_while_closing_leaves_in_place_of_the_first(genetic, play, monkeypatch):
    first, second = HostError("first"), HostError("second")

    def finalize_all_open(self, reason, detail=None):
        raise second

    monkeypatch.setattr(genetic._ProcessAttemptLedger, "finalize_all_open", finalize_all_open)
    with pytest.raises(HostError) as caught:
        play([("throw", first)])
    assert caught.value is second and second.__context__ is first


# What the pool is given.


def test_the_configuration(genetic, play):
    world, _ = play([], _n_jobs="3", timeout=0)
    ((candidates, simulate, config),) = world.kept
    assert list(vars(config)) == [
        "n_jobs", "max_retries", "timeout_seconds", "process_priority",
        "worker_memory_limit_bytes", "worker_processes", "pre_dispatch_callback",
        "lifecycle_callback", "progress_callback", "completed_result_callback",
        "parent_poll_callback", "stop_requested", "drain_terminal_timeouts",
    ]
    assert (config.n_jobs, config.max_retries, config.timeout_seconds) == (3, 1, 0)
    assert (config.process_priority, config.worker_memory_limit_bytes) == (10, 1 << 30)
    assert config.worker_processes is None and config.drain_terminal_timeouts is True
    ledger = config.pre_dispatch_callback.__self__
    assert type(ledger) is genetic._ProcessAttemptLedger
    assert config.pre_dispatch_callback == ledger.pre_dispatch
    assert config.lifecycle_callback == ledger.lifecycle
    assert config.progress_callback == ledger.progress
    assert config.parent_poll_callback == ledger.poll_backtest_boundaries
    assert config.stop_requested is world.context._held["_submission_cancelled"]
    assert type(candidates) is list
    assert [vars(candidate) for candidate in candidates] == [
        {"metadata": {}, "candidate_index": index, "graph": GRAPHS[index]} for index in (0, 1)
    ]
    assert all(one.graph is graph for one, graph in zip(candidates, GRAPHS))


def test_what_the_context_sets(genetic, play):
    processes, priority = object(), (1, 2)
    world, _ = play(
        [], _process_priority=priority, _worker_processes=processes,
        _worker_memory_limit_bytes="2048", timeout=7,
    )
    config = world.config
    assert config.process_priority is priority and config.worker_processes is processes
    assert config.worker_memory_limit_bytes == 2048
    assert config.timeout_seconds == 7 and type(config.timeout_seconds) is int
    assert play([])[0].config.timeout_seconds == 600.0


def test_the_hosts_priority_is_read_even_when_the_context_has_one(genetic, play, monkeypatch):
    world, _ = play([], _process_priority=3)
    reads = [line for line in world.log if line[:2] in (
        ("read", "search_settings"), ("read", "context")) and "riorit" in line[2].lower()]
    assert [line[2] for line in reads] == ["DEFAULT_PROCESS_PRIORITY", "_process_priority"]
    world = BatchWorld([[]], _process_priority=3)
    world.bind(genetic, monkeypatch)
    monkeypatch.setattr(genetic, "_search_settings", types.SimpleNamespace())
    with pytest.raises(AttributeError, match="DEFAULT_PROCESS_PRIORITY"):
        genetic._evaluate_candidate_batch(world.context, GRAPHS)


def test_the_order_of_a_batchs_calls(genetic, play):
    world, results = play(work(0, 1))
    assert nodes(results) == ["a", "b"]
    assert world.called[:8] == [
        "_submission_cancelled", "request_for_sync", "resolve_process_worker_count_details",
        "log_worker_count_reduction", "_fork_context", "SimpleQueue", "SimpleQueue",
        "SimpleQueue",
    ]
    assert world.called[8:13] == [
        "_submission_cancelled", "prefetch_candidate_features", "CandidateEvaluation",
        "CandidateEvaluation", "ProcessEvaluationConfig",
    ]
    assert world.called[13] == "evaluate_candidate_batch"
    assert world.prefetched == [GRAPHS[:2]] and world.prefetched[0][0] is GRAPHS[0]


def test_the_simulation_is_called_with_what_the_ledger_has_then(genetic, play, monkeypatch):
    given = []
    monkeypatch.setattr(
        genetic, "_process_simulate_candidate", lambda *args: given.append(args) or "record"
    )
    world, _ = play([])
    ((candidates, simulate, config),) = world.kept
    ledger = config.pre_dispatch_callback.__self__
    ledger._backtest_boundary_queue = "another queue"
    assert simulate(candidates[1]) == "record"
    assert given == [(
        world.context, candidates[1], ("x.pnl", "y.pnl"), "another queue",
        ledger._backtest_acknowledgement_queues,
    )]
    assert given[0][0] is world.context and given[0][1] is candidates[1]


def test_the_batch_is_walked_once_and_may_be_any_walk(genetic, play):
    world, results = play(work(0, 1), graphs=(dict(graph) for graph in GRAPHS[:2]))
    assert nodes(results) == ["a", "b"]


@pytest.mark.parametrize(
    ("size", "jobs", "resolved", "chunks"),
    [(4, 2, 2, [2, 2]), (3, 8, 8, [3]), (4, 2, 0, [1, 1, 1, 1]), (4, 1, 3, [3, 1]), (1, 1, 5, [1])],
)
def test_chunks_are_no_larger_than_the_workers(genetic, play, size, jobs, resolved, chunks):
    passes, first = [], 0
    for chunk in chunks:
        passes.append(work(*range(first, first + chunk)))
        first += chunk
    world, results = play(*passes, graphs=GRAPHS[:size], _n_jobs=jobs, resolved=resolved)
    assert [len(graphs) for graphs in world.prefetched] == chunks and len(results) == size
    # The workers are resolved once a batch.
    assert world.called.count("resolve_process_worker_count_details") == 1


# A result at the moment it completes.


def test_a_completed_result_is_recorded_then_submitted_then_kept(genetic, told, play):
    graph = {"node": "g", "do": ["backtest", "pass"]}
    world, (result,) = play(work(0), graphs=[graph])
    calls = world.called
    assert calls.index("_activate_existing_attempt") < calls.index("_safe_record")
    assert calls.index("_safe_record") < calls.index("_enqueue_deferred_submission_payload")
    assert calls.count("_safe_record") == 1 and world.rows == {
        100: ["created", "dispatched", "started"]
    }
    assert result["source_attempt_id"] == 100 and result["process_attempt"] == 0
    assert result["submission_payload"]["_source_attempt_id"] == 100
    assert result["_parent_recorded"] is True and result["_submission_enqueued"] is True
    assert world.enqueued[0] is not None and told == [("process_result_missing",)]


def test_the_recorded_object_is_what_is_returned(genetic, play, monkeypatch):
    submitted = []
    world = BatchWorld([work(0)])
    world.bind(genetic, monkeypatch)
    world.context._held["_enqueue_deferred_submission_payload"] = submitted.append
    graph = {"node": "g", "do": ["backtest", "pass"]}
    (result,) = genetic._evaluate_candidate_batch(world.context, [graph])
    assert submitted == [result["submission_payload"]]
    assert submitted[0] is result["submission_payload"] and type(result) is dict


def test_with_one_job_nothing_is_submitted(genetic, play):
    graphs = [{"node": name, "do": ["backtest", "pass"]} for name in "ab"]
    world, results = play(work(0, 1), graphs=graphs, _n_jobs=1)
    assert world.enqueued == [] and world.called.count("_safe_record") == 2
    assert all(result["_parent_recorded"] for result in results)
    # Alone in its batch, or with two jobs, it is.
    assert len(play(work(0), graphs=graphs[:1], _n_jobs=1)[0].enqueued) == 1
    assert len(play(work(0, 1), graphs=graphs, _n_jobs=2)[0].enqueued) == 2


def test_a_batch_of_one_does_not_ask_for_the_jobs_to_stream(genetic, play):
    def jobs_read(size):
        world, _ = play(work(*range(size)), graphs=GRAPHS[:size])
        return sum(line == ("read", "context", "_n_jobs") for line in world.log)

    assert jobs_read(2) == jobs_read(1) + 1


def test_a_result_that_breaks_the_order_ends_the_batch(genetic, told, play):
    with pytest.raises(RuntimeError) as caught:
        play(work(0), graphs=[{"node": "g", "do": ["no evidence"]}])
    assert str(caught.value) == "process result is missing attempt evidence"
    assert told == [("process_evaluation_aborted", caught.value)]


def test_a_result_that_is_not_recorded_ends_the_batch(genetic, told, play):
    with pytest.raises(RuntimeError) as caught:
        play([("forget",)] + work(0), graphs=GRAPHS[:1])
    assert str(caught.value) == (
        "genetic candidate parent evaluation persistence failed: candidate_index=0"
    )
    world = play.world
    assert told == [("process_evaluation_aborted", caught.value)]
    # The recorder has settled the attempt: the ledger ends it no second time.
    assert world.called.count("finalize_simulation_attempt") == 0
    assert world.enqueued == []


def test_the_index_of_the_process_result_counts(genetic, play):
    payload = {"candidate_index": 5, "attempt_evidence": {}, "passes": False, "graph": GRAPHS[0]}
    world, (result,) = play(
        [("dispatch", 0), ("complete", 0, 0, payload), ("give", 0, 0, payload)], graphs=GRAPHS[:1]
    )
    assert result["candidate_index"] == 5 and result["_parent_recorded"] is True


def test_a_callback_kept_from_an_earlier_pass_sees_the_current_one(genetic, play):
    def late(self):
        """Hands a result to the callback of the first pass."""
        first = self.world.kept[0][2].completed_result_callback
        first(self.result(1, 0, {"passes": False, "attempt_evidence": {}, "graph": GRAPHS[1]}))
        self.give(1)

    from batch_host import Game

    Game.late = late
    try:
        world, results = play(work(0), [("dispatch", 1), ("late",)], resolved=1)
    finally:
        del Game.late
    assert [result["_parent_recorded"] for result in results] == [True, True]


# What the pool returns.


def test_results_stand_in_the_order_of_the_batch(genetic, play):
    world, results = play(work(3, 1, 0, 2), graphs=GRAPHS, resolved=4)
    assert nodes(results) == list("abcd") and type(results) is list


def test_a_result_without_the_callback_is_returned_unrecorded(genetic, told, play):
    world, (result,) = play(
        [("dispatch", 0), ("run", 0), ("give", 0)], graphs=[{"node": "g", "do": ["backtest"]}]
    )
    assert result["worker_pid"] == 1001 and "_parent_recorded" not in result
    assert "_safe_record" not in world.called
    assert world.called[-5:] == [*ENDING, "_clear_evaluation_attempt_marker"]
    assert told == [("process_result_missing",)]
    assert world.rows == {100: ["created", "dispatched", "started", "backtest_failed"]}


@pytest.mark.parametrize("empty", [[], (), iter(())])
def test_an_empty_answer_ends_the_batch(genetic, told, play, empty):
    world, results = play([("dispatch", 0), ("signal", 0), ("answer", empty)])
    assert results == [] and world.called.count("evaluate_candidate_batch") == 1
    assert told == [("process_result_missing",)]
    assert world.rows == {100: ["created", "dispatched", "started", "backtest_failed"]}


@pytest.mark.parametrize("answer", [None, 5])
def test_an_answer_that_cannot_be_walked_leaves_the_attempts_open(genetic, told, play, answer):
    with pytest.raises(TypeError, match="object is not iterable"):
        play([("dispatch", 0), ("signal", 0), ("answer", answer)])
    assert told == [] and "finalize_simulation_attempt" not in play.world.called


def test_a_lazy_pool_fails_outside_the_guards(genetic, told, play):
    error = PoolError(candidate_index=0, terminal_reason="worker_failed")

    def lazy():
        raise error
        yield

    with pytest.raises(PoolError) as caught:
        play([("answer", lazy())])
    assert caught.value is error and told == []


def test_a_partial_answer_leaves_the_rest_for_the_next_pass(genetic, play):
    world, results = play(work(1), work(0))
    assert nodes(results) == ["a", "b"]
    assert [len(graphs) for graphs in world.prefetched] == [2, 1]
    # A pool that begins a candidate's attempts anew is out of order.
    with pytest.raises(RuntimeError, match="process attempt was dispatched more than once"):
        play([("dispatch", 0)] + work(1), work(0))


def test_a_missing_result_leaves_no_gap(genetic, told, play):
    world, results = play(work(0, 2, 3), [], graphs=GRAPHS, resolved=4)
    assert nodes(results) == ["a", "c", "d"]
    assert told == [("process_result_missing",)]


def test_a_result_for_no_candidate_is_dropped(genetic, play):
    payload = {"passes": False}
    world, results = play(
        work(0, 1) + [("give", 9, 0, payload), ("give", "x", 0, payload)], graphs=GRAPHS[:2]
    )
    assert nodes(results) == ["a", "b"]


def test_indexes_are_matched_by_equality(genetic, play):
    payload = {"graph": {"node": "float"}}
    world, results = play(
        [("dispatch", 0), ("give", 0.0, 0, payload), ("give", True, 0, {"graph": {"node": "t"}})]
    )
    assert nodes(results) == ["float", "t"]


def test_a_search_called_off_between_passes(genetic, told, play):
    world, results = play(
        [("dispatch", 0), ("signal", 0), *work(1), ("cancel",)], graphs=GRAPHS[:3], resolved=2
    )
    assert nodes(results) == ["b"] and world.called.count("evaluate_candidate_batch") == 1
    assert told == [("process_result_missing",)]
    # What is open ends as cancelled, whatever the reason says.
    assert world.rows[100] == ["created", "dispatched", "started", "cancelled"]


# The pool's own error.
