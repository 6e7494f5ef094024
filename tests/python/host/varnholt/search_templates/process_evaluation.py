"""A process pool that forks one child for each attempt of a candidate.

As many children run at once as jobs were asked for. A child hands its record over in one pickle;
what it raises is a failure, and a child that ends without a whole record is a lost worker: both are
tried again as often as the configuration says. A candidate that takes too long is killed and not
tried again. Failures are kept until every other candidate has ended, and then raised as one error.
"""

import contextlib
import multiprocessing
import os
import pickle
import resource
import select
import signal
import time
from dataclasses import dataclass, field
from types import SimpleNamespace

DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS = 30.0
DEFAULT_WORKER_MEMORY_LIMIT_BYTES = 1 << 30
TERMINAL_WORKER_FAILED = "worker_failed"
TERMINAL_WORKER_TIMEOUT = "worker_timeout"
TERMINAL_PROCESS_PRIORITY_FAILED = "process_priority_failed"
TERMINAL_MEMORY_BUDGET_EXCEEDED = "memory_budget_exceeded"

# How long the parent waits at most before it polls again.
POLL_SECONDS = 0.005

# What was asked to be logged, and the graphs of each prefetch, for tests to look at.
logged_reductions = []
prefetched = []


class ProcessEvaluationError(RuntimeError):
    """A failure of the pool; attributes that it does not know are missing."""

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
    n_jobs: int
    max_retries: int
    timeout_seconds: float
    process_priority: int
    worker_memory_limit_bytes: int
    worker_processes: object
    pre_dispatch_callback: object
    lifecycle_callback: object
    progress_callback: object
    completed_result_callback: object
    parent_poll_callback: object
    stop_requested: object
    drain_terminal_timeouts: bool


def _fork_context():
    return multiprocessing.get_context("fork")


def resolve_process_worker_count_details(*, requested, candidate_count):
    return SimpleNamespace(
        requested=requested,
        candidate_count=candidate_count,
        resolved=max(0, min(requested, candidate_count, 2)),
    )


def log_worker_count_reduction(logger, resolution, *, scope, cache_owner, detail):
    logged_reductions.append((logger, resolution, scope, cache_owner, detail))


def prefetch_candidate_features(ctx, graphs):
    prefetched.append(list(graphs))


def evaluate_candidate_batch(candidates, simulate, *, config):
    pool = _Pool(candidates, simulate, config)
    try:
        pool.run()
    finally:
        pool.end_children()
    if pool.errors:
        first = pool.errors[0]
        raise ProcessEvaluationError(
            str(first),
            terminal_errors=tuple(pool.errors),
            candidate_index=first.candidate_index,
            terminal_reason=first.terminal_reason,
            detail=first.detail,
            failure_count=len(pool.errors),
        )
    return pool.results


class _Worker:
    """One running child."""

    def __init__(self, candidate, attempt, pid, pipe):
        self.candidate = candidate
        self.attempt = attempt
        self.pid = pid
        self.pipe = pipe
        self.started = time.monotonic()
        self.content = b""

    def event(self, name, **others):
        return {
            "event": name,
            "candidate_index": self.candidate.candidate_index,
            "attempt": self.attempt,
            "candidate": self.candidate,
            **others,
        }

    def read(self):
        """Take what the pipe has; return whether it has come to its end."""
        while True:
            try:
                part = os.read(self.pipe, 1 << 16)
            except BlockingIOError:
                return False
            if not part:
                return True
            self.content += part

    def end(self):
        """Wait for the child and return how it ended."""
        os.close(self.pipe)
        _, status = os.waitpid(self.pid, 0)
        return os.waitstatus_to_exitcode(status)


