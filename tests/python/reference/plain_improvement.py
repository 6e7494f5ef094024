"""Improvement of near misses, as plainly as Python can say it.

A second telling of the rules that the library follows in `reaction/` and in the improvement rounds:
nothing is saved, nothing is numbered in advance, each key is worked out where it is compared. It
stands on the other functions of the module under test, which have tests of their own.
"""

from collections.abc import Mapping

TEXT = (str,)
CONVERSION = (TypeError, ValueError, OverflowError)

SEARCH_ENDS = ("fork_unavailable",)
EXHAUSTED = (
    "duplicate", "max_improvement_candidates", "max_improvement_depth", "max_improvement_rounds",
    "no_improvement",
)
REACTION = (
    "turnover_max", "turnover_exceeded", "max_weight_max", "max_weight_exceeded",
    "delta_exposure_max", "delta_exposure_exceeded", "abs_weight_sum_mean_below_min",
    "sharpe_min", "gross_returns_sharpe_below_min",
)
CONSTRAINTS = frozenset(REACTION) - {"sharpe_min", "gross_returns_sharpe_below_min"}
MINIMA = frozenset(
    ("sharpe_min", "gross_returns_sharpe_below_min", "abs_weight_sum_mean_below_min",
     "pnl_mi_below_threshold")
)
DELTA = ("delta_exposure_max", "delta_exposure_exceeded")
MAX_WEIGHT = ("max_weight_max", "max_weight_exceeded")
NOT_NUMERIC = frozenset(("comparison",))
PLANS_PER_SOURCE = 8
FEWEST_PARENTS = 8


