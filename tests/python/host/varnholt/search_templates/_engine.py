"""The helpers that the small host shares with its search templates."""

import logging

logger = logging.getLogger("varnholt.search_templates")

_INFRASTRUCTURE_FAILURE_THRESHOLD = 3
_SDK_RUNTIME_NOT_READY_REJECTION_DETAIL = "The runtime was not ready."


class SdkRuntimeNotReadyError(RuntimeError):
    pass


class BackgroundInfrastructureError(RuntimeError):
    pass


def _graph_depth_for_attempt_marker(graph):
    return 1 + max(map(_graph_depth_for_attempt_marker, graph.get("children", ())), default=0)


def evaluate_threshold_gates(*args, **kwargs):
    return []


def _function_entries_for_kind(vocabulary, kind):
    return [entry for entry in vocabulary.get("functions", ()) if entry.get("kind") == kind]


def _random_weighted_window_limit(ctx, max_depth):
    return 8 * max_depth


def _random_weighted_node_limit(ctx):
    return 16


def _random_weighted_runtime_registry(ctx):
    return {}


def _signal_generation_safe_rotations(
    functions, window_limit, node_limit, registry, *, log_context, template_name, stage, generator
):
    return iter(functions)