class _Pool:
    def __init__(self, candidates, simulate, config):
        self.results = []
        self.errors = []
        self._simulate = simulate
        self._config = config
        self._waiting = [(candidate, 0) for candidate in candidates]
        self._workers = []

    def run(self):
        while self._waiting or self._workers:
            if self._config.stop_requested is not None and self._config.stop_requested():
                return
            while self._waiting and len(self._workers) < self._config.n_jobs:
                self._start(*self._waiting.pop(0))
            self._wait()
            self._config.parent_poll_callback()
            for worker in list(self._workers):
                self._look_at(worker)

    def end_children(self):
        for worker in self._workers:
            with contextlib.suppress(ProcessLookupError):
                os.kill(worker.pid, signal.SIGKILL)
            worker.end()
        self._workers.clear()

    def _start(self, candidate, attempt):
        worker = _Worker(candidate, attempt, 0, -1)
        self._config.pre_dispatch_callback(worker.event("pre_dispatch"))
        reading, writing = os.pipe()
        worker.pid = os.fork()
        if worker.pid == 0:
            self._work(candidate, reading, writing)
        os.close(writing)
        os.set_blocking(reading, False)
        worker.pipe = reading
        self._workers.append(worker)
        self._config.lifecycle_callback(worker.event("started"))
        self._config.progress_callback(worker.event("started"))

    def _work(self, candidate, reading, writing):
        """Evaluate in the child, which never returns from here."""
        status = 1
        try:
            os.close(reading)
            for sibling in self._workers:
                os.close(sibling.pipe)
            signal.signal(signal.SIGINT, signal.SIG_IGN)
            os.setpriority(os.PRIO_PROCESS, 0, self._config.process_priority)
            limit = self._config.worker_memory_limit_bytes
            resource.setrlimit(resource.RLIMIT_AS, (limit, limit))
            try:
                outcome = ("record", self._simulate(candidate))
            except Exception as error:
                outcome = ("error", f"{type(error).__name__}: {error}")
            content = pickle.dumps(outcome)
            while content:
                content = content[os.write(writing, content):]
            status = 0
        finally:
            os._exit(status)

    def _wait(self):
        select.select([worker.pipe for worker in self._workers], [], [], POLL_SECONDS)

    def _look_at(self, worker):
        if worker.read():
            self._workers.remove(worker)
            self._ended(worker, worker.end())
        elif time.monotonic() - worker.started > self._config.timeout_seconds:
            self._workers.remove(worker)
            os.kill(worker.pid, signal.SIGKILL)
            worker.end()
            self._failed(worker, TERMINAL_WORKER_TIMEOUT, "the worker took too long")

    def _ended(self, worker, exit_code):
        # What a child sent before its end is taken before the end is told.
        self._config.parent_poll_callback()
        try:
            kind, value = pickle.loads(worker.content)
        except (EOFError, pickle.UnpicklingError):
            self._failed(worker, TERMINAL_WORKER_FAILED, f"the worker ended with {exit_code}")
            return
        if kind == "error":
            self._failed(worker, TERMINAL_WORKER_FAILED, value)
            return
        self._config.lifecycle_callback(worker.event("ok"))
        self._config.progress_callback(worker.event("ok"))
        result = SimpleNamespace(
            candidate_index=worker.candidate.candidate_index,
            payload=value,
            worker_pid=worker.pid,
            elapsed_simulation_seconds=0.25,
            attempt=worker.attempt,
        )
        self._config.completed_result_callback(result)
        self.results.append(result)

    def _failed(self, worker, reason, detail):
        is_timeout = reason == TERMINAL_WORKER_TIMEOUT
        retrying = not is_timeout and worker.attempt < self._config.max_retries
        error = ProcessEvaluationError(
            detail,
            terminal_reason=reason,
            detail=detail,
            candidate_index=worker.candidate.candidate_index,
        )
        told = {"failure_reason": reason} if is_timeout else {}
        self._config.lifecycle_callback(
            worker.event("error", error=error, retrying=retrying, **told)
        )
        self._config.progress_callback(worker.event("error", error=error))
        if retrying:
            self._waiting.append((worker.candidate, worker.attempt + 1))
            return
        self.errors.append(error)
        if is_timeout and not self._config.drain_terminal_timeouts:
            self._waiting.clear()
