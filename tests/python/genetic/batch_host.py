"""A host of whole batches that writes down whatever is asked of it, and a pool that plays a script.

The pool starts no process: what a script calls a run of a candidate is a call of the simulation in
this very process, whose queues are answered by the pool's own polling. Two worlds that play the
same script can be compared by what they saw.
"""

import types

from attempt_host import HostError, Namespace, Queue, World, shown


class PoolError(Exception):
    """The pool's own error; attributes that it is not given are missing."""

    def __init__(self, text="the pool failed", **attributes):
        super().__init__(text)
        self.__dict__.update(attributes)


class Interrupted(BaseException):
    """No ordinary error: an interrupt, an exit."""


class AnsweringQueue(Queue):
    """A queue whose reader, finding nothing, lets the parent poll, as waiting would."""

    def get(self):
        if not self.messages and self._world.config is not None:
            self._world.config.parent_poll_callback()
        return super().get()


class BatchWorld(World):
    """Context, engine, tracker and a pool that plays `passes`, one list of steps for each pass.

    `settings` replaces attributes of the context; None for one takes it away.
    """

    def __init__(self, passes=(), failures=None, resolved=2, **settings):
        super().__init__(failures)
        self.passes = iter(passes)
        self.config = None
        self.prefetched = []
        self.recorded_graphs = []
        self.enqueued = []
        self.kept = []
        self.state = types.SimpleNamespace(attempt_id="earlier", parent_owned_attempt="before")
        self.engine._held["logger"] = Namespace(
            self, "logger", **{
                name: self.operation(name, lambda *args, **keywords: None)
                for name in ("warning", "error", "info")
            }
        )
        self.process_evaluation._held.update(
            DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS=600.0,
            DEFAULT_WORKER_MEMORY_LIMIT_BYTES=1 << 30,
            TERMINAL_WORKER_FAILED="worker_failed",
            TERMINAL_WORKER_TIMEOUT="worker_timeout",
            TERMINAL_PROCESS_PRIORITY_FAILED="process_priority_failed",
            TERMINAL_MEMORY_BUDGET_EXCEEDED="memory_budget_exceeded",
            ProcessEvaluationError=PoolError,
            CandidateEvaluation=self.operation(
                "CandidateEvaluation",
                lambda **keywords: types.SimpleNamespace(metadata={}, **keywords),
            ),
            ProcessEvaluationConfig=self.operation("ProcessEvaluationConfig", self._configure),
            evaluate_candidate_batch=self._play,
            prefetch_candidate_features=self.operation(
                "prefetch_candidate_features",
                lambda ctx, graphs: self.prefetched.append(list(graphs)),
            ),
            resolve_process_worker_count_details=self.operation(
                "resolve_process_worker_count_details",
                lambda **keywords: types.SimpleNamespace(resolved=resolved),
            ),
            log_worker_count_reduction=self.operation(
                "log_worker_count_reduction", lambda *args, **keywords: None
            ),
        )
        self.settings = Namespace(self, "search_settings", DEFAULT_PROCESS_PRIORITY=10)
        self.sync_mgr = Namespace(
            self, "sync_mgr",
            request_for_sync=self.operation("request_for_sync", lambda: ["x.pnl", "y.pnl"]),
            get_manifest=self.operation("get_manifest", lambda: {"manifest": 1}),
        )
        self.context._held.update(
            _sync_mgr=self.sync_mgr,
            _template_evaluation_state=self.state,
            _safe_record=self.operation("_safe_record", self._record),
            _enqueue_deferred_submission_payload=self.operation(
                "_enqueue_deferred_submission_payload", self.enqueued.append
            ),
            record_search_run_metrics=self.operation(
                "record_search_run_metrics", lambda **metrics: None
            ),
            _evaluate_for_template=self.operation("_evaluate_for_template", self._evaluate),
            _current_attempt_evidence=self.operation(
                "_current_attempt_evidence", lambda: {"backtest_started": False}
            ),
            _activate_existing_attempt=self.operation(
                "_activate_existing_attempt", lambda attempt_id, evidence: None
            ),
            _n_jobs=2,
        )
        for name, value in settings.items():
            if value is None:
                self.context._held.pop(name, None)
            else:
                self.context._held[name] = value

    def bind(self, module, monkeypatch):
        super().bind(module, monkeypatch)
        monkeypatch.setattr(module, "_search_settings", self.settings)

    def _queue(self):
        return AnsweringQueue(self, f"queue-{next(self._queues)}")

    def _record(self, graph, passed, **keywords):
        self.recorded_graphs.append(graph)
        self.context._last_evaluation_record = {"recording_succeeded": self.recorded}
        return f"eval-{len(self.recorded_graphs)}" if self.recorded else None

    def _configure(self, **keywords):
        self.config = types.SimpleNamespace(**keywords)
        return self.config

    # The child's evaluator. A graph tells in "do" what it does.

    def _evaluate(self, graph):
        evidence = {"backtest_started": False, "backtest_completed": False}
        outcome = {"record": {"passed": False, "rejection_reason": "low"},
                   "submission_payloads": [], "attempt_evidence": evidence}
        for step in graph.get("do", ()):
            self._child_step(step, graph, evidence, outcome)
        return outcome

    def _child_step(self, step, graph, evidence, outcome):
        context, engine = self.context, self.engine
        if step == "backtest":
            engine._write_evaluation_attempt_marker(None, graph, None, {}, "run_backtest")
            evidence.update(backtest_started=True, backtest_completed=True,
                            attempt_id=self.state.attempt_id)
        elif step == "phase":
            engine._write_evaluation_attempt_marker(None, graph, phase="build_expression")
        elif step == "sync":
            outcome["record"]["per_column_stats"] = (
                context._sync_mgr.request_for_sync(), context._sync_mgr.get_manifest(),
            )
        elif step == "record":
            context._safe_record(graph, 1, stats={"s": 1}, backtest_timing=3)
            outcome["record"] = context._last_evaluation_record
        elif step == "pass":
            outcome["record"].update(passed=True, rejection_reason=None)
            outcome["submission_payloads"] = [{"eval_id": "child", "graph": graph}]
        elif step == "enqueue":
            context._enqueue_deferred_submission_payload({})
        elif step == "metrics":
            context.record_search_run_metrics(seed=1)
        elif step == "raise":
            raise HostError("the evaluator failed")
        elif step == "interrupt":
            raise Interrupted("in the evaluator")
        elif step == "no evidence":
            outcome["attempt_evidence"] = None
        else:
            raise AssertionError(step)

    # The pool.

    def _play(self, candidates, simulate, *, config):
        error = self.call("evaluate_candidate_batch", len(candidates))
        self.kept.append((candidates, simulate, config))
        steps = next(self.passes, ())
        by_index = {candidate.candidate_index: candidate for candidate in candidates}
        game = Game(self, by_index, simulate, config)
        for step in steps:
            game.play(*step)
        if error is not None:
            raise error
        return game.returned


