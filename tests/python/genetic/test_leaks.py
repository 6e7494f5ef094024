"""Nothing is leaked, and the collector sees through what the module holds.

Goal: reference counts come out even on every way through the boundary, failures included. Method:
counts of references and of allocated blocks before and after many calls; the collector; and the
binding library's own report when the interpreter ends.
"""

import ctypes
import gc
import os
import random
import subprocess
import sys
import types
import weakref

import pytest
from attempt_host import Item, World, dispatch, happened

ROUNDS = 150


def calls(genetic, make_context):
    """One call for each kind of way through the boundary."""
    graph = {"node": "näme", "children": [{"x": 2**70, "y": float("nan"), "z": [1.5, None]}]}
    frozen = genetic._freeze_graph_data(graph)
    error = ValueError("bad")

    def fail(*args, **keywords):
        # A new one each time: raised again, an exception keeps the frames of all its ways.
        raise ValueError("bad")

    def swallow(call):
        def run():
            try:
                call()
            except (Exception, KeyboardInterrupt):
                pass
        return run

    def interrupt(graph):
        raise KeyboardInterrupt

    context = make_context(
        _safe_record=fail, _current_attempt_evidence=lambda: graph, max_depth="7", _n_jobs=3
    )
    config = genetic.with_config(batch_size=2)
    result = {"passes": True}
    rng = random.Random(1)
    prior = [
        {"graph": {"node": name, "children": []}, "quality_score": 1.0, "correlation": 0.5}
        for name in "abcd"
    ]

    def refuse_a(graph):
        if graph["node"] == "a":
            raise ValueError("refused")
        return True

    timing = {"seconds": 1}
    recorder = make_context(
        _safe_record=lambda *args, **keywords: "id", _era_config={"id": 3}, _signal_pool_name="p",
        _backtester=types.SimpleNamespace(run_backtest=fail), thresholds={"turnover": 0.5},
        _enqueue_deferred_submission_payload=lambda payload: None,
        _evaluate_for_template=lambda graph: {"record": {"passed": True}},
    )

    def passing(**others):
        return {"passes": True, "graph": graph, "backtest_timing": timing, "quality_score": 1.0,
                **others}

    def submit(**others):
        candidates = [passing(**others), {"failures": {"a": 1}}]
        genetic._record_candidate_results_in_parent(recorder, candidates)
        genetic._submit_submittable_candidates(recorder, candidates)

    def second_backtest():
        genetic._engine._selected_pool_has_synced_found_signal_ids, kept = (
            lambda *args: True, genetic._engine._selected_pool_has_synced_found_signal_ids
        )
        try:
            genetic._refresh_candidate_submission_pool_metrics(recorder, passing(), {})
        finally:
            genetic._engine._selected_pool_has_synced_found_signal_ids = kept

    failed = {"stats": {"turnover": 0.9}, "failures": {"sharpe_min": {"detail": '{"value": 1}'}}}

    return [
        lambda: genetic._simulate_candidate(recorder, graph),
        submit,
        lambda: submit(submission_payload={"own": 1}, source_attempt_id=1),
        swallow(lambda: submit(backtest_timing={"seconds": 0})),
        swallow(lambda: submit(backtest_timing=None)),
        swallow(second_backtest),
        lambda: genetic._refresh_candidate_submission_pool_metrics(recorder, passing(), {}),
        lambda: genetic._refresh_candidate_submission_pool_metrics(context, passing(), {}),
        lambda: genetic._block_candidate_submission(passing(), "r", {"value": graph}),
        swallow(lambda: genetic._block_candidate_submission(passing(failures=None), "r")),
        lambda: genetic._candidate_eval_id({"graph": graph}),
        lambda: genetic._ensure_payload_market_era({"market_id": "7"}, recorder),
        lambda: genetic._field_value(context, "absent", graph),
        lambda: genetic._with_expanded_reaction_failures(recorder, failed),
        lambda: genetic._sharpe_reaction_metric_pair(failed),
        lambda: genetic._failure_metric_pair({"detail": "{"}),
        lambda: genetic._has_failure_reason(failed, ("a", "sharpe_min")),
        lambda: genetic._plain_graph_data(graph),
        lambda: genetic._structural_key(graph),
        lambda: genetic._thaw_graph_data(frozen),
        lambda: genetic._canonical_graph_string(graph),
        lambda: genetic._graph_passes_validator(graph, lambda copy: copy),
        lambda: genetic._graph_passes_validator(graph, fail),
        swallow(lambda: genetic._graph_passes_validator(graph, interrupt)),
        swallow(lambda: genetic._freeze_graph_data({1: 2})),
        swallow(lambda: genetic._freeze_graph_data([graph, ()])),
        lambda: genetic._lineage_candidate_item(lambda: {"graph": graph}, "x", 9, bool),
        lambda: genetic._candidate_exception_result(context, graph, error),
        lambda: genetic._process_evaluation_error_results([graph, graph], error),
        lambda: genetic._annotate_candidate_results([result], start_index=0, improvement_depth=0),
        lambda: genetic._operator_rates({"crossover": 1}),
        swallow(lambda: genetic._operator_rates({"crossover": object()})),
        lambda: genetic._run_deduplicated_batch(context, config, [graph, graph], set()),
        lambda: genetic._fresh_random_candidates_for_rng(context, 2, config.rng),
        lambda: genetic._candidate_batch(context, config, 0, []),
        lambda: genetic._candidate_batch(context, config, 1, prior),
        lambda: genetic.compose_next_batch(
            prior, 4, rng, lambda: {"graph": graph}, lambda parents, rng: parents[0],
            validator=lambda graph: True,
        ),
        lambda: genetic.compose_next_batch(prior, 4, rng, fail, fail),
        swallow(lambda: genetic.compose_next_batch([5])),
        lambda: genetic._diverse_parent_pool(prior, rng),
        lambda: genetic._weighted_parent_index(tuple(prior), rng, 0.5, 0.5),
        lambda: genetic._elite_derived_graph(context, prior, rng),
        swallow(lambda: genetic._elite_derived_graph(context, [], rng)),
        lambda: genetic._choose_operator({"crossover": 1}, rng),
        lambda: genetic._restore_elite_root_node({"node": "b"}, "a", 0, refuse_a),
        lambda: genetic._graph_node_names(graph),
        lambda: genetic._safe_reaction_rotation_names(make_context(
            vocabulary={"functions": [{"name": "rank", "kind": "rotation"}]}
        )),
        lambda: genetic._callable_accepts_keyword(fail, "keywords"),
        lambda: genetic._parallel_evaluation_workers(context, 3),
        lambda: ledger_of_one(genetic, graph),
        swallow(lambda: ledger_of_one(genetic, graph, failure=fail)),
        swallow(lambda: ledger_of_one(genetic, graph, failure=interrupt)),
        lambda: genetic.with_config(initial_candidates=[graph]),
        swallow(lambda: genetic.with_config(batch_size=0)),
        lambda: genetic._number("x", graph),
    ]


