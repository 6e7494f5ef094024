"""Genetic search over expression graphs.

The module itself is callable, and searches with all defaults:

    from varnholt.search_templates import genetic
    genetic(ctx)

`genetic.with_config(batch_size=64)` gives a template with settings of its own, which is called the
same way. A search returns nothing: everything that it finds leaves through `ctx` and the host's
modules, until the stop event of `ctx` is set.

The host's modules and operations are bound below under fixed names and looked up in this module at
each call, so that replacing one here replaces it for the search.
"""

import sys as _sys
import types as _types

from varnholt.config import search_settings as _search_settings
from varnholt.search_templates import (
    _engine,
    process_evaluation as _process_evaluation,
    reaction_planning as _reaction_planning,
)
from varnholt.search_templates._engine import (
    evaluate_threshold_gates as _evaluate_threshold_gates,
)
from varnholt.search_templates.eliteness import score_candidate
from varnholt.search_templates.genetic_ops import (
    crossover,
    hoist_mutation,
    point_mutation,
    subtree_mutation,
)
from varnholt.search_templates.random_weighted import _random_weighted_graphs

from varnholt.search_templates.genetic import _native

# The compiled part's view of the names of this module.
_host = _native.Host(globals())

DEFAULT_BATCH_SIZE = _search_settings.DEFAULT_BATCH_SIZE
DEFAULT_RESTART_THRESHOLD = _search_settings.DEFAULT_RESTART_THRESHOLD
DEFAULT_ELITE_FRACTION = _search_settings.DEFAULT_ELITE_FRACTION
DEFAULT_DIVERSITY_WEIGHT = _search_settings.DEFAULT_DIVERSITY_WEIGHT
DEFAULT_PARSIMONY_WEIGHT = _search_settings.DEFAULT_PARSIMONY_WEIGHT
DEFAULT_OPERATOR_RATES = dict(_search_settings.DEFAULT_OPERATOR_RATES)
DEFAULT_MAX_IMPROVEMENT_DEPTH = _native.DEFAULT_MAX_IMPROVEMENT_DEPTH
DEFAULT_MAX_IMPROVEMENT_CANDIDATES = _native.DEFAULT_MAX_IMPROVEMENT_CANDIDATES
DEFAULT_MAX_IMPROVEMENT_ROUNDS = _native.DEFAULT_MAX_IMPROVEMENT_ROUNDS
DEFAULT_MAX_REACTION_PLANS_PER_SOURCE = _native.DEFAULT_MAX_REACTION_PLANS_PER_SOURCE
DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS = _native.DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS
TIE_SEMANTICS = _native.TIE_SEMANTICS
_GENERATED_SEED_BITS = _native.GENERATED_SEED_BITS
# What a child finds in place of an operation that only the parent may call, when it was missing.
_CHILD_PARENT_OPERATION_MISSING = object()
_GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT = _native.GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT
_GENETIC_REACTION_LOG_CONTEXT = _native.GENETIC_REACTION_LOG_CONTEXT

_SEARCH_TERMINAL_IMPROVEMENT_REASONS = _native.SEARCH_TERMINAL_IMPROVEMENT_REASONS
_EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS = _native.EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS
_REACTION_FAILURE_REASONS = _native.REACTION_FAILURE_REASONS
_CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS = frozenset(
    _native.CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS
)
_GATE_NEAR_MISS_FAILURE_REASONS = frozenset(_native.GATE_NEAR_MISS_FAILURE_REASONS)
_MINIMUM_FAILURE_REASONS = frozenset(_native.MINIMUM_FAILURE_REASONS)
_SHARPE_REACTION_FAILURE_REASONS = frozenset(_native.SHARPE_REACTION_FAILURE_REASONS)
_NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES = frozenset(_native.NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES)
_PROCESS_TERMINAL_FAILURE_REASONS = frozenset(
    (_process_evaluation.TERMINAL_WORKER_FAILED, _process_evaluation.TERMINAL_WORKER_TIMEOUT)
)