class Game:
    """One pass of the pool."""

    def __init__(self, world, candidates, simulate, config):
        self.world = world
        self.candidates = candidates
        self.simulate = simulate
        self.config = config
        self.payloads = {}
        self.errors = []
        self.returned = []

    def play(self, name, *args):
        getattr(self, name)(*args)

    def event(self, name, index, attempt, **others):
        return {
            "event": name, "candidate_index": index, "attempt": attempt,
            "candidate": self.candidates.get(index, types.SimpleNamespace(metadata={}, graph=None)),
            **others,
        }

    def dispatch(self, index, attempt=0):
        self.config.pre_dispatch_callback(self.event("pre_dispatch", index, attempt))
        self.config.lifecycle_callback(self.event("started", index, attempt))
        self.config.progress_callback(self.event("started", index, attempt))

    def run(self, index, attempt=0):
        """Evaluate as a child would; what it raises is the candidate's failure."""
        try:
            self.payloads[index] = self.simulate(self.candidates[index])
        except Exception as error:
            self.lose(index, attempt)
            self.errors.append(
                PoolError(str(error), candidate_index=index, terminal_reason="worker_failed",
                          detail=f"{type(error).__name__}: {error}")
            )

    def work(self, index, attempt=0):
        """Evaluate, and hand over what came of it, if anything did."""
        self.run(index, attempt)
        if index in self.payloads:
            self.complete(index, attempt)

    def signal(self, index, attempt=0):
        """A child reaches its backtest and is not heard of again."""
        ledger = self.config.pre_dispatch_callback.__self__
        ledger._backtest_boundary_queue.messages.append((index, attempt))

    def result(self, index, attempt=0, payload=None):
        return types.SimpleNamespace(
            candidate_index=index,
            payload=self.payloads.get(index, {"passes": False, "attempt_evidence": {}})
            if payload is None else payload,
            worker_pid=1000 + len(self.payloads),
            elapsed_simulation_seconds=0.5,
            attempt=attempt,
        )

    def complete(self, index, attempt=0, payload=None):
        self.config.lifecycle_callback(self.event("ok", index, attempt))
        self.config.progress_callback(self.event("ok", index, attempt))
        self.config.completed_result_callback(self.result(index, attempt, payload))

    def give(self, index, attempt=0, payload=None):
        self.returned.append(self.result(index, attempt, payload))

    def lose(self, index, attempt=0, retrying=False, reason=None):
        told = {} if reason is None else {"failure_reason": reason}
        self.config.lifecycle_callback(
            self.event("error", index, attempt, error=HostError("lost"), retrying=retrying, **told)
        )
        self.config.progress_callback(self.event("error", index, attempt))

    def lose_for_good(self, index, attempt=0, reason="worker_failed"):
        self.lose(index, attempt, False, "worker_timeout" if reason == "worker_timeout" else None)
        self.errors.append(PoolError(candidate_index=index, terminal_reason=reason, detail="gone"))

    def end(self):
        """Raise what has failed, as one error, or return."""
        if self.errors:
            first = self.errors[0]
            raise PoolError(
                "the pool", candidate_index=first.candidate_index,
                terminal_reason=first.terminal_reason, terminal_errors=tuple(self.errors),
            )

    def poll(self):
        self.config.parent_poll_callback()

    def cancel(self):
        self.world.cancelled = True

    def ask(self):
        self.world.call("stop", self.config.stop_requested())

    def forget(self):
        """The recorder of the host stops working."""
        self.world.recorded = False

    def fail(self, attributes, named=None):
        """Raise the pool's error, which may name others by their attributes."""
        if named is not None:
            attributes = {
                **attributes,
                "terminal_errors": [PoolError("named", **one) for one in named],
            }
        raise PoolError(**attributes)

    def throw(self, error):
        raise error

    def answer(self, value):
        self.returned = value


def outcome_of(call):
    """What a call gives, with everything that tells one outcome from another."""
    try:
        return ("returned", described(call()))
    except BaseException as error:
        chain = []
        while error is not None:
            # A label stays with the very object that was given it.
            chain.append((type(error).__name__, str(error), getattr(error, "label", None)))
            error = error.__cause__ or error.__context__
        return ("raised", chain)


def described(value):
    """A form of the value that two worlds share, with the keys of mappings in their order."""
    if isinstance(value, dict):
        return [(key, described(item)) for key, item in value.items()]
    if isinstance(value, (list, tuple)):
        return type(value)(map(described, value))
    if isinstance(value, types.SimpleNamespace):
        return described(vars(value))
    if isinstance(value, (Namespace, Queue)):
        return f"<{value._name if isinstance(value, Namespace) else value.name}>"
    if callable(value):
        return f"<{getattr(value, '__name__', 'callable')}>"
    return shown(value)
