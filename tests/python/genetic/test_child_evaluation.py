"""A whole evaluation in a child, on Python objects.

Goal: the guards stand on the host's own objects while its evaluator works, and are gone after it.
Method: an evaluator that looks wherever it can, on contexts of every shape.
"""

import gc
import inspect
import multiprocessing
import threading
import types
import weakref

import plain_batch
import pytest


from test_child_guards import Queue, signal, state  # noqa: F401


class Engine:
    """A host's engine, whose marker belongs to the class."""

    def _write_evaluation_attempt_marker(self, *args, **kwargs):
        return "the parent's"


class Context:
    """A context with some operations of its class and some of its own."""

    def __init__(self, evaluate):
        self._template_evaluation_state = types.SimpleNamespace(
            attempt_id="earlier", parent_owned_attempt="before"
        )
        self._sync_mgr = types.SimpleNamespace(get_manifest=lambda: "manifest")
        self.record_search_run_metrics = own_metrics
        self._evaluate = evaluate

    def _safe_record(self, *args, **kwargs):
        raise AssertionError("a child records nothing")

    def _enqueue_deferred_submission_payload(self, payload):
        raise AssertionError("a child submits nothing")

    def _current_attempt_evidence(self):
        return {"attempt_id": self._template_evaluation_state.attempt_id}

    def _evaluate_for_template(self, graph):
        return self._evaluate(self, graph)


def own_metrics(**metrics):
    raise AssertionError("a child reports nothing")


@pytest.fixture
def engine(genetic, monkeypatch):
    made = Engine()
    monkeypatch.setattr(genetic, "_engine", made)
    made.logger = types.SimpleNamespace(warning=lambda *args, **kwargs: None)
    made.SdkRuntimeNotReadyError = RecursionError
    return made


def simulate(genetic, context, *args, metadata=None, index=0):
    candidate = types.SimpleNamespace(
        candidate_index=index, graph={"node": "g"},
        metadata={"process_attempt": 0} if metadata is None else metadata,
    )
    return genetic._process_simulate_candidate(context, candidate, *args)


def untouched(context, engine):
    """Whether everything is as it was before the evaluation."""
    assert set(vars(engine)) == {"logger", "SdkRuntimeNotReadyError"}
    assert engine._write_evaluation_attempt_marker() == "the parent's"
    assert context.record_search_run_metrics is own_metrics
    assert "_safe_record" not in vars(context)
    assert "_enqueue_deferred_submission_payload" not in vars(context)
    assert isinstance(context._sync_mgr, types.SimpleNamespace)
    assert vars(context._template_evaluation_state) == {
        "attempt_id": "earlier", "parent_owned_attempt": "before",
    }
    return True


def test_the_evaluator_meets_the_guards_wherever_it_looks(genetic, engine):
    seen = {}

    def evaluate(context, graph):
        state = context._template_evaluation_state
        seen["state"] = (state.attempt_id, state.parent_owned_attempt)
        seen["sync"] = context._sync_mgr
        for name in ("_enqueue_deferred_submission_payload", "record_search_run_metrics"):
            with pytest.raises(RuntimeError) as caught:
                getattr(context, name)(1, a=2)
            assert str(caught.value) == (
                "child process cannot call parent-only operation " + name
            )
        engine._write_evaluation_attempt_marker(None, graph, None, {}, "build")
        engine._write_evaluation_attempt_marker(None, graph, None, {}, phase="run_backtest")
        seen["attempt"] = state.attempt_id
        context._safe_record(graph, True, stats=None, rejection_reason=None, other=1)
        seen["after"] = state.attempt_id
        seen["recorder"] = inspect.signature(context._safe_record)
        return {"record": context._last_evaluation_record, "attempt_evidence": {}}

    context = Context(evaluate)
    manager = context._sync_mgr
    boundary_queue, answer = Queue(), Queue((0, 4, True, None, "identity"))
    result = simulate(
        genetic, context, ("p",), boundary_queue, {0: answer}, metadata={"process_attempt": 4}
    )
    assert result["passes"] is True and result["graph"] == {"node": "g"}
    assert seen["state"] == (None, True)
    assert type(seen["sync"]) is genetic._ChildSyncSnapshot
    assert seen["sync"].request_for_sync() == ("p",) and seen["sync"]._sync_mgr is manager
    assert boundary_queue.put_items == [(0, 4)]
    assert seen["attempt"] == "identity" and seen["after"] is None
    assert str(seen["recorder"]) == (
        "(graph, passed_thresholds, rejection_reason=None, stats=None, per_column_stats=None, "
        "expression_elapsed_seconds=None, tracking_metric_kwargs=None, **kwargs)"
    )
    assert untouched(context, engine)


@pytest.mark.parametrize("failure", [KeyboardInterrupt(), SystemExit(3), GeneratorExit()], ids=repr)
def test_an_interrupt_takes_the_guards_off_and_goes_on(genetic, engine, failure):
    def evaluate(context, graph):
        raise failure

    context = Context(evaluate)
    with pytest.raises(type(failure)) as caught:
        simulate(genetic, context)
    assert caught.value is failure and untouched(context, engine)


def test_an_error_of_the_evaluator_is_a_record(genetic, engine):
    def evaluate(context, graph):
        raise ValueError("bad")

    context = Context(evaluate)
    result = simulate(genetic, context)
    assert result["passes"] is False and list(result["failures"]) == ["evaluate_exception"]
    # The failure was recorded in the child's memory, which cleared the identity.
    assert result["attempt_evidence"] == {"attempt_id": None}
    assert context._last_evaluation_record["rejection_reason"] == "evaluate_exception"
    assert untouched(context, engine)


