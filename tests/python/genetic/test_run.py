"""Runs of the search on a Python host: the loop, its metrics, its worker processes.

Goal: a run asks its host in the order told and ends with one metrics record. Method: the small host
of `host/`, whose pool forks a child for each candidate, with events that note what they are asked.
"""

import logging
import os
import random
import secrets
import sys
import types

import pytest

METRICS = [
    "batch_size", "process_count", "candidate_count", "generated_graph_count",
    "unique_graph_count", "duplicate_graph_count", "unique_ratio", "seed",
    "improvement_round_count", "terminal_reason", "failure_count", "elapsed_simulation_seconds",
    "determinism_metadata",
]


@pytest.fixture
def recording_context(make_context):
    """A context whose evaluator passes every graph, and which notes what is recorded."""

    def make(**attributes):
        recorded = []
        enqueued = []

        def safe_record(graph, passed, **keywords):
            recorded.append((graph, passed, keywords))
            return len(recorded)

        context = make_context(
            _safe_record=safe_record,
            _current_attempt_evidence=lambda: {"backtest_started": False},
            _evaluate_for_template=lambda graph: {
                "record": {"passed": True, "per_column_stats": os.getpid()},
                "attempt_evidence": {"backtest_started": False},
            },
            _attempt_expected_columns=[],
            _activate_existing_attempt=lambda attempt_id, evidence: None,
            _enqueue_deferred_submission_payload=enqueued.append,
        )
        context.recorded = recorded
        context.enqueued = enqueued
        context.__dict__.update(attributes)
        return context

    return make


def test_a_run_that_is_stopped_before_it_begins(genetic, make_context, make_event, monkeypatch):
    monkeypatch.setattr(secrets, "randbits", lambda count: 5)
    context = make_context(_stop_event=make_event())
    assert genetic.genetic(context) is None
    (record,) = context.metrics
    assert list(record) == METRICS
    assert record == {
        "batch_size": 4, "process_count": 1, "candidate_count": 0, "generated_graph_count": 0,
        "unique_graph_count": 0, "duplicate_graph_count": 0, "unique_ratio": 0.0, "seed": 5,
        "improvement_round_count": 0, "terminal_reason": "stopped", "failure_count": 0,
        "elapsed_simulation_seconds": 0.0,
        "determinism_metadata": {
            "seed": 5, "process_count": 1,
            "tie_semantics": "score_desc_then_candidate_index_asc_then_canonical_graph",
        },
    }
    # Once before the first turn, and once more after the loop.
    assert context._stop_event.calls == ["is_set", "is_set"]


def test_the_workers_are_resolved_and_logged_before_the_stop_event_is_read(
    genetic, make_context, make_event
):
    logged = genetic._process_evaluation.logged_reductions
    logged.clear()
    context = make_context(_stop_event=make_event(), _n_jobs="8")
    genetic.with_config(batch_size=3)(context)
    ((logger, resolution, scope, owner, detail),) = logged
    assert logger is genetic._engine.logger and owner is context
    assert (resolution.requested, resolution.candidate_count) == (8, 3)
    assert scope == "genetic process evaluation"
    assert detail.startswith("public search n_jobs remains unchanged; this cap applies only to ")
    assert context.metrics[0]["process_count"] == 2


def test_a_generation_runs_in_children_and_is_recorded_in_the_parent(
    genetic, recording_context, make_event
):
    context = recording_context(_stop_event=make_event(set_after=4))
    genetic.with_config(batch_size=3)(context)
    (record,) = context.metrics
    assert record["candidate_count"] == 3 and record["generated_graph_count"] == 3
    assert record["elapsed_simulation_seconds"] == 0.75
    assert record["terminal_reason"] == "stopped"
    # The second pass over the generation finds every result marked.
    assert len(context.recorded) == 3
    pids = {keywords["per_column_stats"] for _, _, keywords in context.recorded}
    assert len(pids) == 3 and os.getpid() not in pids
    assert [call for call in context._stop_event.calls if call != "is_set"] == [("wait", 0.01)]


