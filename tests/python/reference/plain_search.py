"""The whole search once more, in plain Python: the loop, its rounds and the record of a run."""

import inspect
import time
from types import SimpleNamespace

import plain_attempts
import plain_batch
import plain_failures
import plain_graph
import plain_host as host
import plain_population
import plain_results
import plain_settings
import plain_submission
from plain_failures import _has_reaction_failure
from plain_graph import _run_deduplicated_batch
from plain_improvement import Improvement
from plain_population import _candidate_batch, _candidate_eliteness
from plain_results import (
    _number, _process_evaluation_error_is_search_fatal, _process_evaluation_error_results,
)
from plain_submission import _record_candidate_results_in_parent, _submit_submittable_candidates

TIE_SEMANTICS = "score_desc_then_candidate_index_asc_then_canonical_graph"
PARTS = (plain_settings, plain_graph, plain_population, plain_results, plain_failures,
         plain_submission)

# All the plain functions under the module's names, for what is told over a module.
functions = SimpleNamespace()
improvement = Improvement(functions)


def bind(module):
    """Use the host that the module uses."""
    host.bind(module)
    for part in PARTS:
        vars(functions).update(
            {name: value for name, value in vars(part).items() if name.startswith("_")
             and callable(value)}
        )
    for name in host.NAMES + host.CONSTANTS:
        setattr(functions, name, getattr(host, name))
    plain_batch.bind(functions)
    plain_attempts._record_candidate_result_in_parent = (
        plain_submission._record_candidate_result_in_parent
    )


def _annotate_candidate_results(results, *, start_index, improvement_depth, improvements=None):
    improvements = improvements or []
    for offset, result in enumerate(results):
        result["candidate_index"] = int(start_index) + offset
        result["improvement_depth"] = int(improvement_depth)
        if offset < len(improvements):
            item = improvements[offset]
            source = item["source_result"]
            result["reaction_plan"] = item["reaction_plan"]
            result["source_candidate_index"] = source.get("candidate_index")
            result["source_graph"] = source.get("graph")
            result["improvement_depth"] = item["improvement_depth"]
            if result.get("passes"):
                result["rescued"] = True
    return results


def _elapsed_candidate_seconds(results):
    total = 0
    for result in results:  # From left to right, as sum() did before Python 3.12.
        total += _number(result.get("elapsed_simulation_seconds", 0.0))
    return total


def _callable_accepts_keyword(callable_obj, keyword):
    try:
        signature = inspect.signature(callable_obj)
    except (TypeError, ValueError):
        return True
    for parameter in signature.parameters.values():
        if parameter.kind is inspect.Parameter.VAR_KEYWORD:
            return True
        if parameter.name == keyword and parameter.kind in (
            inspect.Parameter.POSITIONAL_OR_KEYWORD, inspect.Parameter.KEYWORD_ONLY,
        ):
            return True
    return False


def _record_search_run_metrics(
    ctx, config, *, process_count, candidate_count, generated_graph_count, unique_graph_count,
    duplicate_graph_count, improvement_round_count, terminal_reason, failure_count,
    elapsed_simulation_seconds,
):
    recorder = getattr(ctx, "record_search_run_metrics", None)
    if not callable(recorder):
        return
    unique_ratio = 0.0
    if generated_graph_count > 0:
        unique_ratio = unique_graph_count / generated_graph_count
    record = {
        "batch_size": config._batch_size,
        "process_count": process_count,
        "candidate_count": candidate_count,
        "generated_graph_count": generated_graph_count,
        "unique_graph_count": unique_graph_count,
        "duplicate_graph_count": duplicate_graph_count,
        "unique_ratio": unique_ratio,
        "seed": config._seed,
        "improvement_round_count": improvement_round_count,
        "terminal_reason": terminal_reason,
        "failure_count": failure_count,
        "elapsed_simulation_seconds": elapsed_simulation_seconds,
        "determinism_metadata": {
            "seed": config._seed, "process_count": process_count, "tie_semantics": TIE_SEMANTICS,
        },
    }
    for key in (
        "determinism_metadata", "generated_graph_count", "unique_graph_count",
        "duplicate_graph_count", "unique_ratio", "seed",
    ):
        if not _callable_accepts_keyword(recorder, key):
            del record[key]
    recorder(**record)


def _parallel_evaluation_workers(ctx, batch_size):
    resolution = host._process_evaluation.resolve_process_worker_count_details(
        requested=plain_batch.requested_jobs(ctx), candidate_count=batch_size
    )
    host._process_evaluation.log_worker_count_reduction(
        host._engine.logger,
        resolution,
        scope="genetic process evaluation",
        cache_owner=ctx,
        detail=(
            "public search n_jobs remains unchanged; this cap applies only to child evaluator "
            "processes spawned for this candidate batch"
        ),
    )
    return resolution.resolved


