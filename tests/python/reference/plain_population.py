"""Parents, breeding and the candidates of a batch once more, in plain Python."""

import copy
from collections.abc import Mapping

import plain_graph
import plain_host as host
from plain_graph import (
    CONVERSION, _context_max_depth, _fresh_random_candidates_for_rng, _graph_validator,
    _lineage_candidate_item, _structural_key, _thaw_graph_data,
)
from plain_results import _optional_correlation
from plain_settings import _operator_rates

OPERATORS = ("crossover", "point_mutation", "subtree_mutation", "hoist_mutation")
# Stands for the module's setting.
SETTING = object()
NO_RATE = "genetic operator_rates must contain at least one positive rate"


def _candidate_eliteness(candidate, diversity_weight, parsimony_weight):
    return host.score_candidate(
        candidate,
        sibling_correlations=(),
        pool_correlation=candidate.get("correlation"),
        diversity_weight=diversity_weight,
        parsimony_weight=parsimony_weight,
    )


def _graph_node_names(graph):
    names = set()
    if isinstance(graph, Mapping):
        node = graph.get("node")
        if isinstance(node, str) and node:
            names.add(node)
        for child in graph.get("children", ()):
            names |= _graph_node_names(child)
    elif isinstance(graph, (list, tuple)):
        for child in graph:
            names |= _graph_node_names(child)
    return names


def _graph_similarity(left, right):
    left_names = _graph_node_names(left)
    right_names = _graph_node_names(right)
    if not left_names and not right_names:
        return 0.0
    union = left_names | right_names
    if not union:
        return 0.0
    return float(len(left_names & right_names)) / float(len(union))


def _selected_redundancy(candidate, selected):
    graph = candidate.get("graph")
    correlation = _optional_correlation(candidate.get("correlation"))
    redundancy = 0.0 if correlation is None else abs(correlation)
    for other in selected:
        similarity = _graph_similarity(graph, other.get("graph"))
        if similarity > redundancy:
            redundancy = similarity
    return redundancy


def _diversity_adjusted_parent_score(candidate, selected, diversity_weight, parsimony_weight):
    base_score = _candidate_eliteness(candidate, 0.0, parsimony_weight)
    if diversity_weight <= 0.0:
        return base_score
    return base_score - _selected_redundancy(candidate, selected) * 5.0 * diversity_weight


def _diverse_parent_pool(
    prior, rng=None, elite_fraction=SETTING, diversity_weight=SETTING, parsimony_weight=SETTING
):
    elite_fraction = host.DEFAULT_ELITE_FRACTION if elite_fraction is SETTING else elite_fraction
    if diversity_weight is SETTING:
        diversity_weight = host.DEFAULT_DIVERSITY_WEIGHT
    if parsimony_weight is SETTING:
        parsimony_weight = host.DEFAULT_PARSIMONY_WEIGHT

    def score(item):
        return _candidate_eliteness(item, diversity_weight, parsimony_weight)

    unique_by_structure = {}
    for item in prior or []:
        graph = item.get("graph")
        if graph is None:
            continue
        key = _structural_key(graph)
        current = unique_by_structure.get(key)
        if current is None or score(item) > score(current):
            unique_by_structure[key] = item
    unique = sorted(unique_by_structure.values(), key=score, reverse=True)
    if not unique:
        return []
    target_size = round(len(unique) * elite_fraction)
    if target_size < 3:
        target_size = min(len(unique), 3)
    if target_size > len(unique):
        target_size = len(unique)
    if diversity_weight <= 0.0:
        return unique[:target_size]
    selected = [unique[0]]
    remaining = [item for item in unique[1:] if item not in selected]
    while len(selected) < target_size and remaining:
        winner = max(
            remaining,
            key=lambda item: (
                _diversity_adjusted_parent_score(
                    item, selected, diversity_weight, parsimony_weight
                ),
                score(item),
            ),
        )
        selected.append(winner)
        remaining.remove(winner)
    for item in unique:
        if len(selected) >= target_size:
            break
        if item not in selected:
            selected.append(item)
    return selected


# Composition.


