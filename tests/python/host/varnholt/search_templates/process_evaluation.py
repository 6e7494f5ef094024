"""A process pool that forks one child for each candidate, one after the other."""

import os
import pickle
from dataclasses import dataclass, field
from types import SimpleNamespace

DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS = 30.0
DEFAULT_WORKER_MEMORY_LIMIT_BYTES = 1 << 30
TERMINAL_WORKER_FAILED = "worker_failed"
TERMINAL_WORKER_TIMEOUT = "worker_timeout"
TERMINAL_PROCESS_PRIORITY_FAILED = "process_priority_failed"
TERMINAL_MEMORY_BUDGET_EXCEEDED = "memory_budget_exceeded"

# What was asked to be logged, for tests to look at.
logged_reductions = []


class ProcessEvaluationError(RuntimeError):
    def __init__(self, text="", **attributes):
        super().__init__(text)
        self.__dict__.update(attributes)


@dataclass
class CandidateEvaluation:
    candidate_index: int
    graph: object
    metadata: dict = field(default_factory=dict)


@dataclass
class ProcessEvaluationConfig:
    n_jobs: int = 1
    max_retries: int = 1
    timeout_seconds: object = None
    process_priority: object = None
    worker_memory_limit_bytes: object = None
    worker_processes: object = None
    pre_dispatch_callback: object = None
    lifecycle_callback: object = None
    progress_callback: object = None
    completed_result_callback: object = None
    parent_poll_callback: object = None
    stop_requested: object = None
    drain_terminal_timeouts: bool = False


def resolve_process_worker_count_details(*, requested, candidate_count):
    return SimpleNamespace(
        requested=requested,
        candidate_count=candidate_count,
        resolved=max(0, min(requested, candidate_count, 2)),
    )


def log_worker_count_reduction(logger, resolution, *, scope, cache_owner, detail):
    logged_reductions.append((logger, resolution, scope, cache_owner, detail))


def evaluate_candidate_batch(candidates, simulate, *, config):
    return [_evaluate(candidate, simulate) for candidate in candidates]


def _evaluate(candidate, simulate):
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            os.close(reading)
            with os.fdopen(writing, "wb") as pipe:
                pickle.dump(simulate(candidate), pipe)
            status = 0
        finally:
            os._exit(status)
    os.close(writing)
    with os.fdopen(reading, "rb") as pipe:
        content = pipe.read()
    _, status = os.waitpid(child, 0)
    if status != 0:
        raise ProcessEvaluationError(
            "the worker failed",
            terminal_reason=TERMINAL_WORKER_FAILED,
            candidate_index=candidate.candidate_index,
        )
    return SimpleNamespace(
        candidate_index=candidate.candidate_index,
        payload=pickle.loads(content),
        worker_pid=child,
        elapsed_simulation_seconds=0.25,
        attempt=1,
    )