def ledger_of_one(genetic, graph, failure=None):
    """An attempt that is dispatched, answered at its backtest, described and ended."""
    world = World()
    if failure is not None:
        world.tracker._held["mark_simulation_attempt_dispatched"] = failure
    engine, pool = genetic._engine, genetic._process_evaluation
    genetic._engine, genetic._process_evaluation = world.engine, world.process_evaluation
    try:
        ledger = genetic._ProcessAttemptLedger(world.context, [(0, graph)])
        ledger.prepare_for_processes()
        ledger.pre_dispatch(dispatch(0, 0, Item(graph)))
        ledger.lifecycle(happened("error", error=ValueError("why")))
        ledger._backtest_boundary_queue.messages.append((0, 0))
        ledger.poll_backtest_boundaries()
        ledger.failure_evidence(0, "reason", ("detail",))
        ledger.finalize_all_open("reason", OSError("detail"))
    finally:
        genetic._engine, genetic._process_evaluation = engine, pool


class HeapState(ctypes.Structure):
    """What glibc's mallinfo2 tells."""

    _fields_ = [
        (name, ctypes.c_size_t)
        for name in ("arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks",
                     "uordblks", "fordblks", "keepcost")
    ]


def native_bytes():
    """Bytes in use on the C heap: the library's own memory, and Python's larger objects."""
    try:
        ask = ctypes.CDLL(None).mallinfo2
    except AttributeError:
        pytest.skip("this C library does not tell how much memory is in use")
    ask.restype = HeapState
    return ask().uordblks


# A leaked value of the library's own takes at least this much.
SMALLEST_VALUE = 32


