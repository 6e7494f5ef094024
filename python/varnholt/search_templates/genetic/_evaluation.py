"""The candidate result record: the one shape of every outcome."""

from varnholt.search_templates.genetic import _host, _native


def _number(value, default=0.0):
    """Return float(value), or the default as it is when the conversion fails."""
    return _native.number(value, default)


def _optional_correlation(value):
    """Return None or float(value); ValueError when that is not finite or cannot be made."""
    return _native.optional_correlation(value)


def _evaluation_exception_failure(exc):
    """Return the reason and detail of an exception that left the evaluator."""
    return _native.evaluation_exception_failure(_host, exc)


def _candidate_exception_result(ctx, graph, exc):
    """Return the record of a candidate whose evaluator raised exc."""
    return _native.candidate_exception_result(_host, ctx, graph, exc)


def _candidate_process_evaluation_error_result(graph, exc):
    """Return the record of a candidate whose process failed with exc."""
    return _native.candidate_process_evaluation_error_result(_host, graph, exc)


def _process_evaluation_error_results(batch, exc):
    """Return one such record for each graph of the batch, in order."""
    return _native.process_evaluation_error_results(_host, batch, exc)


def _process_evaluation_error_is_search_fatal(exc):
    """Tell whether a failure of process evaluation ends the whole search."""
    return _native.process_evaluation_error_is_search_fatal(_host, exc)


def _derive_candidate_failure(ctx, record, stats):
    """Return why a candidate failed: reason, detail, and new tracking values."""
    return _native.derive_candidate_failure(ctx, record, stats)


def _not_evaluated_verdict():
    """Return the host's verdict on what was not evaluated."""
    return _native.not_evaluated_verdict(_host)


def _simulate_candidate(ctx, graph):
    """Return the record of one graph's evaluation by the context's evaluator."""
    return _native.simulate_candidate(_host, ctx, graph)