class Improvement:
    """The rules, over the module whose other functions they use."""

    def __init__(self, genetic):
        self.g = genetic

    # When improvement has ended.

    def terminal_ends_search(self, reason):
        return reason in SEARCH_ENDS

    def terminal_exhausts_near_misses(self, reason, improvements, rounds):
        if reason in ("max_improvement_candidates", "max_improvement_rounds"):
            return improvements > 0 or rounds > 0
        return reason in EXHAUSTED

    # Figures of one result.

    def integer(self, result, key):
        try:
            return int(result.get(key, 0))
        except CONVERSION:
            return 0

    def depth(self, result):
        return self.integer(result, "improvement_depth")

    def quality(self, result):
        return self.g._number(result.get("quality_score", result.get("sharpe", 0.0)))

    def priority_key(self, result):
        index = self.integer(result, "candidate_index")
        return (-self.quality(result), self.depth(result), index)

    def repair_priority_key(self, result):
        progress = self.progress_key(result)
        signature = self.signature(result)
        close = (
            progress[0] == 1
            and progress[1] <= 1.0
            and any(name in CONSTRAINTS for name in signature)
        )
        if not close:
            return (1,) + self.priority_key(result)
        index = self.integer(result, "candidate_index")
        return (0, progress[1], self.depth(result), -self.quality(result), index)

    def violation(self, reason, failure):
        if not isinstance(failure, Mapping):
            return 1.0
        raw_value, raw_threshold = self.g._failure_metric_pair(failure)
        value = self.g._number(raw_value, 0.0)
        threshold = self.g._number(raw_threshold, 0.0)
        scale = abs(threshold)
        if scale <= 1e-12:
            scale = 1.0
        violation = threshold - value if reason in MINIMA else value - threshold
        if violation <= 0.0:
            return 0.0
        return violation / scale

    def progress_key(self, result):
        if result.get("passes"):
            return (0, 0.0)
        failures = result.get("failures") or {}
        if not isinstance(failures, Mapping) or not failures:
            return (0, 0.0)
        total = 0.0
        for reason, failure in failures.items():
            total += self.violation(reason, failure)
        return (len(failures), total)

    def is_improved(self, result, source):
        if result.get("passes") and not source.get("passes"):
            return True
        reached, before = self.progress_key(result), self.progress_key(source)
        if reached < before:
            return True
        if reached > before:
            return False
        return self.quality(result) > self.quality(source)

    def signature(self, result):
        failures = result.get("failures") or {}
        if not isinstance(failures, Mapping):
            return ()
        return tuple(sorted(name for name in failures if isinstance(name, TEXT)))

    # Plans.

    def derive(self, ctx, result, *, max_plans=None, extra_data_graphs=()):
        result = self.g._with_expanded_reaction_failures(ctx, result)
        if not self.g._has_reaction_failure(result):
            return []
        return self.g._reaction_planning.derive_reaction_improvements(
            result,
            vocabulary=getattr(ctx, "vocabulary", {}),
            safe_rotation_specs=self.g._safe_reaction_rotations(ctx),
            validator=self.g._graph_validator(ctx),
            structural_key=self.g._structural_key,
            improvement_depth=self.depth(result) + 1,
            max_plans=max_plans,
            extra_data_graphs=extra_data_graphs,
        )

    def derive_one(self, ctx, result):
        improvements = self.derive(ctx, result)
        return improvements[0] if improvements else None

    # Peers.

    def feature_names(self, graph):
        names = set()
        if isinstance(graph, Mapping):
            if graph.get("type") == "feature":
                node = graph.get("node")
                if isinstance(node, TEXT) and node:
                    names.add(node)
            for child in graph.get("children", ()):
                names |= self.feature_names(child)
        elif isinstance(graph, (list, tuple)):
            for child in graph:
                names |= self.feature_names(child)
        return names

    def root_family(self, graph):
        if not isinstance(graph, Mapping):
            return None
        if graph.get("type") == "feature":
            return "feature"
        node = graph.get("node")
        if not isinstance(node, TEXT) or not node:
            return None
        return node.split("_", 1)[0]

    def numeric_key(self, graph):
        return 1 if self.root_family(graph) in NOT_NUMERIC else 0

    def overlap_key(self, source_features, graph):
        peer_features = self.feature_names(graph)
        if not source_features or not peer_features:
            return (0, 0.0)
        union = source_features | peer_features
        if not union:
            return (0, 0.0)
        overlap = len(source_features & peer_features) / len(union)
        return (1 if source_features == peer_features else 0, overlap)

    def peer_value(self, result, metric, reasons):
        value = self.g._number(self.g._stats_gate_metrics_for_result(result).get(metric), None)
        if value is not None:
            return abs(value)
        failures = result.get("failures") if isinstance(result, Mapping) else None
        if isinstance(failures, Mapping):
            for reason in reasons:
                pair = self.g._failure_metric_pair(failures.get(reason))
                value = self.g._number(pair[0], None)
                if value is not None:
                    return abs(value)
        return float("inf") if self.g._has_failure_reason(result, reasons) else 1.0

    def peer_repair_key(self, result, metric, reasons):
        failed = 1 if self.g._has_failure_reason(result, reasons) else 0
        return (failed, self.peer_value(result, metric, reasons))

    def peer_graphs(self, ordered_results, source_result):
        source_graph = source_result.get("graph")
        source_key, source_features = None, set()
        if isinstance(source_graph, Mapping):
            source_key = self.g._structural_key(source_graph)
            source_features = self.feature_names(source_graph)
        delta = self.g._has_failure_reason(source_result, DELTA)
        max_weight = self.g._has_failure_reason(source_result, MAX_WEIGHT)
        seen = set()
        ranked = []
        for order, result in enumerate(ordered_results):
            if result is source_result:
                continue
            graph = result.get("graph")
            if not isinstance(graph, Mapping):
                continue
            key = self.g._structural_key(graph)
            if source_key is not None and key == source_key:
                continue
            if key in seen:
                continue
            seen.add(key)
            ranked.append((self.peer_key(delta, max_weight, source_features, result, graph, order),
                           graph))
        return [graph for _, graph in sorted(ranked, key=lambda pair: pair[0])]

    def peer_key(self, delta, max_weight, source_features, result, graph, order):
        if delta:
            head = (self.numeric_key(graph),
                    self.peer_repair_key(result, "delta_exposure", DELTA))
        elif max_weight:
            head = (self.numeric_key(graph),
                    self.peer_repair_key(result, "max_weight", MAX_WEIGHT))
        else:
            head = ()
        return head + (
            self.overlap_key(source_features, graph), self.priority_key(result), order,
        )

    # Near misses.

    def near_miss_key(self, result):
        progress = self.progress_key(result)
        return (
            progress[0],
            progress[1],
            -self.g._candidate_eliteness(
                result, self.g.DEFAULT_DIVERSITY_WEIGHT, self.g.DEFAULT_PARSIMONY_WEIGHT
            ),
            -self.quality(result),
            self.depth(result),
            self.priority_key(result)[2],
        )

    def select(self, ctx_or_results, results_or_batch_size, batch_size=None):
        if batch_size is None:
            ctx, results, batch_size = None, ctx_or_results, results_or_batch_size
        else:
            ctx, results = ctx_or_results, results_or_batch_size
        try:
            limit = int(batch_size) * 4
        except CONVERSION:
            limit = FEWEST_PARENTS
        if limit < FEWEST_PARENTS:
            limit = FEWEST_PARENTS

        candidates, seen_graphs = [], set()
        for raw_result in results:
            result = self.g._with_expanded_reaction_failures(ctx, raw_result)
            graph = result.get("graph")
            if not isinstance(graph, Mapping):
                continue
            if not self.g._has_actionable_near_miss_failure(result):
                continue
            reverse = self.g._is_negative_sharpe_reaction_candidate(result)
            if self.g._number(result.get("sharpe"), 0.0) <= 0.0 and not reverse:
                continue
            if self.quality(result) <= 0.0 and not reverse:
                continue
            key = self.g._structural_key(graph)
            if key in seen_graphs:
                continue
            seen_graphs.add(key)
            candidates.append(result)
        if not candidates:
            return []

        best = {}
        for result in candidates:
            signature = self.signature(result)
            if not signature or not any(name in REACTION for name in signature):
                continue
            prior = best.get(signature)
            if prior is None or self.near_miss_key(result) < self.near_miss_key(prior):
                best[signature] = result
        selected = sorted(best.values(), key=self.near_miss_key)
        selected_ids = {id(result) for result in selected}
        for result in sorted(candidates, key=self.near_miss_key):
            if len(selected) >= limit:
                break
            if id(result) in selected_ids:
                continue
            selected.append(result)
            selected_ids.add(id(result))
        return selected[:limit]

    # Batches.

    def source_pool(self, ctx, generation_results, current_round_results, batch_size):
        pool, seen_graphs = [], set()

        def append_result(result):
            result = self.g._with_expanded_reaction_failures(ctx, result)
            graph = result.get("graph") if isinstance(result, Mapping) else None
            if not isinstance(graph, Mapping):
                return
            key = self.g._structural_key(graph)
            if key in seen_graphs:
                return
            seen_graphs.add(key)
            pool.append(result)

        for result in self.select(ctx, generation_results, batch_size):
            append_result(result)
        for result in current_round_results:
            append_result(result)
        return pool

    def derive_batch(self, ctx, results, evaluated_keys, *, max_depth, remaining_candidates,
                     max_plans_per_result=PLANS_PER_SOURCE):
        improvements = []
        eligible = duplicates = depth_limited = 0
        limit_reached = False
        per_result_limit = None
        if max_plans_per_result is not None:
            try:
                per_result_limit = int(max_plans_per_result)
            except CONVERSION:
                per_result_limit = PLANS_PER_SOURCE
            if per_result_limit <= 0:
                per_result_limit = PLANS_PER_SOURCE
        prepared = [self.g._with_expanded_reaction_failures(ctx, result) for result in results]
        ordered = sorted(prepared, key=self.repair_priority_key)
        graph_max_depth = self.g._context_max_depth(ctx)
        for result in ordered:
            if not self.g._has_reaction_failure(result):
                continue
            eligible += 1
            if max_depth is not None and self.depth(result) >= max_depth:
                depth_limited += 1
                continue
            found = self.derive(ctx, result, extra_data_graphs=self.peer_graphs(ordered, result))
            if not found:
                continue
            plans = 0
            for improvement in found:
                if not self.g._reaction_improvement_within_graph_max_depth(
                    improvement, graph_max_depth
                ):
                    depth_limited += 1
                    continue
                key = self.g._structural_key(improvement["graph"])
                if key in evaluated_keys:
                    duplicates += 1
                    continue
                if remaining_candidates is not None and len(improvements) >= remaining_candidates:
                    limit_reached = True
                    break
                evaluated_keys.add(key)
                improvements.append(improvement)
                plans += 1
                if per_result_limit is not None and plans >= per_result_limit:
                    break
            if limit_reached:
                break
        return {
            "improvements": improvements,
            "eligible_count": eligible,
            "duplicate_count": duplicates,
            "depth_limited_count": depth_limited,
            "candidate_limit_reached": limit_reached,
        }