def compose_next_batch(
    prior, batch_size=SETTING, rng=None, fresh_random_factory=None, elite_factory=None,
    elite_fraction=SETTING, diversity_weight=SETTING, parsimony_weight=SETTING, max_depth=None,
    validator=None,
):
    batch_size = host.DEFAULT_BATCH_SIZE if batch_size is SETTING else batch_size
    elite_fraction = host.DEFAULT_ELITE_FRACTION if elite_fraction is SETTING else elite_fraction
    if diversity_weight is SETTING:
        diversity_weight = host.DEFAULT_DIVERSITY_WEIGHT
    if parsimony_weight is SETTING:
        parsimony_weight = host.DEFAULT_PARSIMONY_WEIGHT
    batch = []
    scored_pool = sorted(
        prior or [],
        key=lambda item: host.score_candidate(
            item,
            sibling_correlations=(),
            pool_correlation=item.get("correlation"),
            diversity_weight=diversity_weight,
            parsimony_weight=parsimony_weight,
        ),
        reverse=True,
    )
    elite_pool = _diverse_parent_pool(
        scored_pool, rng=rng, elite_fraction=elite_fraction, diversity_weight=diversity_weight,
        parsimony_weight=parsimony_weight,
    )
    exploration_first = diversity_weight > 0.0
    while len(batch) < batch_size:
        added = False
        if exploration_first and fresh_random_factory is not None:
            item = _lineage_candidate_item(
                fresh_random_factory, "fresh_random", max_depth, validator
            )
            if item is not None:
                batch.append(item)
                added = True
                if len(batch) >= batch_size:
                    break
        if elite_factory is not None and elite_pool:
            item = _lineage_candidate_item(
                lambda: elite_factory(elite_pool, rng), "elite_derived", max_depth, validator
            )
            if item is not None:
                batch.append(item)
                added = True
                if len(batch) >= batch_size:
                    break
        if not exploration_first and fresh_random_factory is not None:
            item = _lineage_candidate_item(
                fresh_random_factory, "fresh_random", max_depth, validator
            )
            if item is not None:
                batch.append(item)
                added = True
                if len(batch) >= batch_size:
                    break
        if not added:
            break
    return batch[:batch_size]


# Offspring.


def _choose_operator(operator_rates, rng):
    total = sum(operator_rates.values())
    if total <= 0.0:
        raise ValueError(NO_RATE)
    target = 0.0 if rng is None else rng.random() * total
    running = 0.0
    for name in OPERATORS:
        rate = operator_rates.get(name, 0.0)
        running += rate
        if target <= running and rate > 0.0:
            return name
    for name in OPERATORS:
        if operator_rates.get(name, 0.0) > 0.0:
            return name
    raise ValueError(NO_RATE)


def _weighted_parent_index(parents, rng, diversity_weight, parsimony_weight):
    if not parents:
        raise ValueError("parent selection requires at least one parent")
    if rng is None or len(parents) == 1:
        return 0
    scores = [
        _candidate_eliteness(parent, diversity_weight, parsimony_weight) for parent in parents
    ]
    floor = min(scores)
    weights = [score - floor + 0.001 for score in scores]
    total = sum(weights)
    target = rng.random() * total
    running = 0.0
    for index, weight in enumerate(weights):
        running += weight
        if target <= running:
            return index
    return len(parents) - 1


def _data_graph_child_count(graph):
    if not isinstance(graph, Mapping):
        return 0
    return sum(
        1 for child in graph.get("children", ())
        if isinstance(child, Mapping) and child.get("type") in ("feature", "rotation")
    )


def _restore_elite_root_node(child, elite_root_node, elite_data_child_count, validator):
    if not (
        isinstance(child, Mapping)
        and elite_root_node
        and _data_graph_child_count(child) == elite_data_child_count
    ):
        return child
    original_node = child.get("node")
    child["node"] = elite_root_node
    if validator is None:
        return child
    try:
        validator(child)
    except Exception:
        child["node"] = original_node
        validator(child)
    return child


