"""Attempts and their ledger once more, in plain Python, to compare the module with.

Each function says what it has to do in the shortest way that Python has for it, without a glance at
speed. The host's modules are bound by `bind` and looked up at each call, as the module does.
"""

from collections.abc import Mapping

_engine = None
_process_evaluation = None
_record_candidate_result_in_parent = None


def bind(module):
    """Use the host that the module uses."""
    globals().update(
        _engine=module._engine,
        _process_evaluation=module._process_evaluation,
        _record_candidate_result_in_parent=module._record_candidate_result_in_parent,
    )


# Attempts.

# By what holds first: (blocker type, disposition, category, source).
CANCELLED = ("process_search_cancelled", "cancelled", "operator", "client_lifecycle")
STARTED = (
    "process_backtest_execution_failed", "backtest_failed", "execution", "process_evaluation",
)
DISPATCHED = (
    "process_worker_failed_backtest_state_unknown", "resource_blocked", "resource",
    "process_evaluation",
)
UNDISPATCHED = ("process_dispatch_failed", "resource_blocked", "resource", "process_evaluation")


def classify(dispatched, backtest_started, cancelled):
    if cancelled:
        return CANCELLED
    if backtest_started:
        return STARTED
    return DISPATCHED if dispatched else UNDISPATCHED


def verdict(dispatched):
    return "blocked" if dispatched else "skipped"


def text_or_none(detail):
    return None if detail is None else str(detail)


def build_attempt_column_inventory(expected_columns, per_column_stats):
    from varnholt.simulation.attempt_accounting import build_column_inventory

    return build_column_inventory(expected_columns, per_column_stats)


def attempt_json_ready(value):
    from varnholt.simulation.attempt_accounting import json_ready

    return json_ready(value)


def not_evaluated_verdict():
    from varnholt.simulation.evaluation_verdicts import not_evaluated_verdict

    return not_evaluated_verdict()


def create_process_attempt(ctx, candidate_index, graph):
    return ctx._tracker.create_simulation_attempt(
        product_run_id=ctx._product_run_id,
        source_path="search_signal",
        graph=graph,
        algorithm="genetic",
        rotation_identifier=f"candidate-{int(candidate_index)}",
        era_number=ctx._era_number,
        market_id=ctx._market_id,
        data_shape=_engine._attempt_declared_data_shape(ctx._attempt_expected_columns),
        expected_columns=ctx._attempt_expected_columns,
        eval_type="signal",
    )


def process_attempt_blocker(reason, detail, dispatched, backtest_started, cancelled=False):
    blocker = {
        "type": classify(dispatched, backtest_started, cancelled)[0], "reason": str(reason),
    }
    if detail is not None:
        blocker["detail"] = str(detail)
    return blocker


def process_attempt_evidence(ctx, reason, detail, dispatched, backtest_started, cancelled):
    _, disposition, category, source = classify(dispatched, backtest_started, cancelled)
    return {
        "backtest_started": bool(backtest_started),
        "backtest_completed": False,
        "generated_stats": None,
        "candidate_stats": None,
        "stats_construction_blocker": process_attempt_blocker(
            reason, detail, dispatched, backtest_started, cancelled
        ),
        "per_column_inventory": build_attempt_column_inventory(ctx._attempt_expected_columns, {}),
        "terminal_disposition_override": disposition,
        "threshold_verdict_override": verdict(dispatched),
        "failure_category_override": category,
        "classification_source_override": source,
    }


def finalize_process_failure_attempt(
    ctx, attempt_id, reason, detail=None, *, dispatched, backtest_started, cancelled=False
):
    _, disposition, category, source = classify(dispatched, backtest_started, cancelled)
    gate_verdict = verdict(dispatched)
    not_evaluated = not_evaluated_verdict()
    ctx._tracker.finalize_simulation_attempt(
        attempt_id,
        terminal_disposition=disposition,
        backtest_completed=False,
        generated_stats=None,
        candidate_stats=None,
        stats_construction_blocker=process_attempt_blocker(
            reason, detail, dispatched, backtest_started, cancelled
        ),
        expected_columns=ctx._attempt_expected_columns,
        per_column_inventory=build_attempt_column_inventory(ctx._attempt_expected_columns, {}),
        threshold_gate={
            "verdict": gate_verdict,
            "reason": str(reason),
            "detail": text_or_none(detail),
            "threshold_set": attempt_json_ready(ctx._thresholds),
            "stats_verdict": dict(not_evaluated),
            "correlation_verdict": dict(not_evaluated),
            "mi_verdict": dict(not_evaluated),
        },
        failure_category=category,
        failure_reason="search_stopped" if cancelled else str(reason),
        failure_detail=text_or_none(detail),
        classification_source=source,
    )


