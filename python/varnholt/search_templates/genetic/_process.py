"""Candidates in processes of their own: the child's guards, and batches through the pool."""

from varnholt.search_templates.genetic import _host, _native


class _ChildSyncSnapshot:
    """What a child sees in the place of the context's sync manager."""

    def __init__(self, sync_mgr, found_pnl_paths):
        self._sync_mgr = sync_mgr
        self._found_pnl_paths = _native.found_paths(found_pnl_paths)

    def request_for_sync(self):
        """Return the paths that the parent was given before the fork."""
        return self._found_pnl_paths

    def get_manifest(self):
        """Return the manifest of the parent's manager, or None when it has none."""
        return _native.manifest_of(self._sync_mgr)


def _prefetch_found_pnl_files(ctx):
    """Return the found PnL files as a tuple; an empty one when they cannot be asked for."""
    return _native.prefetch_found_pnl_files(_host, ctx)


def _forbid_child_parent_operation(operation_name):
    """Return a callable that takes any arguments and fails: only the parent may call it."""

    def forbidden(*args, **kwargs):
        return _native.fail_child_parent_operation(operation_name)

    return forbidden


def _replace_child_parent_operation(ctx, operation_name, replacement):
    """Put a guard onto the object; return (name, had instance value, original), or None."""
    return _native.replace_child_parent_operation(ctx, operation_name, replacement)


def _restore_child_parent_operation(ctx, state):
    """Take the guard off again."""
    return _native.restore_child_parent_operation(ctx, state)


def _signal_child_backtest_boundary(
    boundary_queue,
    acknowledgement_queues,
    candidate_index,
    process_attempt,
    evaluation_state,
    *args,
    **kwargs,
):
    """Tell the parent that the backtest begins, and wait for the identity of its attempt."""
    return _native.signal_child_backtest_boundary(
        boundary_queue,
        acknowledgement_queues,
        candidate_index,
        process_attempt,
        evaluation_state,
        args,
        kwargs,
    )


def _child_safe_record(
    ctx,
    graph,
    passed_thresholds,
    rejection_reason=None,
    stats=None,
    per_column_stats=None,
    expression_elapsed_seconds=None,
    tracking_metric_kwargs=None,
    **_kwargs,
):
    """Keep the record of an evaluation in the child's memory."""
    return _native.child_safe_record(
        ctx,
        graph,
        passed_thresholds,
        rejection_reason,
        stats,
        per_column_stats,
        expression_elapsed_seconds,
        tracking_metric_kwargs,
    )


def _process_simulate_candidate(
    ctx,
    candidate,
    found_pnl_paths=(),
    backtest_boundary_queue=None,
    backtest_acknowledgement_queues=None,
):
    """Return the record of a work item's evaluation in this child process, under guards."""
    return _native.process_simulate_candidate(
        _host,
        ctx,
        candidate,
        found_pnl_paths,
        backtest_boundary_queue,
        backtest_acknowledgement_queues,
    )


def _candidate_result_from_process_result(process_result):
    """Return the record of a process result: a copy of its payload with the worker's identity."""
    return _native.candidate_result_from_process_result(process_result)


def _evaluate_candidate_batch(ctx, batch, process_timeout_seconds=None):
    """Return the records of a batch of graphs, each evaluated in a child process, in order."""
    return _native.evaluate_candidate_batch(_host, ctx, batch, process_timeout_seconds)