def _elite_derived_graph(
    ctx, parents, rng, operator_rates=None, elite_fraction=SETTING, diversity_weight=SETTING,
    parsimony_weight=SETTING,
):
    elite_fraction = host.DEFAULT_ELITE_FRACTION if elite_fraction is SETTING else elite_fraction
    if diversity_weight is SETTING:
        diversity_weight = host.DEFAULT_DIVERSITY_WEIGHT
    if parsimony_weight is SETTING:
        parsimony_weight = host.DEFAULT_PARSIMONY_WEIGHT
    if not parents:
        raise ValueError("elite-derived graph requires at least one parent")
    validator = _graph_validator(ctx)
    rates = _operator_rates(operator_rates)
    selection_count = round(len(parents) * elite_fraction)
    if selection_count < 1:
        selection_count = 1
    if selection_count > len(parents):
        selection_count = len(parents)
    eligible_parents = parents[:selection_count]
    if elite_fraction >= 1.0 and len(eligible_parents) >= 2:
        elite_index, mate_index = len(eligible_parents) - 1, 0
    else:
        elite_index = _weighted_parent_index(
            eligible_parents, rng, diversity_weight, parsimony_weight
        )
        mate_index = _weighted_parent_index(
            eligible_parents, rng, diversity_weight, parsimony_weight
        )
    elite_graph = eligible_parents[elite_index]["graph"]
    mate_graph = eligible_parents[mate_index % len(eligible_parents)]["graph"]
    elite_root_node = elite_graph.get("node") if isinstance(elite_graph, Mapping) else None
    elite_data_child_count = _data_graph_child_count(elite_graph)
    replacements = _fresh_random_candidates_for_rng(ctx, 3, rng)
    operation = _choose_operator(rates, rng)
    if operation == "crossover":
        child = host.crossover(elite_graph, mate_graph, rng=rng, validator=validator)
    elif operation == "point_mutation" and replacements:
        child = host.point_mutation(elite_graph, replacements, rng=rng, validator=validator)
    elif operation == "subtree_mutation" and replacements:
        child = host.subtree_mutation(elite_graph, replacements, rng=rng, validator=validator)
    else:
        hoisted = elite_graph
        if operation == "hoist_mutation":
            hoisted = host.hoist_mutation(elite_graph, rng=rng, validator=validator)
        child = copy.deepcopy(hoisted)
        if validator is not None:
            validator(child)
    child = _restore_elite_root_node(child, elite_root_node, elite_data_child_count, validator)
    if (
        operation != "crossover"
        and rates.get("crossover", 0.0) > 0.0
        and rng is not None
        and rng.random() < min(rates.get("crossover", 0.0), 1.0)
    ):
        child = host.crossover(child, mate_graph, rng=rng, validator=validator)
        child = _restore_elite_root_node(child, elite_root_node, elite_data_child_count, validator)
    return child


_GENETIC_REACTION_LOG_CONTEXT = {
    "template": "genetic", "stage": "reaction_planning", "generator": "safe_reaction_rotations",
}


def _safe_reaction_rotations(ctx):
    vocabulary = getattr(ctx, "vocabulary", {})
    if not isinstance(vocabulary, Mapping):
        return []
    functions = host._engine._function_entries_for_kind(vocabulary, "rotation")
    try:
        max_depth = int(getattr(ctx, "max_depth", 1))
    except CONVERSION:
        max_depth = 1
    window_limit = host._engine._random_weighted_window_limit(ctx, max_depth)
    node_limit = host._engine._random_weighted_node_limit(ctx)
    registry = host._engine._random_weighted_runtime_registry(ctx)
    safe = []
    for entry in host._engine._signal_generation_safe_rotations(
        functions, window_limit, node_limit, registry,
        log_context=_GENETIC_REACTION_LOG_CONTEXT, template_name="genetic",
        stage="reaction_planning", generator="safe_reaction_rotations",
    ):
        name = entry.get("name")
        if isinstance(name, str) and name:
            safe.append(copy.deepcopy(entry))
    return safe


def _safe_reaction_rotation_names(ctx):
    return {
        entry.get("name") for entry in _safe_reaction_rotations(ctx)
        if isinstance(entry.get("name"), str) and entry.get("name")
    }


# The candidates of a batch.


def _candidate_batch(ctx, config, batch_index, prior_results, force_restart=False):
    batch_size = config._batch_size
    if batch_index == 0 and config._initial_candidates is not None:
        return [_thaw_graph_data(graph) for graph in config._initial_candidates[:batch_size]]
    if batch_index == 0 or force_restart:
        rng = config._rng_for_batch()
        size = batch_size + 1 if force_restart else batch_size
        graphs = plain_graph._fresh_random_candidates(ctx, size, rng=rng)
        if force_restart and len(graphs) > batch_size:
            graphs = graphs[1:]
        config._store_rng_state(rng)
        return graphs[:batch_size]
    if not prior_results:
        rng = config._rng_for_batch()
        graphs = plain_graph._fresh_random_candidates(ctx, batch_size, rng=rng)
        config._store_rng_state(rng)
        return graphs
    rng = config._rng_for_batch()

    def fresh_random_factory():
        return {"graph": plain_graph._fresh_random_candidates(ctx, 1, rng=rng)[0]}

    def elite_factory(parents, rng):
        return {
            "graph": _elite_derived_graph(
                ctx, parents, rng, operator_rates=config._operator_rates,
                elite_fraction=config._elite_fraction,
                diversity_weight=config._diversity_weight,
                parsimony_weight=config._parsimony_weight,
            )
        }

    batch = compose_next_batch(
        prior_results,
        batch_size=batch_size,
        rng=rng,
        fresh_random_factory=fresh_random_factory,
        elite_factory=elite_factory,
        elite_fraction=config._elite_fraction,
        diversity_weight=config._diversity_weight,
        parsimony_weight=config._parsimony_weight,
        max_depth=_context_max_depth(ctx),
        validator=_graph_validator(ctx),
    )
    config._store_rng_state(rng)
    return [item["graph"] for item in batch]
