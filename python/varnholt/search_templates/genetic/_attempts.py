"""Attempts of candidates in processes of their own: their rows, their ends, and the ledger."""

from varnholt.search_templates.genetic import _host, _native


def _create_process_attempt(ctx, candidate_index, graph):
    """Create the tracker's row of a candidate's attempt; return its identity."""
    return _native.create_process_attempt(_host, ctx, candidate_index, graph)


def _finalize_process_failure_attempt(
    ctx, attempt_id, reason, detail=None, *, dispatched, backtest_started, cancelled=False
):
    """End an attempt whose result cannot reach the parent's recorder."""
    return _native.finalize_process_failure_attempt(
        _host, ctx, attempt_id, reason, detail, dispatched, backtest_started, cancelled
    )


def _process_attempt_blocker(reason, detail, dispatched, backtest_started, cancelled=False):
    """Return why such an attempt has no statistics."""
    return _native.process_attempt_blocker(
        reason, detail, dispatched, backtest_started, cancelled
    )


def _process_attempt_evidence(ctx, reason, detail, dispatched, backtest_started, cancelled):
    """Return the evidence of such an attempt."""
    return _native.process_attempt_evidence(
        _host, ctx, reason, detail, dispatched, backtest_started, cancelled
    )


def _build_attempt_column_inventory(expected_columns, per_column_stats):
    """Return the host's inventory of an attempt's columns."""
    return _native.build_attempt_column_inventory(_host, expected_columns, per_column_stats)


def _attempt_json_ready(value):
    """Return the host's form of the value that JSON text can be made of."""
    return _native.attempt_json_ready(_host, value)


def _write_parent_process_evaluation_attempt_marker(ctx, event):
    """Open the host's marker for a candidate that was started; return its identity or None."""
    return _native.write_parent_process_evaluation_attempt_marker(_host, ctx, event)


def _record_process_candidate_result_in_parent(
    ctx, attempt_ledger, candidate_index, candidate_result
):
    """Record a process's result and tell the ledger; RuntimeError when it is not recorded."""
    return _native.record_process_candidate_result_in_parent(
        _host, ctx, attempt_ledger, candidate_index, candidate_result
    )


class _ProcessAttemptLedger:
    """The parent's record of the process attempts of one batch, which ends each of them once.

    Whatever it keeps are plain attributes. `_states` maps (candidate index, attempt number) to the
    state of that attempt, a dict with the keys of `_new_state()`.
    """

    def __init__(self, ctx, indexed_batch):
        self._ctx = ctx
        self._graphs = _native.ledger_graphs(indexed_batch)
        self._states = {}
        self._current_attempt = {}
        self._backtest_boundary_queue = None
        self._backtest_acknowledgement_queues = None

    def prepare_for_processes(self):
        """Make the queues between parent and children, once."""
        return _native.ledger_prepare_for_processes(_host, self)

    def pre_dispatch(self, event):
        """Take down that an attempt goes to a worker; end the attempt before it."""
        return _native.ledger_pre_dispatch(_host, self, event)

    def lifecycle(self, event):
        """Take down that a worker started or failed; end an attempt that is retried."""
        return _native.ledger_lifecycle(_host, self, event)

    def progress(self, event):
        """Open the host's marker for an evaluation that began; close it when that ended."""
        return _native.ledger_progress(_host, self, event)

    def poll_backtest_boundaries(self):
        """Answer the children that wait at their backtest."""
        return _native.ledger_poll_backtest_boundaries(_host, self)

    def apply_child_evidence(self, candidate_index, evidence):
        """Take down what the evidence of a result tells about its backtest."""
        return _native.ledger_apply_child_evidence(_host, self, candidate_index, evidence)

    def source_attempt_id(self, candidate_index):
        """Return the identity of the candidate's current attempt, or None."""
        return _native.ledger_source_attempt_id(_host, self, candidate_index)

    def failure_evidence(self, candidate_index, reason, detail=None):
        """Return the evidence of the candidate's current attempt, which failed."""
        return _native.ledger_failure_evidence(_host, self, candidate_index, reason, detail)

    def mark_parent_finalized(self, candidate_index):
        """Take down that the parent's recorder has ended the candidate's current attempt."""
        return _native.ledger_mark_parent_finalized(_host, self, candidate_index)

    def acknowledge_parent_persistence_failure(self, candidate_index):
        """Do the same when the recorder failed: it has settled the attempt."""
        return _native.ledger_acknowledge_parent_persistence_failure(_host, self, candidate_index)

    def finalize_all_open(self, reason, detail=None):
        """End every attempt that is still open."""
        return _native.ledger_finalize_all_open(_host, self, reason, detail)

    @staticmethod
    def _new_state():
        """Return the state of an attempt of which nothing is known yet."""
        return _native.new_attempt_state()

    def _state_for_event(self, event):
        """Return the key of the event's attempt and its state; KeyError for an unknown one."""
        return _native.ledger_state_for_event(_host, self, event)

    def _start_backtest_attempt(self, candidate_index, attempt_number):
        """Create the attempt's row and mark its backtest as started, once; return its identity."""
        return _native.ledger_start_backtest_attempt(_host, self, candidate_index, attempt_number)

    def _drain_backtest_boundaries(self):
        """Answer every signal that has come, without waiting for one."""
        return _native.ledger_drain_backtest_boundaries(_host, self)

    def _finalize_state(self, state, reason, detail=None):
        """End the attempt in the tracker, unless it has no row or has its end; close its marker."""
        return _native.ledger_finalize_state(_host, self, state, reason, detail)

    def _clear_marker(self, state):
        """Close the attempt's marker, if one is open."""
        return _native.ledger_clear_marker(_host, self, state)