def test_what_passes_is_enqueued_in_the_parent_after_all_is_recorded(
    genetic, recording_context, make_event
):
    row = []
    context = recording_context(_stop_event=make_event(set_after=4), market_id=3)
    context._safe_record, record = (
        lambda *args, **keywords: row.append("record") or record(*args, **keywords),
        context._safe_record,
    )
    context._enqueue_deferred_submission_payload = lambda payload: row.append(payload)
    genetic.with_config(batch_size=3)(context)
    assert row[:3] == ["record"] * 3 and len(row) == 6
    for place, payload in enumerate(row[3:]):
        assert payload["eval_id"] == place + 1, "the host's id"
        assert payload["graph"] == context.recorded[place][0] and payload["market_id"] == 3
        # The timing was taken in the child, which it names.
        assert payload["backtest_timing"]["pid"] == context.recorded[place][2]["per_column_stats"]
        assert payload["_submission_pending_reason"] == "pool_metrics_refresh_required"


def test_a_passing_candidate_needs_a_queue(genetic, recording_context, make_event):
    context = recording_context(
        _stop_event=make_event(set_after=4), _enqueue_deferred_submission_payload=None
    )
    with pytest.raises(RuntimeError, match="genetic search requires canonical submission enqueue"):
        genetic.with_config(batch_size=2)(context)
    assert len(context.recorded) == 2 and context.metrics == []


def test_the_same_seed_gives_the_same_graphs(genetic, recording_context, make_event, monkeypatch):
    monkeypatch.setattr(secrets, "randbits", lambda count: 77)
    runs = []
    for _ in range(2):
        context = recording_context(_stop_event=make_event(set_after=4))
        genetic.with_config(batch_size=3)(context)
        runs.append([graph for graph, _, _ in context.recorded])
    assert runs[0] == runs[1] and len(runs[0]) == 3
    rng = random.Random(77)
    assert runs[0][0]["children"][0]["node"] == f"feature_{rng.randrange(10**9)}"


def test_the_module_itself_and_a_template_run_alike(genetic, make_context, make_event):
    for run in (genetic, genetic.genetic, genetic._default_genetic_template, genetic.with_config()):
        context = make_context(_stop_event=make_event())
        assert run(context) is None
        assert len(context.metrics) == 1


def test_a_template_goes_on_with_its_random_numbers(genetic, recording_context, make_event):
    config = genetic.with_config(batch_size=2)
    graphs = []
    for _ in range(2):
        context = recording_context(_stop_event=make_event(set_after=4))
        config(context)
        graphs += [graph for graph, _, _ in context.recorded]
    fresh = genetic._rng_from_state(genetic._managed_rng_state(config.seed))
    assert [graph["children"][0]["node"] for graph in graphs] == [
        f"feature_{fresh.randrange(10**9)}" for _ in range(4)
    ]


def test_the_same_seeds_again_end_the_run_as_duplicates(genetic, recording_context, monkeypatch):
    slept = []
    monkeypatch.setattr("time.sleep", slept.append)
    monkeypatch.setattr(
        genetic, "_fresh_random_candidates", lambda ctx, batch_size, rng=None: [{"only": 1}]
    )
    context = recording_context()
    genetic.with_config(batch_size=1)(context)
    (record,) = context.metrics
    assert record["terminal_reason"] == "duplicate"
    assert record["candidate_count"] == 1 and record["duplicate_graph_count"] == 21
    assert slept == [0.01], "without a stop event the pause is a plain sleep"


def test_an_interrupt_in_the_pause_leaves_without_a_record(
    genetic, recording_context, monkeypatch
):
    interrupt = KeyboardInterrupt()

    def sleep(seconds):
        raise interrupt

    monkeypatch.setattr("time.sleep", sleep)
    context = recording_context()
    with pytest.raises(KeyboardInterrupt) as caught:
        genetic.with_config(batch_size=1)(context)
    assert caught.value is interrupt
    assert context.metrics == [] and len(context.recorded) == 1


def test_a_lost_worker_is_one_candidates_failure(genetic, recording_context, make_event):
    context = recording_context(
        _stop_event=make_event(set_after=3), _evaluate_for_template=lambda graph: os._exit(3)
    )
    genetic.with_config(batch_size=2)(context)
    (record,) = context.metrics
    # The pool's error stays in the batch: what the run counts as failures are those that leave it.
    assert record["failure_count"] == 0 and record["candidate_count"] == 2
    assert [keywords["rejection_reason"] for _, _, keywords in context.recorded] == [
        "worker_failed"
    ] * 2


