"""Breeding: which candidates become parents, what comes of them, how a batch is put together."""

from varnholt.search_templates.genetic import (
    DEFAULT_BATCH_SIZE,
    DEFAULT_DIVERSITY_WEIGHT,
    DEFAULT_ELITE_FRACTION,
    DEFAULT_PARSIMONY_WEIGHT,
    _host,
    _native,
)


def _candidate_eliteness(candidate, diversity_weight, parsimony_weight):
    """Return the host's score of a candidate."""
    return _native.candidate_eliteness(_host, candidate, diversity_weight, parsimony_weight)


def _graph_node_names(graph):
    """Return the set of the texts under "node" anywhere in the graph."""
    return _native.graph_node_names(graph)


def _graph_similarity(left, right):
    """Return the share of node names that two graphs have in common, from 0.0 to 1.0."""
    return _native.graph_similarity(left, right)


def _selected_redundancy(candidate, selected):
    """Return the greater of the candidate's absolute correlation and its likeness to others."""
    return _native.selected_redundancy(candidate, selected)


def _diversity_adjusted_parent_score(candidate, selected, diversity_weight, parsimony_weight):
    """Return the candidate's score, less what it repeats of those selected."""
    return _native.diversity_adjusted_parent_score(
        _host, candidate, selected, diversity_weight, parsimony_weight
    )


def _diverse_parent_pool(
    prior,
    rng=None,
    elite_fraction=DEFAULT_ELITE_FRACTION,
    diversity_weight=DEFAULT_DIVERSITY_WEIGHT,
    parsimony_weight=DEFAULT_PARSIMONY_WEIGHT,
):
    """Return the candidates to breed from, best first. Nothing is drawn from rng."""
    return _native.diverse_parent_pool(
        _host, prior, elite_fraction, diversity_weight, parsimony_weight
    )


def compose_next_batch(
    prior,
    batch_size=DEFAULT_BATCH_SIZE,
    rng=None,
    fresh_random_factory=None,
    elite_factory=None,
    elite_fraction=DEFAULT_ELITE_FRACTION,
    diversity_weight=DEFAULT_DIVERSITY_WEIGHT,
    parsimony_weight=DEFAULT_PARSIMONY_WEIGHT,
    max_depth=None,
    validator=None,
):
    """Return at most batch_size candidate items, fresh ones and offspring by turns.

    fresh_random_factory() and elite_factory(parents, rng) make an item each, a mapping with the
    key "graph"; either may be None. An item that is too deep or that the validator refuses is left
    out, and so is one whose factory fails. A round without any item ends the batch short.
    """
    return _native.compose_next_batch(
        _host,
        prior,
        batch_size,
        rng,
        fresh_random_factory,
        elite_factory,
        elite_fraction,
        diversity_weight,
        parsimony_weight,
        max_depth,
        validator,
    )


def _choose_operator(operator_rates, rng):
    """Return the name of an operator, drawn by its rate; the first with a rate without rng."""
    return _native.choose_operator(operator_rates, rng)


def _weighted_parent_index(parents, rng, diversity_weight, parsimony_weight):
    """Return the index of a parent, drawn by its score; 0 without rng or with one parent."""
    return _native.weighted_parent_index(_host, parents, rng, diversity_weight, parsimony_weight)


def _elite_derived_graph(
    ctx,
    parents,
    rng,
    operator_rates=None,
    elite_fraction=DEFAULT_ELITE_FRACTION,
    diversity_weight=DEFAULT_DIVERSITY_WEIGHT,
    parsimony_weight=DEFAULT_PARSIMONY_WEIGHT,
):
    """Return a graph bred from the parents, which come best first."""
    return _native.elite_derived_graph(
        _host,
        ctx,
        parents,
        rng,
        operator_rates,
        elite_fraction,
        diversity_weight,
        parsimony_weight,
    )


def _data_graph_child_count(graph):
    """Return how many children of the graph are features or rotations."""
    return _native.data_graph_child_count(graph)


def _restore_elite_root_node(child, elite_root_node, elite_data_child_count, validator):
    """Put the elite's root on the child, in place, where it fits; return the same child."""
    return _native.restore_elite_root_node(
        child, elite_root_node, elite_data_child_count, validator
    )


def _safe_reaction_rotations(ctx):
    """Return deep copies of the rotations that the host calls safe, the named ones."""
    return _native.safe_reaction_rotations(_host, ctx)


def _safe_reaction_rotation_names(ctx):
    """Return the set of the names of those rotations."""
    return _native.safe_reaction_rotation_names(_host, ctx)
