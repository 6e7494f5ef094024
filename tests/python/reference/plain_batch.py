"""Batches and the child's guards once more, in plain Python, to compare the module with.

As short as the language allows, and without a glance at speed. The ledger and the attempts are
those of plain_attempts; what a candidate's record is made of, and how it is recorded and submitted,
is left to the module.
"""

from collections.abc import Mapping

import plain_attempts

_engine = None
_process_evaluation = None
_search_settings = None
_genetic = None

MISSING = object()


def bind(module):
    """Use the host that the module uses."""
    plain_attempts.bind(module)
    globals().update(
        _engine=module._engine,
        _process_evaluation=module._process_evaluation,
        _search_settings=module._search_settings,
        _genetic=module,
    )


# How many workers.


def requested_jobs(ctx):
    try:
        jobs = int(getattr(ctx, "_n_jobs", 1))
    except (TypeError, ValueError, OverflowError):
        return 1
    return 1 if jobs < 1 else jobs


def worker_memory_limit_bytes(ctx):
    value = getattr(ctx, "_worker_memory_limit_bytes", None)
    if value is None:
        return _process_evaluation.DEFAULT_WORKER_MEMORY_LIMIT_BYTES
    try:
        value = int(value)
    except (TypeError, ValueError, OverflowError):
        return _process_evaluation.DEFAULT_WORKER_MEMORY_LIMIT_BYTES
    return _process_evaluation.DEFAULT_WORKER_MEMORY_LIMIT_BYTES if value < 1 else value


def prefetch_chunk_size(ctx, batch_size):
    resolution = _process_evaluation.resolve_process_worker_count_details(
        requested=requested_jobs(ctx), candidate_count=batch_size
    )
    _process_evaluation.log_worker_count_reduction(
        _engine.logger,
        resolution,
        scope="genetic process evaluation",
        cache_owner=ctx,
        detail=(
            "public search n_jobs remains unchanged; this cap applies only to child evaluator "
            "processes spawned for this candidate batch"
        ),
    )
    if batch_size <= requested_jobs(ctx):
        return max(1, min(batch_size, resolution.resolved))
    return max(1, resolution.resolved)


# In the child.


class SyncSnapshot:
    def __init__(self, sync_mgr, found_pnl_paths):
        self._sync_mgr = sync_mgr
        self._found_pnl_paths = tuple(found_pnl_paths) if found_pnl_paths else ()

    def request_for_sync(self):
        return self._found_pnl_paths

    def get_manifest(self):
        get_manifest = getattr(self._sync_mgr, "get_manifest", None)
        return get_manifest() if callable(get_manifest) else None


def forbid(operation_name):
    def fail(*args, **kwargs):
        raise RuntimeError(f"child process cannot call parent-only operation {operation_name}")

    return fail


def replace(target, operation_name, replacement):
    try:
        getattr(target, operation_name)
    except AttributeError:
        return None
    had_instance_value, original = False, MISSING
    try:
        instance_values = vars(target)
    except TypeError:
        instance_values = None
    if isinstance(instance_values, Mapping) and operation_name in instance_values:
        had_instance_value, original = True, instance_values[operation_name]
    else:
        original = getattr(target, operation_name)
    try:
        setattr(target, operation_name, replacement)
    except (AttributeError, TypeError) as error:
        raise RuntimeError(
            f"cannot disable parent-only operation {operation_name} in child process"
        ) from error
    return operation_name, had_instance_value, original


def restore(target, state):
    if state is None:
        return
    operation_name, had_instance_value, original = state
    if had_instance_value:
        setattr(target, operation_name, original)
        return
    try:
        delattr(target, operation_name)
    except AttributeError:
        pass


def signal_boundary(
    boundary_queue, acknowledgement_queues, candidate_index, process_attempt, evaluation_state,
    *args, **kwargs,
):
    phase = kwargs.get("phase")
    if phase is None and args:
        phase = args[-1]
    if phase != "run_backtest":
        return
    candidate_index, process_attempt = int(candidate_index), int(process_attempt)
    if boundary_queue is None or acknowledgement_queues is None:
        raise RuntimeError(
            "genetic child backtest boundary requires a parent acknowledgement channel"
        )
    acknowledgement_queue = acknowledgement_queues.get(candidate_index)
    if acknowledgement_queue is None:
        raise RuntimeError(
            "genetic child backtest boundary is missing its candidate acknowledgement queue"
        )
    boundary_queue.put((candidate_index, process_attempt))
    candidate, attempt, accepted, detail, attempt_id = acknowledgement_queue.get()
    if (int(candidate), int(attempt)) != (candidate_index, process_attempt):
        raise RuntimeError("genetic child received a mismatched parent backtest acknowledgement")
    if not accepted:
        suffix = f": {detail}" if detail else ""
        raise RuntimeError("genetic parent failed to persist the backtest attempt" + suffix)
    if attempt_id is None:
        raise RuntimeError(
            "genetic parent acknowledgement is missing the backtest attempt identity"
        )
    evaluation_state.attempt_id = attempt_id