# The ledger.


def write_parent_process_evaluation_attempt_marker(ctx, event):
    if not isinstance(event, Mapping) or event.get("event") != "started":
        return None
    graph = getattr(event.get("candidate"), "graph", None)
    if graph is None:
        return None
    tracker = getattr(ctx, "_tracker", None)
    named_universe = getattr(ctx, "_named_universe", None)
    metaparameters = getattr(ctx, "_metaparams_for_db", getattr(ctx, "_metaparameters", {}))
    return _engine._write_evaluation_attempt_marker(
        tracker, graph, named_universe, metaparameters, "evaluate_expression"
    )


def record_process_candidate_result_in_parent(
    ctx, attempt_ledger, candidate_index, candidate_result
):
    if not _record_candidate_result_in_parent(ctx, candidate_result):
        attempt_ledger.acknowledge_parent_persistence_failure(candidate_index)
        raise RuntimeError(
            "genetic candidate parent evaluation persistence failed: "
            f"candidate_index={int(candidate_index)}"
        )
    attempt_ledger.mark_parent_finalized(candidate_index)


class PlainLedger:
    def __init__(self, ctx, indexed_batch):
        self._ctx = ctx
        self._graphs = {int(index): graph for index, graph in indexed_batch}
        self._states = {}
        self._current_attempt = {}
        self._backtest_boundary_queue = None
        self._backtest_acknowledgement_queues = None

    def prepare_for_processes(self):
        if self._backtest_boundary_queue is not None:
            return
        process_context = _process_evaluation._fork_context()
        self._backtest_boundary_queue = process_context.SimpleQueue()
        self._backtest_acknowledgement_queues = {
            index: process_context.SimpleQueue() for index in self._graphs
        }

    @staticmethod
    def _new_state():
        return {
            "attempt_id": None,
            "dispatched": False,
            "worker_started": False,
            "backtest_started": False,
            "finalized": False,
            "failure_reason": None,
            "failure_detail": None,
            "marker_attempt_id": None,
        }

    def _state_for_event(self, event):
        key = (int(event["candidate_index"]), int(event["attempt"]))
        return key, self._states[key]

    def _start_backtest_attempt(self, candidate_index, attempt_number):
        state = self._states[(int(candidate_index), int(attempt_number))]
        if state["backtest_started"]:
            return state["attempt_id"]
        if state["finalized"]:
            raise RuntimeError("finalized process state crossed the backtest boundary")
        attempt_id = create_process_attempt(
            self._ctx, candidate_index, self._graphs[int(candidate_index)]
        )
        state["attempt_id"] = attempt_id
        self._ctx._tracker.mark_simulation_attempt_dispatched(attempt_id)
        self._ctx._tracker.mark_simulation_attempt_backtest_started(attempt_id)
        state["backtest_started"] = True
        return attempt_id

    def _drain_backtest_boundaries(self):
        if self._backtest_boundary_queue is None:
            return
        reader = getattr(self._backtest_boundary_queue, "_reader", None)
        if reader is None:
            return
        while reader.poll():
            candidate_index, attempt_number = self._backtest_boundary_queue.get()
            acknowledgement_queue = self._backtest_acknowledgement_queues[int(candidate_index)]
            try:
                attempt_id = self._start_backtest_attempt(candidate_index, attempt_number)
            except Exception as error:
                acknowledgement_queue.put(
                    (
                        candidate_index, attempt_number, False,
                        f"{type(error).__name__}: {error}", None,
                    )
                )
                raise
            acknowledgement_queue.put((candidate_index, attempt_number, True, None, attempt_id))

    def poll_backtest_boundaries(self):
        self._drain_backtest_boundaries()

    def _finalize_state(self, state, reason, detail=None):
        if state["finalized"]:
            self._clear_marker(state)
            return
        if state["attempt_id"] is not None:
            finalize_process_failure_attempt(
                self._ctx,
                state["attempt_id"],
                reason,
                detail,
                dispatched=state["dispatched"],
                backtest_started=state["backtest_started"],
                cancelled=self._ctx._submission_cancelled(),
            )
        state["finalized"] = True
        self._clear_marker(state)

    def _clear_marker(self, state):
        marker_attempt_id = state.get("marker_attempt_id")
        if marker_attempt_id is not None:
            _engine._clear_evaluation_attempt_marker(self._ctx._tracker, marker_attempt_id)
            state["marker_attempt_id"] = None

    def pre_dispatch(self, event):
        self._drain_backtest_boundaries()
        candidate_index = int(event["candidate_index"])
        attempt_number = int(event["attempt"])
        if attempt_number > 0:
            previous = self._states[(candidate_index, attempt_number - 1)]
            self._finalize_state(
                previous,
                previous["failure_reason"] or "process_attempt_retried",
                previous["failure_detail"],
            )
        key = (candidate_index, attempt_number)
        state = self._states.get(key)
        if state is None:
            state = self._new_state()
            self._states[key] = state
        if state["dispatched"]:
            raise RuntimeError("process attempt was dispatched more than once")
        event["candidate"].metadata["process_attempt"] = attempt_number
        state["dispatched"] = True
        self._current_attempt[candidate_index] = attempt_number

    def lifecycle(self, event):
        self._drain_backtest_boundaries()
        event_name = event.get("event")
        if event_name == "ok":
            return
        if event_name not in ("started", "error"):
            raise RuntimeError(f"unknown process attempt lifecycle event: {event_name!r}")
        _key, state = self._state_for_event(event)
        if event_name == "started":
            state["worker_started"] = True
            return
        failure_reason = event.get("failure_reason", "process_child_exception")
        if failure_reason not in (
            "process_child_exception", _process_evaluation.TERMINAL_WORKER_TIMEOUT,
        ):
            raise RuntimeError(
                f"unknown process attempt lifecycle failure reason: {failure_reason!r}"
            )
        existing_reason = state["failure_reason"]
        if existing_reason is None:
            state["failure_reason"] = failure_reason
            state["failure_detail"] = event.get("error")
        elif existing_reason != failure_reason:
            raise RuntimeError(
                "process attempt received conflicting lifecycle failure reasons: "
                f"{existing_reason!r} then {failure_reason!r}"
            )
        if event.get("retrying", False):
            self._finalize_state(state, state["failure_reason"], state["failure_detail"])

    def progress(self, event):
        self._drain_backtest_boundaries()
        event_name = event.get("event")
        if event_name not in ("started", "error", "ok"):
            return
        _key, state = self._state_for_event(event)
        if event_name == "started":
            marker_attempt_id = write_parent_process_evaluation_attempt_marker(self._ctx, event)
            if marker_attempt_id is not None:
                state["marker_attempt_id"] = marker_attempt_id
        else:
            self._clear_marker(state)

    def apply_child_evidence(self, candidate_index, evidence):
        self._drain_backtest_boundaries()
        if not isinstance(evidence, Mapping):
            raise RuntimeError("process result is missing attempt evidence")
        backtest_started = bool(evidence.get("backtest_started", False))
        backtest_completed = bool(evidence.get("backtest_completed", False))
        if backtest_completed and not backtest_started:
            raise RuntimeError("completed child backtest is missing backtest-start evidence")
        key = (int(candidate_index), self._current_attempt[int(candidate_index)])
        state = self._states[key]
        if backtest_started:
            self._start_backtest_attempt(candidate_index, key[1])
        elif state["backtest_started"]:
            raise RuntimeError(
                "child result lost backtest-start evidence after crossing the boundary"
            )

    def _current_state(self, candidate_index):
        attempt_number = self._current_attempt.get(int(candidate_index))
        if attempt_number is None:
            return None
        return self._states[(int(candidate_index), attempt_number)]

    def source_attempt_id(self, candidate_index):
        self._drain_backtest_boundaries()
        state = self._current_state(candidate_index)
        return None if state is None else state["attempt_id"]

    def failure_evidence(self, candidate_index, reason, detail=None):
        self._drain_backtest_boundaries()
        state = self._current_state(candidate_index)
        if state is None:
            state = self._new_state()
        return process_attempt_evidence(
            self._ctx, reason, detail, state["dispatched"], state["backtest_started"],
            self._ctx._submission_cancelled(),
        )

    def mark_parent_finalized(self, candidate_index):
        state = self._current_state(candidate_index)
        if state is not None:
            state["finalized"] = True
            self._clear_marker(state)

    def acknowledge_parent_persistence_failure(self, candidate_index):
        self.mark_parent_finalized(candidate_index)

    def finalize_all_open(self, reason, detail=None):
        self._drain_backtest_boundaries()
        for state in self._states.values():
            self._finalize_state(state, reason, detail)