class Run:
    """The state of one run, and the ways in which it ends."""

    def __init__(self, ctx, config):
        self.ctx = ctx
        self.config = config
        self.batch_index = 0
        self.prior_results = []
        self.best_score = None
        self.stagnant_batches = 0
        self.force_restart = False
        self.candidate_count = 0
        self.generated_graph_count = 0
        self.unique_graph_count = 0
        self.duplicate_graph_count = 0
        self.improvement_round_count = 0
        self.failure_count = 0
        self.runtime_not_ready_streak = 0
        self.elapsed_simulation_seconds = 0.0
        self.seen_graph_keys = set()
        self.metrics_recorded = False
        self.process_count = _parallel_evaluation_workers(ctx, config._batch_size)

    def record_metrics(self, terminal_reason):
        self.metrics_recorded = True
        _record_search_run_metrics(
            self.ctx,
            self.config,
            process_count=self.process_count,
            candidate_count=self.candidate_count,
            generated_graph_count=self.candidate_count + self.duplicate_graph_count,
            unique_graph_count=self.candidate_count,
            duplicate_graph_count=self.duplicate_graph_count,
            improvement_round_count=self.improvement_round_count,
            terminal_reason=terminal_reason,
            failure_count=self.failure_count,
            elapsed_simulation_seconds=self.elapsed_simulation_seconds,
        )

    def count_failures(self, exc):
        reason = str(
            getattr(exc, "terminal_reason", None)
            or host._process_evaluation.TERMINAL_WORKER_FAILED
        )
        if reason != host._process_evaluation.TERMINAL_PROCESS_PRIORITY_FAILED:
            self.failure_count += int(getattr(exc, "failure_count", 1))
        return reason

    def count_not_ready(self, results):
        reasons = host._PROCESS_TERMINAL_FAILURE_REASONS
        for result in results:
            failures = result.get("failures") or {}
            if "sdk_runtime_not_ready" in failures:
                self.runtime_not_ready_streak += 1
            elif not any(reason in reasons for reason in failures):
                self.runtime_not_ready_streak = 0
        streak = self.runtime_not_ready_streak
        if streak >= host._engine._INFRASTRUCTURE_FAILURE_THRESHOLD:
            detail = (
                f"search runtime was not ready for {streak} consecutive candidates; the runtime, "
                "not the candidate, is what fails, so the search stops instead of recording more "
                "candidate rejections"
            )
            host._engine.logger.error(
                "Genetic search runtime was not ready for %s consecutive candidates; stopping "
                "the search", streak,
            )
            self.record_metrics("sdk_runtime_not_ready")
            fatal_callback = getattr(self.ctx, "_fatal_callback", None)
            if fatal_callback:
                fatal_callback("BACKGROUND_TASK_FAILED", "register()", detail)
            raise host._engine.BackgroundInfrastructureError(detail)

    def fail(self, exc):
        """What a fatal error leaves behind before it goes on."""
        reason = self.count_failures(exc)
        if reason != host._process_evaluation.TERMINAL_PROCESS_PRIORITY_FAILED:
            self.record_metrics(reason)

    def record_and_submit(self, results):
        _record_candidate_results_in_parent(self.ctx, results)
        _submit_submittable_candidates(self.ctx, results)


def is_stopped(stop_event):
    return stop_event is not None and stop_event.is_set()


def evaluate(run, batch):
    return plain_batch.evaluate_candidate_batch(
        run.ctx, batch, process_timeout_seconds=run.config._process_timeout_seconds
    )


def any_failed(results):
    return any(_has_reaction_failure(result) for result in results)


def rounds(run, stop_event, results, generation_results):
    """The improvement rounds of a generation: (reason, candidates, rounds)."""
    ctx, config = run.ctx, run.config
    next_candidate_index = len(generation_results)
    count = done = 0
    reason = None
    current = results
    while True:
        if is_stopped(stop_event):
            return "stopped", count, done
        sources = improvement.source_pool(
            ctx, generation_results, current, config._batch_size
        )
        limit = config._max_improvement_rounds
        if limit is not None and done >= limit:
            return "max_improvement_rounds" if any_failed(sources) else reason, count, done
        remaining = None
        if config._max_improvement_candidates is not None:
            remaining = config._max_improvement_candidates - count
        if remaining is not None and remaining <= 0:
            return "max_improvement_candidates" if any_failed(sources) else reason, count, done
        derivation = improvement.derive_batch(
            ctx, sources, run.seen_graph_keys, max_depth=config._max_improvement_depth,
            remaining_candidates=remaining,
        )
        improvements = derivation["improvements"]
        run.generated_graph_count += len(improvements) + derivation["duplicate_count"]
        run.duplicate_graph_count += derivation["duplicate_count"]
        if not improvements:
            if is_stopped(stop_event):
                reason = "stopped"
            elif derivation["duplicate_count"]:
                reason = "duplicate"
            elif derivation["depth_limited_count"]:
                reason = "max_improvement_depth"
            elif derivation["candidate_limit_reached"]:
                reason = "max_improvement_candidates"
            elif done > 0 and derivation["eligible_count"]:
                reason = "no_improvement"
            return reason, count, done
        batch = [item["graph"] for item in improvements]
        error = None
        try:
            found = evaluate(run, batch)
        except host._process_evaluation.ProcessEvaluationError as exc:
            if _process_evaluation_error_is_search_fatal(exc):
                run.fail(exc)
                raise
            error = exc
            reason = getattr(
                exc, "terminal_reason", host._process_evaluation.TERMINAL_WORKER_FAILED
            )
            found = _process_evaluation_error_results(batch, exc)
        done += 1
        found = _annotate_candidate_results(
            found, start_index=next_candidate_index, improvement_depth=done,
            improvements=improvements,
        )
        run.record_and_submit(found)
        next_candidate_index += len(found)
        run.candidate_count += len(found)
        run.unique_graph_count += len(found)
        count += len(found)
        run.improvement_round_count += 1
        if error is not None:
            generation_results.extend(found)
            run.count_failures(error)
            return reason, count, done
        run.elapsed_simulation_seconds += _elapsed_candidate_seconds(found)
        generation_results.extend(found)
        run.count_not_ready(found)
        if is_stopped(stop_event):
            return "stopped", count, done
        if derivation["candidate_limit_reached"]:
            return "max_improvement_candidates", count, done
        if not any(
            improvement.is_improved(result, item["source_result"])
            for item, result in zip(improvements, found)
        ):
            return "no_improvement", count, done
        limit = config._max_improvement_candidates
        if limit is not None and count >= limit and any_failed(found):
            return "max_improvement_candidates", count, done
        limit = config._max_improvement_rounds
        if limit is not None and done >= limit and any_failed(found):
            return "max_improvement_rounds", count, done
        current = found