def child_safe_record(
    ctx, graph, passed_thresholds, rejection_reason=None, stats=None, per_column_stats=None,
    expression_elapsed_seconds=None, tracking_metric_kwargs=None, **_kwargs,
):
    ctx._template_evaluation_state.attempt_id = None
    record = {
        "graph": graph,
        "passed": bool(passed_thresholds),
        "stats": stats,
        "rejection_reason": rejection_reason,
        "per_column_stats": per_column_stats,
        "expression_elapsed_seconds": expression_elapsed_seconds,
        "tracking_metric_kwargs": dict(tracking_metric_kwargs) if tracking_metric_kwargs else {},
    }
    setter = getattr(ctx, "_set_last_evaluation_record", None)
    if callable(setter):
        setter(record)
    else:
        ctx._last_evaluation_record = record


def process_simulate_candidate(
    ctx, candidate, found_pnl_paths=(), backtest_boundary_queue=None,
    backtest_acknowledgement_queues=None,
):
    state = ctx._template_evaluation_state
    previous_attempt_id = getattr(state, "attempt_id", None)
    previous_parent_owned = getattr(state, "parent_owned_attempt", False)
    state.attempt_id = None
    state.parent_owned_attempt = True
    process_attempt = candidate.metadata["process_attempt"]

    def marker(*args, **kwargs):
        return signal_boundary(
            backtest_boundary_queue, backtest_acknowledgement_queues, candidate.candidate_index,
            process_attempt, state, *args, **kwargs,
        )

    def recorder(
        graph, passed_thresholds, rejection_reason=None, stats=None, per_column_stats=None,
        expression_elapsed_seconds=None, tracking_metric_kwargs=None, **further,
    ):
        return child_safe_record(
            ctx, graph, passed_thresholds, rejection_reason=rejection_reason, stats=stats,
            per_column_stats=per_column_stats,
            expression_elapsed_seconds=expression_elapsed_seconds,
            tracking_metric_kwargs=tracking_metric_kwargs, **further,
        )

    replaced_marker = replace(_engine, "_write_evaluation_attempt_marker", marker)
    replaced_sync = replace(
        ctx, "_sync_mgr", SyncSnapshot(getattr(ctx, "_sync_mgr", None), found_pnl_paths)
    )
    replaced_recorder = replace(ctx, "_safe_record", recorder)
    replaced_enqueue = replace(
        ctx, "_enqueue_deferred_submission_payload",
        forbid("_enqueue_deferred_submission_payload"),
    )
    replaced_metrics = replace(
        ctx, "record_search_run_metrics", forbid("record_search_run_metrics")
    )
    try:
        return _genetic._simulate_candidate(ctx, candidate.graph)
    finally:
        restore(ctx, replaced_metrics)
        restore(ctx, replaced_enqueue)
        restore(ctx, replaced_recorder)
        restore(ctx, replaced_sync)
        restore(_engine, replaced_marker)
        state.attempt_id = previous_attempt_id
        state.parent_owned_attempt = previous_parent_owned


# In the parent.


def prefetch_found_pnl_files(ctx):
    request = getattr(getattr(ctx, "_sync_mgr", None), "request_for_sync", None)
    if not callable(request):
        return ()
    try:
        files = request()
        return tuple(files) if files else ()
    except Exception as error:
        _engine.logger.warning("Failed to request sync files: %s", error)
        return ()


def candidate_result_from_process_result(process_result):
    result = dict(process_result.payload)
    result.setdefault("candidate_index", process_result.candidate_index)
    result["worker_pid"] = process_result.worker_pid
    result["elapsed_simulation_seconds"] = process_result.elapsed_simulation_seconds
    result["process_attempt"] = process_result.attempt
    payload = result.get("submission_payload")
    if isinstance(payload, Mapping):
        payload.setdefault("worker_pid", process_result.worker_pid)
    return result


def record_isolated_failure(ctx, ledger, index, graph, error):
    result = _genetic._candidate_process_evaluation_error_result(graph, error)
    reason = result["tracking_metric_kwargs"]["failure_reason"]
    detail = result["tracking_metric_kwargs"].get("failure_detail")
    source_attempt_id = ledger.source_attempt_id(index)
    if source_attempt_id is not None:
        result["source_attempt_id"] = source_attempt_id
    result["attempt_evidence"] = ledger.failure_evidence(index, reason, detail)
    plain_attempts.record_process_candidate_result_in_parent(ctx, ledger, index, result)
    return result