def test_a_rejection_of_the_parent_is_the_candidates_failure(genetic, engine):
    def evaluate(context, graph):
        engine._write_evaluation_attempt_marker("run_backtest")
        raise AssertionError("the backtest must not run")

    context = Context(evaluate)
    result = simulate(
        genetic, context, (), Queue(), {0: Queue((0, 0, False, "OSError: disk", None))}
    )
    (failure,) = result["failures"].values()
    assert "genetic parent failed to persist the backtest attempt: OSError: disk" in (
        failure["detail"]
    )
    assert untouched(context, engine)


def test_what_follows_the_evaluator_is_guarded_too(genetic, engine):
    context = Context(lambda context, graph: {"record": {"stats": types.SimpleNamespace(
        correlation="odd")}})
    with pytest.raises(ValueError, match="candidate correlation"):
        simulate(genetic, context)
    assert untouched(context, engine)


def test_a_candidate_without_its_attempt_leaves_the_state_of_the_child(genetic, engine):
    context = Context(lambda context, graph: {})
    with pytest.raises(KeyError) as caught:
        simulate(genetic, context, metadata={})
    assert caught.value.args == ("process_attempt",)
    assert vars(context._template_evaluation_state) == {
        "attempt_id": None, "parent_owned_attempt": True,
    }
    assert vars(engine).keys() == {"logger", "SdkRuntimeNotReadyError"}


def test_a_guard_that_fails_leaves_those_before_it(genetic, engine):
    class Refusing(Context):
        def __setattr__(self, name, value):
            if name == "_safe_record":
                raise AttributeError("frozen")
            super().__setattr__(name, value)

    context = Refusing(lambda context, graph: {})
    with pytest.raises(RuntimeError, match="cannot disable parent-only operation _safe_record"):
        simulate(genetic, context)
    assert "_write_evaluation_attempt_marker" in vars(engine)
    assert type(context._sync_mgr) is genetic._ChildSyncSnapshot
    assert "_enqueue_deferred_submission_payload" not in vars(context)


def test_a_restore_that_fails_leaves_the_later_ones_undone(genetic, engine):
    class Refusing(Context):
        def __delattr__(self, name):
            raise ValueError("no deleting of " + name)

    context = Refusing(lambda context, graph: {})
    with pytest.raises(ValueError, match="no deleting of _enqueue_deferred_submission_payload"):
        simulate(genetic, context)
    # The metrics came back, since they were the instance's own; what follows did not.
    assert context.record_search_run_metrics is own_metrics
    assert type(context._sync_mgr) is genetic._ChildSyncSnapshot
    assert context._template_evaluation_state.parent_owned_attempt is True


def test_a_context_that_lacks_the_operations(genetic, engine):
    seen = []
    context = types.SimpleNamespace(
        _template_evaluation_state=types.SimpleNamespace(),
        _evaluate_for_template=lambda graph: seen.append(sorted(vars(context))) or {},
    )
    assert simulate(genetic, context)["passes"] is False
    assert seen == [["_evaluate_for_template", "_template_evaluation_state"]]
    # What the state lacked it has now, with the values that stand for it.
    assert vars(context._template_evaluation_state) == {
        "attempt_id": None, "parent_owned_attempt": False,
    }
    with pytest.raises(AttributeError, match="_template_evaluation_state"):
        simulate(genetic, types.SimpleNamespace())


def test_the_index_is_read_when_the_backtest_begins(genetic, engine):
    def evaluate(context, graph):
        candidate.candidate_index = 7
        engine._write_evaluation_attempt_marker("run_backtest")
        return {}

    candidate = types.SimpleNamespace(
        candidate_index=0, graph={}, metadata={"process_attempt": 1}
    )
    boundary_queue = Queue()
    genetic._process_simulate_candidate(
        Context(evaluate), candidate, (), boundary_queue,
        {7: Queue((7, 1, True, None, "identity"))},
    )
    assert boundary_queue.put_items == [(7, 1)]


def test_guards_are_collected_with_the_context_that_keeps_them(genetic, engine):
    def evaluate(context, graph):
        context.kept = (context._safe_record, context._sync_mgr)
        return {}

    context = Context(evaluate)
    simulate(genetic, context)
    reference = weakref.ref(context)
    del context
    gc.collect()
    assert reference() is None


def test_the_same_as_plain_python_on_every_shape_of_context(genetic, engine):
    """Compared with the plain version: what the evaluator sees of names, types and values."""
    plain_batch.bind(genetic)

    def look(context, graph):
        return {"record": {"per_column_stats": sorted(
            (name, type(value).__name__) for name, value in vars(context).items()
            if not name.startswith("__")
        )}}

    for shape in (Context, type("Other", (Context,), {"_sync_mgr": None})):
        ours, plain = shape(look), shape(look)
        candidate = types.SimpleNamespace(
            candidate_index=0, graph={"a": 1}, metadata={"process_attempt": 0}
        )
        seen = genetic._process_simulate_candidate(ours, candidate)["per_column_stats"]
        expected = plain_batch.process_simulate_candidate(plain, candidate)["per_column_stats"]
        assert [name for name, _ in seen] == [name for name, _ in expected]
        assert sorted(vars(ours)) == sorted(vars(plain))