def pause(stop_event):
    """Whether the run ends in its pause."""
    if stop_event is not None:
        return bool(stop_event.wait(0.01))
    time.sleep(0.01)
    return False


def choose_parents(run, generation_results, reason, count, done):
    config = run.config
    passing = [result for result in generation_results if result.get("passes", False)]
    if passing:
        batch_score = max(
            _candidate_eliteness(candidate, config._diversity_weight, config._parsimony_weight)
            for candidate in passing
        )
        if run.best_score is None or batch_score > run.best_score:
            run.best_score = batch_score
            run.stagnant_batches = 0
        else:
            run.stagnant_batches += 1
    else:
        near = improvement.select(run.ctx, generation_results, config._batch_size)
        if near and not improvement.terminal_exhausts_near_misses(reason, count, done):
            run.prior_results = near
            run.force_restart = False
            run.stagnant_batches = 0
        else:
            run.prior_results = []
            run.stagnant_batches += 1
            run.force_restart = run.stagnant_batches >= config._restart_threshold
            if run.force_restart:
                run.stagnant_batches = 0
    if run.stagnant_batches >= config._restart_threshold:
        run.prior_results = []
        run.force_restart = True
        run.stagnant_batches = 0
    elif passing:
        run.prior_results = passing


def generation(run, stop_event):
    """One turn: whether the run ends in it."""
    ctx, config = run.ctx, run.config
    batch = _candidate_batch(
        ctx, config, run.batch_index, run.prior_results, force_restart=run.force_restart
    )
    run.force_restart = False
    if not batch:
        run.force_restart = True
        return pause(stop_event)
    deduplicated = _run_deduplicated_batch(ctx, config, batch, run.seen_graph_keys)
    graphs = deduplicated["graphs"]
    run.generated_graph_count += deduplicated["generated_count"]
    run.duplicate_graph_count += deduplicated["duplicate_count"]
    if not graphs:
        run.force_restart = True
        if is_stopped(stop_event):
            return True
        if run.candidate_count > 0:
            run.record_metrics("duplicate")
            return True
        return pause(stop_event)
    process_error = None
    try:
        results = evaluate(run, graphs)
    except host._process_evaluation.ProcessEvaluationError as exc:
        if _process_evaluation_error_is_search_fatal(exc):
            run.fail(exc)
            raise
        results = _process_evaluation_error_results(graphs, exc)
        process_error = exc
        run.force_restart = True
    results = _annotate_candidate_results(results, start_index=0, improvement_depth=0)
    run.record_and_submit(results)
    run.candidate_count += len(results)
    run.unique_graph_count += len(results)
    run.elapsed_simulation_seconds += _elapsed_candidate_seconds(results)
    if process_error is None:
        run.count_not_ready(results)
    else:
        run.count_failures(process_error)
    if is_stopped(stop_event):
        return True
    generation_results = list(results)
    reason, count, done = rounds(run, stop_event, results, generation_results)
    run.record_and_submit(generation_results)
    choose_parents(run, generation_results, reason, count, done)
    stop_event = getattr(ctx, "_stop_event", None)
    if is_stopped(stop_event):
        reason = "stopped"
    if improvement.terminal_ends_search(reason):
        run.record_metrics(reason)
        return True
    return pause(stop_event)


def _run_genetic_search(ctx, config):
    run = Run(ctx, config)
    stop_event = getattr(ctx, "_stop_event", None)
    while not is_stopped(stop_event):
        if generation(run, stop_event):
            break
        stop_event = getattr(ctx, "_stop_event", None)
        run.batch_index += 1
    if not run.metrics_recorded:
        is_stopped(getattr(ctx, "_stop_event", None))
        run.record_metrics("stopped")
