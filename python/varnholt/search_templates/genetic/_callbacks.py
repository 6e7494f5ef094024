"""What the host is handed to call: functions that hold what they need as closures do.

They call the functions of this package by their names in the package, so that one put in the place
of another counts.
"""

import varnholt.search_templates.genetic as _genetic
from varnholt.search_templates.genetic import _host, _native


def simulation(ctx, found_pnl_paths, attempt_ledger):
    """Return what the pool runs in a child; it reads the ledger's queues when it is called."""

    def _simulate(candidate):
        return _genetic._process_simulate_candidate(
            ctx,
            candidate,
            found_pnl_paths,
            attempt_ledger._backtest_boundary_queue,
            attempt_ledger._backtest_acknowledgement_queues,
        )

    return _simulate


def completed_result_callback(ctx, attempt_ledger, stream_submissions, streamed):
    """Return what the pool calls with a result; streamed[0] has the results of the current pass."""

    def _record_completed_process_result(process_result):
        return _native.record_completed_process_result(
            _host, ctx, attempt_ledger, stream_submissions, streamed, process_result
        )

    return _record_completed_process_result


def attempt_marker(
    boundary_queue, acknowledgement_queues, candidate, process_attempt, evaluation_state
):
    """Return what stands for the engine's marker of attempts in a child."""

    def _write_evaluation_attempt_marker(*args, **kwargs):
        return _genetic._signal_child_backtest_boundary(
            boundary_queue,
            acknowledgement_queues,
            candidate.candidate_index,
            process_attempt,
            evaluation_state,
            *args,
            **kwargs,
        )

    return _write_evaluation_attempt_marker


def sync_snapshot(sync_mgr, found_pnl_paths):
    """Return what stands for the context's sync manager in a child."""
    return _genetic._ChildSyncSnapshot(sync_mgr, found_pnl_paths)


def recorder(ctx):
    """Return what stands for the context's recorder in a child."""

    def _safe_record(
        graph,
        passed_thresholds,
        rejection_reason=None,
        stats=None,
        per_column_stats=None,
        expression_elapsed_seconds=None,
        tracking_metric_kwargs=None,
        **kwargs,
    ):
        return _genetic._child_safe_record(
            ctx,
            graph,
            passed_thresholds,
            rejection_reason=rejection_reason,
            stats=stats,
            per_column_stats=per_column_stats,
            expression_elapsed_seconds=expression_elapsed_seconds,
            tracking_metric_kwargs=tracking_metric_kwargs,
            **kwargs,
        )

    return _safe_record


def forbidden(operation_name):
    """Return what stands for an operation that a child must not call."""
    return _genetic._forbid_child_parent_operation(operation_name)