@pytest.mark.parametrize("count, least", [(sys.getallocatedblocks, 1),
                                          (native_bytes, SMALLEST_VALUE)])
def test_many_calls_leave_nothing_behind(genetic, make_context, monkeypatch, count, least):
    # A log that keeps nothing: pytest's own keeps every entry.
    quiet = types.SimpleNamespace(warning=lambda *args, **keywords: None)
    monkeypatch.setattr(genetic._engine, "logger", quiet)
    reductions = genetic._process_evaluation.logged_reductions
    everything = calls(genetic, make_context)

    def run(rounds):
        for _ in range(rounds):
            for call in everything:
                call()
            reductions.clear()
        gc.collect()
        return count()

    counts = [run(ROUNDS) for _ in range(4)]
    growth = [after - before for before, after in zip(counts, counts[1:])]
    # Caches of the interpreter grow now and then; a leak grows each time, with every round.
    assert min(growth) < ROUNDS * least, growth


def test_the_counts_of_shared_objects_come_out_even(genetic, make_context):
    graph = {"children": [{}], "text": "unshared text", "number": 12345.678}
    context = make_context(_current_attempt_evidence=lambda: None, _last_evaluation_record={})
    objects = [graph, graph["children"], graph["children"][0], graph["text"], graph["number"],
               context, genetic._engine]
    before = [sys.getrefcount(one) for one in objects]
    for _ in range(50):
        genetic._plain_graph_data(graph)
        genetic._structural_key(graph)
        genetic._deduplicate_graphs([graph, graph])
        genetic._candidate_exception_result(context, graph, ValueError("x"))
        genetic._graph_within_max_depth(graph, 3)
        genetic._number("x", graph)
    assert [sys.getrefcount(one) for one in objects] == before


def test_an_error_and_its_frames_die_with_it(genetic):
    class Held:
        pass

    held = weakref.WeakSet()

    def validator(graph):
        local = Held()
        held.add(local)
        raise ValueError("refused")

    genetic._graph_passes_validator({}, validator)
    gc.collect()
    assert not held


def test_a_circle_through_a_run_is_collected(genetic, make_context, make_event):
    context = make_context(_stop_event=make_event())
    context.circle = lambda: context
    reference = weakref.ref(context)
    genetic.genetic(context)
    context.metrics[0]["context"] = context
    genetic._process_evaluation.logged_reductions.clear()
    del context
    gc.collect()
    assert reference() is None


def test_what_the_pool_is_given_is_collected_with_the_context_that_keeps_it(
    genetic, make_context, make_event, monkeypatch
):
    def evaluate(candidates, simulate, *, config):
        context.kept = (simulate, config)
        return []

    monkeypatch.setattr(genetic._process_evaluation, "evaluate_candidate_batch", evaluate)
    context = make_context(_stop_event=make_event(set_after=1))
    reference = weakref.ref(context)
    genetic.genetic(context)
    genetic._process_evaluation.logged_reductions.clear()
    assert context.kept
    del context, evaluate
    monkeypatch.undo()
    gc.collect()
    assert reference() is None


def test_the_collector_sees_the_modules_names(genetic):
    assert any(one is vars(genetic) for one in gc.get_referents(genetic._host))


def test_a_host_over_other_names_is_collected_with_them(genetic):
    class Names(types.ModuleType):
        pass

    module = Names("other")
    module._host = genetic._native.Host(vars(module))
    reference = weakref.ref(module)
    del module
    gc.collect()
    assert reference() is None


@pytest.mark.parametrize(
    "ending", ["", "import os; os.kill(os.getpid(), 2)", "raise SystemExit(3)"]
)
def test_the_binding_library_reports_no_leak_when_the_interpreter_ends(ending):
    program = f"""
from varnholt.search_templates import genetic
import types

class Stopped:
    def is_set(self): return True

genetic(types.SimpleNamespace(_stop_event=Stopped()))
try:
    genetic._freeze_graph_data(())
except TypeError:
    pass
{ending}
"""
    answer = subprocess.run(
        [sys.executable, "-c", program],
        env={**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)},
        capture_output=True,
        text=True,
        timeout=60,
        check=False,
    )
    assert "leak" not in answer.stderr and "nanobind" not in answer.stderr
    assert answer.stderr == "" or "KeyboardInterrupt" in answer.stderr
