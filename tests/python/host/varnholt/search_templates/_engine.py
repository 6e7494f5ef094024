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