from varnholt.search_templates.genetic._attempts import (  # noqa: E402
    _ProcessAttemptLedger,
    _attempt_json_ready,
    _build_attempt_column_inventory,
    _create_process_attempt,
    _finalize_process_failure_attempt,
    _process_attempt_blocker,
    _process_attempt_evidence,
    _record_process_candidate_result_in_parent,
    _write_parent_process_evaluation_attempt_marker,
)
from varnholt.search_templates.genetic._breeding import (  # noqa: E402
    _candidate_eliteness,
    _choose_operator,
    _data_graph_child_count,
    _diverse_parent_pool,
    _diversity_adjusted_parent_score,
    _elite_derived_graph,
    _graph_node_names,
    _graph_similarity,
    _restore_elite_root_node,
    _safe_reaction_rotation_names,
    _safe_reaction_rotations,
    _selected_redundancy,
    _weighted_parent_index,
    compose_next_batch,
)
from varnholt.search_templates.genetic._context import (  # noqa: E402
    _context_era_config,
    _context_era_number,
    _context_market_id,
    _context_thresholds,
    _ensure_payload_market_era,
    _field_value,
    _positive_int_or_none,
)
from varnholt.search_templates.genetic._evaluation import (  # noqa: E402
    _candidate_exception_result,
    _candidate_process_evaluation_error_result,
    _derive_candidate_failure,
    _evaluation_exception_failure,
    _not_evaluated_verdict,
    _number,
    _optional_correlation,
    _process_evaluation_error_is_search_fatal,
    _process_evaluation_error_results,
    _simulate_candidate,
)
from varnholt.search_templates.genetic._failures import (  # noqa: E402
    _expanded_threshold_failures,
    _failure_metric_pair,
    _has_actionable_near_miss_failure,
    _has_failure_reason,
    _has_gate_near_miss_failure,
    _has_reaction_failure,
    _is_negative_sharpe_reaction_candidate,
    _sharpe_reaction_metric_pair,
    _sharpe_reaction_value,
    _stats_gate_metrics_for_result,
    _with_expanded_reaction_failures,
)
from varnholt.search_templates.genetic._graph import (  # noqa: E402
    _candidate_item_passes_validator,
    _candidate_item_within_max_depth,
    _canonical_graph_string,
    _context_max_depth,
    _freeze_graph_data,
    _graph_passes_validator,
    _graph_validator,
    _graph_within_max_depth,
    _lineage_candidate_item,
    _plain_graph_data,
    _plain_initial_candidates,
    _reaction_improvement_within_graph_max_depth,
    _structural_key,
    _thaw_graph_data,
)
from varnholt.search_templates.genetic._population import (  # noqa: E402
    _candidate_batch,
    _deduplicate_graphs,
    _fresh_random_candidates,
    _fresh_random_candidates_for_rng,
    _run_deduplicated_batch,
)
from varnholt.search_templates.genetic._process import (  # noqa: E402
    _ChildSyncSnapshot,
    _candidate_result_from_process_result,
    _child_safe_record,
    _evaluate_candidate_batch,
    _forbid_child_parent_operation,
    _prefetch_found_pnl_files,
    _process_simulate_candidate,
    _replace_child_parent_operation,
    _restore_child_parent_operation,
    _signal_child_backtest_boundary,
)
from varnholt.search_templates.genetic._reaction import (  # noqa: E402
    _actionable_near_miss_key,
    _candidate_quality,
    _delta_exposure_peer_repair_key,
    _delta_exposure_peer_value,
    _derive_improvement_batch,
    _derive_reaction_improvement,
    _derive_reaction_improvements,
    _failure_progress_key,
    _failure_signature,
    _failure_violation,
    _graph_feature_names,
    _graph_root_family,
    _improvement_depth,
    _improvement_source_pool,
    _improvement_terminal_ends_search,
    _improvement_terminal_exhausts_near_misses,
    _is_improved_result,
    _max_weight_peer_repair_key,
    _max_weight_peer_value,
    _numeric_repair_peer_key,
    _peer_feature_overlap_key,
    _reaction_peer_graphs,
    _reaction_priority_key,
    _reaction_repair_priority_key,
    _select_actionable_near_miss_parents,
)
from varnholt.search_templates.genetic._run import (  # noqa: E402
    _annotate_candidate_results,
    _callable_accepts_keyword,
    _context_optional_int,
    _context_worker_memory_limit_bytes,
    _elapsed_candidate_seconds,
    _log_parallel_evaluation_worker_resolution,
    _parallel_evaluation_requested_jobs,
    _parallel_evaluation_worker_resolution,
    _parallel_evaluation_workers,
    _parent_prefetch_chunk_size,
    _record_search_run_metrics,
    _run_genetic_search,
)
from varnholt.search_templates.genetic._settings import (  # noqa: E402
    _generate_run_seed,
    _managed_rng_state,
    _nonnegative_float,
    _operator_rates,
    _optional_nonnegative_float,
    _optional_nonnegative_int,
    _positive_float,
    _positive_int,
    _rng_from_state,
)
from varnholt.search_templates.genetic._submission import (  # noqa: E402
    _block_candidate_submission,
    _candidate_eval_id,
    _candidate_rejection_reason,
    _candidate_stats_payload,
    _clear_candidate_pool_metrics_pending,
    _ensure_candidate_submission_payload,
    _mark_candidate_pool_metrics_pending,
    _record_candidate_result_in_parent,
    _record_candidate_results_in_parent,
    _refresh_candidate_submission_pool_metrics,
    _set_candidate_correlation_tracking,
    _set_candidate_mi_tracking,
    _submission_mi_failure_detail,
    _submit_candidate,
    _submit_submittable_candidates,
    rank_submittable_candidates,
)
from varnholt.search_templates.genetic._timing import (  # noqa: E402
    _candidate_backtest_timing_payload,
    _consumed_process_backtest_timing,
    _graph_bound_process_backtest_timing,
    _process_backtest_timing,
    _validated_graph_backtest_timing,
    _validated_graph_process_backtest_timing,
    _validated_process_backtest_timing,
)