def test_a_fatal_process_error_is_recorded_and_leaves_as_it_is(
    genetic, recording_context, make_event, monkeypatch
):
    error = genetic._process_evaluation.ProcessEvaluationError(
        "no memory", terminal_reason="memory_budget_exceeded", failure_count="3"
    )

    def evaluate(candidates, simulate, *, config):
        raise error

    monkeypatch.setattr(genetic._process_evaluation, "evaluate_candidate_batch", evaluate)
    context = recording_context(_stop_event=make_event(set_after=9))
    with pytest.raises(genetic._process_evaluation.ProcessEvaluationError) as caught:
        genetic.genetic(context)
    assert caught.value is error
    assert [record["terminal_reason"] for record in context.metrics] == ["memory_budget_exceeded"]
    assert context.metrics[0]["failure_count"] == 3

    error.terminal_reason = "process_priority_failed"
    context = recording_context(_stop_event=make_event(set_after=9))
    with pytest.raises(genetic._process_evaluation.ProcessEvaluationError):
        genetic.genetic(context)
    assert context.metrics == []


def test_the_metrics_are_recorded_while_the_process_error_is_handled(
    genetic, recording_context, make_event, monkeypatch
):
    error, shown = genetic._process_evaluation.ProcessEvaluationError("pool"), []

    def evaluate(candidates, simulate, *, config):
        raise error

    monkeypatch.setattr(genetic._process_evaluation, "evaluate_candidate_batch", evaluate)
    context = recording_context(_stop_event=make_event(set_after=9))
    context.record_search_run_metrics = lambda **record: shown.append(sys.exc_info()[1])
    with pytest.raises(genetic._process_evaluation.ProcessEvaluationError):
        genetic.genetic(context)
    assert shown == [error] and sys.exc_info() == (None, None, None)


@pytest.mark.parametrize("error", [ValueError("pool"), KeyboardInterrupt()], ids=repr)
def test_no_other_error_of_the_pool_is_handled(
    genetic, recording_context, make_event, monkeypatch, error
):
    error.candidate_index = 0

    def evaluate(candidates, simulate, *, config):
        raise error

    monkeypatch.setattr(genetic._process_evaluation, "evaluate_candidate_batch", evaluate)
    context = recording_context(_stop_event=make_event(set_after=9))
    with pytest.raises(type(error)) as caught:
        genetic.genetic(context)
    assert caught.value is error and context.metrics == [] and context.recorded == []


def test_what_the_pool_is_given(genetic, recording_context, make_event, monkeypatch):
    given = []

    def evaluate(candidates, simulate, *, config):
        given.append((candidates, simulate, config))
        return []

    monkeypatch.setattr(genetic._process_evaluation, "evaluate_candidate_batch", evaluate)
    context = recording_context(_stop_event=make_event(set_after=1), _n_jobs=2.9)
    genetic.with_config(batch_size=2, process_timeout_seconds="7")(context)
    ((candidates, simulate, config),) = given
    assert [candidate.candidate_index for candidate in candidates] == [0, 1]
    assert (config.n_jobs, config.max_retries, config.timeout_seconds) == (2, 1, 7.0)
    assert config.worker_memory_limit_bytes == 1 << 30
    assert simulate.__name__ == "_simulate"


def test_a_runtime_that_stays_not_ready_ends_the_run(
    genetic, recording_context, make_event, monkeypatch, caplog
):
    told = []

    def evaluate(graph):
        raise genetic._engine.SdkRuntimeNotReadyError("cold")

    context = recording_context(
        _stop_event=make_event(set_after=99),
        _evaluate_for_template=evaluate,
        _fatal_callback=lambda *args: told.append(args),
    )
    with caplog.at_level(logging.ERROR):
        with pytest.raises(genetic._engine.BackgroundInfrastructureError) as caught:
            genetic.with_config(batch_size=3)(context)
    assert str(caught.value).startswith("search runtime was not ready for 3 consecutive candidates")
    assert told == [("BACKGROUND_TASK_FAILED", "register()", str(caught.value))]
    assert [record["terminal_reason"] for record in context.metrics] == ["sdk_runtime_not_ready"]
    (entry,) = caplog.records
    assert entry.msg.count("%s") == 1 and entry.args == (3,)


def test_a_fatal_callback_that_cannot_be_called_fails_in_the_call(
    genetic, recording_context, make_event
):
    def evaluate(graph):
        raise genetic._engine.SdkRuntimeNotReadyError("cold")

    context = recording_context(
        _stop_event=make_event(set_after=99), _evaluate_for_template=evaluate, _fatal_callback=5
    )
    with pytest.raises(TypeError, match="'int' object is not callable"):
        genetic.with_config(batch_size=3)(context)