def evaluate_candidate_batch(ctx, batch, process_timeout_seconds=None):
    indexed_batch = list(enumerate(batch))
    if not indexed_batch:
        return []
    ledger = plain_attempts.PlainLedger(ctx, indexed_batch)
    if ctx._submission_cancelled():
        ledger.finalize_all_open("process_evaluation_cancelled")
        return []
    try:
        found_pnl_paths = prefetch_found_pnl_files(ctx)
    except BaseException as error:
        ledger.finalize_all_open("found_pnl_prefetch_failed", error)
        raise
    timeout_seconds = process_timeout_seconds
    if timeout_seconds is None:
        timeout_seconds = _process_evaluation.DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS

    def _simulate(candidate):
        return process_simulate_candidate(
            ctx, candidate, found_pnl_paths, ledger._backtest_boundary_queue,
            ledger._backtest_acknowledgement_queues,
        )

    remaining = list(indexed_batch)
    results = {}
    streams = len(indexed_batch) == 1 or requested_jobs(ctx) > 1
    try:
        chunk = prefetch_chunk_size(ctx, len(indexed_batch))
    except BaseException as error:
        ledger.finalize_all_open("process_capacity_resolution_failed", error)
        raise
    ledger.prepare_for_processes()

    while remaining:
        if ctx._submission_cancelled():
            break
        streamed = {}
        current = remaining[:min(len(remaining), chunk)]
        try:
            _process_evaluation.prefetch_candidate_features(ctx, [graph for _, graph in current])
        except BaseException as error:
            ledger.finalize_all_open("candidate_feature_prefetch_failed", error)
            raise

        def _record_completed_process_result(process_result):
            result = candidate_result_from_process_result(process_result)
            ledger.apply_child_evidence(
                process_result.candidate_index, result.get("attempt_evidence")
            )
            expected = ledger.source_attempt_id(process_result.candidate_index)
            if expected is not None:
                result["source_attempt_id"] = expected
                if isinstance(result.get("submission_payload"), Mapping):
                    result["submission_payload"]["_source_attempt_id"] = expected
            plain_attempts.record_process_candidate_result_in_parent(
                ctx, ledger, process_result.candidate_index, result
            )
            if streams:
                _genetic._submit_candidate(ctx, result)
            streamed[process_result.candidate_index] = result

        candidates = [
            _process_evaluation.CandidateEvaluation(candidate_index=index, graph=graph)
            for index, graph in current
        ]
        config = _process_evaluation.ProcessEvaluationConfig(
            n_jobs=requested_jobs(ctx),
            max_retries=1,
            timeout_seconds=timeout_seconds,
            process_priority=getattr(
                ctx, "_process_priority", _search_settings.DEFAULT_PROCESS_PRIORITY
            ),
            worker_memory_limit_bytes=worker_memory_limit_bytes(ctx),
            worker_processes=getattr(ctx, "_worker_processes", None),
            pre_dispatch_callback=ledger.pre_dispatch,
            lifecycle_callback=ledger.lifecycle,
            progress_callback=ledger.progress,
            completed_result_callback=_record_completed_process_result,
            parent_poll_callback=ledger.poll_backtest_boundaries,
            stop_requested=getattr(ctx, "_submission_cancelled", None),
            drain_terminal_timeouts=True,
        )
        try:
            process_results = _process_evaluation.evaluate_candidate_batch(
                candidates, _simulate, config=config
            )
        except _process_evaluation.ProcessEvaluationError as process_error:
            if _genetic._process_evaluation_error_is_search_fatal(process_error):
                ledger.finalize_all_open("fatal_process_evaluation_failure", process_error)
                raise
            isolated = {
                _process_evaluation.TERMINAL_WORKER_FAILED,
                _process_evaluation.TERMINAL_WORKER_TIMEOUT,
            }
            named = getattr(process_error, "terminal_errors", ())
            errors = () if named is None else tuple(named)
            done = set()
            for error in errors or (process_error,):
                candidate_index = getattr(error, "candidate_index", None)
                if getattr(error, "terminal_reason", None) not in isolated:
                    ledger.finalize_all_open("unsupported_process_evaluation_failure", error)
                    raise
                matched = [
                    (index, graph) for index, graph in current
                    if index == candidate_index and index not in done and index not in streamed
                ]
                if not matched and candidate_index not in done and candidate_index not in streamed:
                    ledger.finalize_all_open("unmatched_process_evaluation_failure", error)
                    raise
                for index, graph in matched:
                    results[index] = record_isolated_failure(ctx, ledger, index, graph, error)
                    done.add(index)
            for index, result in streamed.items():
                results.setdefault(index, result)
            done |= set(streamed)
        except BaseException as error:
            ledger.finalize_all_open("process_evaluation_aborted", error)
            raise
        else:
            done = set()
            for process_result in process_results:
                result = streamed.get(process_result.candidate_index)
                if result is None:
                    result = candidate_result_from_process_result(process_result)
                results[process_result.candidate_index] = result
                done.add(process_result.candidate_index)
            if not done:
                break
        remaining = [(index, graph) for index, graph in remaining if index not in done]

    ledger.finalize_all_open("process_result_missing")
    return [results[index] for index, _ in indexed_batch if index in results]
