"""The run as a whole: the search, its worker processes, its results, its metrics record."""

from varnholt.search_templates.genetic import _host, _native


def _run_genetic_search(ctx, config):
    """Search until the context's stop event is set or a terminal condition ends the run."""
    return _native.run_genetic_search(_host, ctx, config)


def _record_search_run_metrics(
    ctx,
    config,
    *,
    process_count,
    candidate_count,
    generated_graph_count,
    unique_graph_count,
    duplicate_graph_count,
    improvement_round_count,
    terminal_reason,
    failure_count,
    elapsed_simulation_seconds,
):
    """Hand the run's metrics record to the context's recorder, as far as that takes it."""
    return _native.record_search_run_metrics(
        ctx,
        config,
        process_count=process_count,
        candidate_count=candidate_count,
        generated_graph_count=generated_graph_count,
        unique_graph_count=unique_graph_count,
        duplicate_graph_count=duplicate_graph_count,
        improvement_round_count=improvement_round_count,
        terminal_reason=terminal_reason,
        failure_count=failure_count,
        elapsed_simulation_seconds=elapsed_simulation_seconds,
    )


def _callable_accepts_keyword(callable_obj, keyword):
    """Tell whether a keyword of this name can be passed; True when that cannot be found out."""
    return _native.callable_accepts_keyword(callable_obj, keyword)


def _annotate_candidate_results(results, *, start_index, improvement_depth, improvements=None):
    """Write each result's index, depth and lineage into the result; return the same results."""
    return _native.annotate_candidate_results(
        results, start_index, improvement_depth, improvements
    )


def _elapsed_candidate_seconds(results):
    """Return the summed seconds of the candidates."""
    return _native.elapsed_candidate_seconds(results)


def _context_optional_int(ctx, attribute_name, default=None):
    """Return int of the context's attribute, or None when it is None or cannot be converted."""
    return _native.context_optional_int(ctx, attribute_name, default)


def _context_worker_memory_limit_bytes(ctx):
    """Return a worker's memory limit in bytes, the host's default for a bad one."""
    return _native.context_worker_memory_limit_bytes(_host, ctx)


def _parallel_evaluation_requested_jobs(ctx):
    """Return the jobs asked for, at least 1."""
    return _native.parallel_evaluation_requested_jobs(ctx)


def _parallel_evaluation_worker_resolution(ctx, batch_size):
    """Return the host's answer to how many workers a batch of this size gets."""
    return _native.parallel_evaluation_worker_resolution(_host, ctx, batch_size)


def _log_parallel_evaluation_worker_resolution(ctx, resolution):
    """Let the host log that fewer workers run than were asked for."""
    return _native.log_parallel_evaluation_worker_resolution(_host, ctx, resolution)


def _parallel_evaluation_workers(ctx, batch_size):
    """Return the number of workers for batches of this size, and let the host log it."""
    return _native.parallel_evaluation_workers(_host, ctx, batch_size)


def _parent_prefetch_chunk_size(ctx, batch_size):
    """Return how many candidates the parent prefetches at a time, at least 1."""
    return _native.parent_prefetch_chunk_size(_host, ctx, batch_size)