FIGURES = {
    "process_count": 2, "candidate_count": 3, "generated_graph_count": 4,
    "unique_graph_count": 3, "duplicate_graph_count": 1, "improvement_round_count": 0,
    "terminal_reason": "stopped", "failure_count": 0, "elapsed_simulation_seconds": 1.5,
}


def recorded(genetic, recorder):
    config = types.SimpleNamespace(_batch_size=4, _seed=9)
    context = types.SimpleNamespace(record_search_run_metrics=recorder)
    return genetic._record_search_run_metrics(context, config, **FIGURES)


def test_a_wide_recorder_gets_every_entry(genetic):
    got = []

    def recorder(*, terminal_reason, **entries):
        got.append({"terminal_reason": terminal_reason, **entries})
        return "dropped"

    assert recorded(genetic, recorder) is None
    assert sorted(got[0]) == sorted(METRICS)
    assert got[0]["unique_ratio"] == 0.75


def test_a_narrow_recorder_gets_what_it_takes(genetic):
    got = []

    def recorder(batch_size, process_count, candidate_count, improvement_round_count,
                 terminal_reason, failure_count, elapsed_simulation_seconds, *, unique_ratio):
        got.append(unique_ratio)

    recorded(genetic, recorder)
    assert got == [0.75]

    def too_narrow(terminal_reason):
        pass

    with pytest.raises(TypeError, match="unexpected keyword argument"):
        recorded(genetic, too_narrow)


def test_a_recorder_that_cannot_be_looked_into_gets_every_entry(genetic):
    class Recorder:
        __signature__ = "unknown"

        def __call__(self, **entries):
            self.entries = entries

    recorder = Recorder()
    recorded(genetic, recorder)
    assert list(recorder.entries) == METRICS


def test_without_a_recorder_nothing_is_told(genetic):
    config = types.SimpleNamespace()
    for context in (None, types.SimpleNamespace(record_search_run_metrics=5)):
        assert genetic._record_search_run_metrics(context, config, **FIGURES) is None


def test_which_keywords_a_callable_takes(genetic):
    accepts = genetic._callable_accepts_keyword
    assert accepts(lambda seed: 0, "seed") is True
    assert accepts(lambda *, seed: 0, "seed") is True
    assert accepts(lambda **rest: 0, "seed") is True
    assert accepts(lambda seed, /: 0, "seed") is False
    assert accepts(lambda *seed: 0, "seed") is False
    assert accepts(lambda other: 0, "seed") is False
    assert accepts(int, "seed") is True
    assert accepts(5, "seed") is True


def test_the_contexts_worker_settings(genetic):
    def context(**attributes):
        return types.SimpleNamespace(**attributes)

    jobs = genetic._parallel_evaluation_requested_jobs
    assert [jobs(context(_n_jobs=value)) for value in (0, -3, "x", None, 2.9, "4", 10**30)] == [
        1, 1, 1, 1, 2, 4, 10**30
    ]
    assert jobs(context()) == 1

    limit = genetic._context_worker_memory_limit_bytes
    for value in (0, -1, "x", None, 0.5):
        assert limit(context(_worker_memory_limit_bytes=value)) == 1 << 30
    assert limit(context()) == 1 << 30
    assert limit(context(_worker_memory_limit_bytes="2048")) == 2048

    optional = genetic._context_optional_int
    assert optional(context(a=None), "a", default=5) is None
    assert optional(context(), "a", default="5") == 5
    assert optional(context(), "a") is None
    assert optional(context(a="x"), "a", 5) is None
    assert optional(context(a=2.9), "a") == 2


def test_the_prefetch_chunk(genetic):
    def chunk(batch_size, jobs):
        return genetic._parent_prefetch_chunk_size(types.SimpleNamespace(_n_jobs=jobs), batch_size)

    assert [chunk(3, 8), chunk(1, 8), chunk(9, 8), chunk(9, 1), chunk(0, 3)] == [2, 1, 2, 1, 1]


def test_the_resolution_is_the_hosts_own_object(genetic):
    context = types.SimpleNamespace(_n_jobs=3)
    resolution = genetic._parallel_evaluation_worker_resolution(context, 5)
    assert (resolution.requested, resolution.candidate_count, resolution.resolved) == (3, 5, 2)
    logged = genetic._process_evaluation.logged_reductions
    logged.clear()
    assert genetic._log_parallel_evaluation_worker_resolution(context, resolution) is None
    assert logged[0][1] is resolution and logged[0][3] is context
    assert genetic._parallel_evaluation_workers(context, 5) == 2
