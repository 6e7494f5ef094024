"""The timing of a candidate's backtest, which must be the same wherever it reaches the parent.

A bad timing is a RuntimeError with the host's own error as its cause.
"""

from varnholt.search_templates.genetic import _host, _native


def _validated_process_backtest_timing(timing):
    """Return the host's normalised timing."""
    return _native.validated_process_backtest_timing(_host, timing)


def _consumed_process_backtest_timing(graph, payload):
    """Return the timing that the host recorded in this process for the graph."""
    return _native.consumed_process_backtest_timing(_host, graph, payload)


def _process_backtest_timing(graph, attempt_evidence, payload):
    """Return the evidence's timing, or else the recorded one, for a candidate's record."""
    return _native.process_backtest_timing(_host, graph, attempt_evidence, payload)


def _validated_graph_process_backtest_timing(graph, timing):
    """Return the timing checked against the graph, and for its process."""
    return _native.validated_graph_process_backtest_timing(_host, graph, timing)


def _validated_graph_backtest_timing(graph, timing):
    """Return the timing checked against the graph."""
    return _native.validated_graph_backtest_timing(_host, graph, timing)


def _graph_bound_process_backtest_timing(graph, timing):
    """Return the timing checked against the graph, with the graph's key written into it."""
    return _native.graph_bound_process_backtest_timing(_host, graph, timing)


def _candidate_backtest_timing_payload(_ctx, candidate, *, require_process_identity=False):
    """Return the one timing of a candidate; RuntimeError when its sources disagree."""
    return _native.candidate_backtest_timing_payload(_host, candidate, require_process_identity)