# Tells whether the source of fresh random graphs was replaced.
_DEFAULT_FRESH_RANDOM_CANDIDATES = _fresh_random_candidates


class _GeneticTemplate:
    """One search's settings, immutable but for the state of its random numbers.

    Each template draws a run seed of its own. Calling it with a search context runs the search;
    calling it again goes on with the random numbers where the first run left them.
    """

    _varnholt_manages_evaluation = True

    def __init__(
        self,
        batch_size=DEFAULT_BATCH_SIZE,
        initial_candidates=None,
        restart_threshold=DEFAULT_RESTART_THRESHOLD,
        elite_fraction=DEFAULT_ELITE_FRACTION,
        diversity_weight=DEFAULT_DIVERSITY_WEIGHT,
        parsimony_weight=DEFAULT_PARSIMONY_WEIGHT,
        operator_rates=None,
        max_improvement_depth=DEFAULT_MAX_IMPROVEMENT_DEPTH,
        max_improvement_candidates=DEFAULT_MAX_IMPROVEMENT_CANDIDATES,
        max_improvement_rounds=DEFAULT_MAX_IMPROVEMENT_ROUNDS,
        process_timeout_seconds=_process_evaluation.DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS,
    ):
        _native.configure_template(
            _host,
            self,
            batch_size=batch_size,
            initial_candidates=initial_candidates,
            restart_threshold=restart_threshold,
            elite_fraction=elite_fraction,
            diversity_weight=diversity_weight,
            parsimony_weight=parsimony_weight,
            operator_rates=operator_rates,
            max_improvement_depth=max_improvement_depth,
            max_improvement_candidates=max_improvement_candidates,
            max_improvement_rounds=max_improvement_rounds,
            process_timeout_seconds=process_timeout_seconds,
        )

    def __setattr__(self, name, value):
        _native.set_template_attribute(self, name, value)

    def __call__(self, ctx):
        """Search on the context with these settings, until its stop event is set."""
        return _run_genetic_search(ctx, self)

    @property
    def batch_size(self):
        """Candidates in a generated batch."""
        return self._batch_size

    @property
    def initial_candidates(self):
        """The seed graphs as new plain graphs, or None."""
        return _native.thawed_candidates(self._initial_candidates)

    @property
    def seed(self):
        """The run's seed."""
        return self._seed

    @property
    def rng(self):
        """A new generator on the current state; advancing it does not advance the template."""
        return _rng_from_state(self._rng_state)

    @property
    def restart_threshold(self):
        """Generations without a better score before a restart is forced."""
        return self._restart_threshold

    @property
    def elite_fraction(self):
        """The share of the population that is kept as elite."""
        return self._elite_fraction

    @property
    def diversity_weight(self):
        """The weight of diversity in a candidate's score."""
        return self._diversity_weight

    @property
    def parsimony_weight(self):
        """The weight of parsimony in a candidate's score."""
        return self._parsimony_weight

    @property
    def operator_rates(self):
        """The rate of each genetic operator, in a new dict."""
        return dict(self._operator_rates)

    @property
    def max_improvement_depth(self):
        """How many improvements may follow on one another, or None for no limit."""
        return self._max_improvement_depth

    @property
    def max_improvement_candidates(self):
        """Improvement candidates allowed in a generation, or None for no limit."""
        return self._max_improvement_candidates

    @property
    def max_improvement_rounds(self):
        """Improvement rounds allowed in a generation, or None for no limit."""
        return self._max_improvement_rounds

    @property
    def process_timeout_seconds(self):
        """Seconds that one candidate's process may take."""
        return self._process_timeout_seconds

    def _rng_for_batch(self):
        """A new generator on the current state, as `rng` gives."""
        return _rng_from_state(self._rng_state)

    def _store_rng_state(self, rng):
        """Go on from the state of this generator; None changes nothing."""
        _native.store_rng_state(self, rng)


class _DefaultGeneticTemplate:
    """The template of whoever configures nothing: each setting is read when it is asked for."""

    _varnholt_manages_evaluation = True

    def __call__(self, ctx):
        """Search on the context with all defaults, on a template and so with a seed of its own."""
        return with_config()(ctx)

    @property
    def batch_size(self):
        """Candidates in a generated batch."""
        return DEFAULT_BATCH_SIZE

    @property
    def initial_candidates(self):
        """No seed graphs: None."""
        return None

    @property
    def seed(self):
        """No seed, since each call draws its own: None."""
        return None

    @property
    def rng(self):
        """No generator, since each call makes its own: None."""
        return None

    @property
    def restart_threshold(self):
        """Generations without a better score before a restart is forced."""
        return DEFAULT_RESTART_THRESHOLD

    @property
    def elite_fraction(self):
        """The share of the population that is kept as elite."""
        return DEFAULT_ELITE_FRACTION

    @property
    def diversity_weight(self):
        """The weight of diversity in a candidate's score."""
        return DEFAULT_DIVERSITY_WEIGHT

    @property
    def parsimony_weight(self):
        """The weight of parsimony in a candidate's score."""
        return DEFAULT_PARSIMONY_WEIGHT

    @property
    def operator_rates(self):
        """The rate of each genetic operator, in a new dict."""
        return dict(DEFAULT_OPERATOR_RATES)

    @property
    def max_improvement_depth(self):
        """How many improvements may follow on one another."""
        return DEFAULT_MAX_IMPROVEMENT_DEPTH

    @property
    def max_improvement_candidates(self):
        """Improvement candidates allowed in a generation."""
        return DEFAULT_MAX_IMPROVEMENT_CANDIDATES

    @property
    def max_improvement_rounds(self):
        """Improvement rounds allowed in a generation."""
        return DEFAULT_MAX_IMPROVEMENT_ROUNDS

    @property
    def process_timeout_seconds(self):
        """Seconds that one candidate's process may take, as the host has it now."""
        return _process_evaluation.DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS


def with_config(
    batch_size=DEFAULT_BATCH_SIZE,
    initial_candidates=None,
    restart_threshold=DEFAULT_RESTART_THRESHOLD,
    elite_fraction=DEFAULT_ELITE_FRACTION,
    diversity_weight=DEFAULT_DIVERSITY_WEIGHT,
    parsimony_weight=DEFAULT_PARSIMONY_WEIGHT,
    operator_rates=None,
    max_improvement_depth=DEFAULT_MAX_IMPROVEMENT_DEPTH,
    max_improvement_candidates=DEFAULT_MAX_IMPROVEMENT_CANDIDATES,
    max_improvement_rounds=DEFAULT_MAX_IMPROVEMENT_ROUNDS,
    process_timeout_seconds=_process_evaluation.DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS,
):
    """Return a template with these settings; TypeError or ValueError names the first bad one."""
    return _GeneticTemplate(
        batch_size=batch_size,
        initial_candidates=initial_candidates,
        restart_threshold=restart_threshold,
        elite_fraction=elite_fraction,
        diversity_weight=diversity_weight,
        parsimony_weight=parsimony_weight,
        operator_rates=operator_rates,
        max_improvement_depth=max_improvement_depth,
        max_improvement_candidates=max_improvement_candidates,
        max_improvement_rounds=max_improvement_rounds,
        process_timeout_seconds=process_timeout_seconds,
    )


def genetic(ctx):
    """Search with all defaults, on a template and so with a seed of its own."""
    return with_config()(ctx)


# Tells the host that the template has its candidates evaluated itself.
genetic._varnholt_manages_evaluation = True

_default_genetic_template = _DefaultGeneticTemplate()


class _CallableGeneticModule(_types.ModuleType):
    """This module: called, and asked for settings, it behaves as the default template."""

    def __call__(self, *args, **kwargs):
        """Call the default template with these arguments."""
        return _default_genetic_template(*args, **kwargs)

    def __getattr__(self, name):
        try:
            return getattr(_default_genetic_template, name)
        except AttributeError:
            raise AttributeError(name) from None


def _take_in():
    """Make the functions and classes of the files beside this one those of this module."""
    kinds = (_types.FunctionType, type)
    for value in tuple(globals().values()):
        if isinstance(value, kinds) and value.__module__.startswith(__name__ + "."):
            value.__module__ = __name__


_take_in()
_native.quicken(_CallableGeneticModule)
_sys.modules[__name__].__class__ = _CallableGeneticModule
