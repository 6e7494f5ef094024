"""The improvement of near misses against a second telling of its rules.

Goal: for any generation, however odd, the same answers, the same objects, the same calls of the
host in the same order, the same errors. Method: random generations (`random_results.py`); every
function is asked by both, over the same objects.
"""

import os
import random

import pytest

from plain_improvement import Improvement
from random_results import Host, Record, World

# VARNHOLT_TEST_SEED runs one seed, or a range of them, again: "7" or "1000-3000".
FIRST, _, LAST = os.environ.get("VARNHOLT_TEST_SEED", "0-119").partition("-")
SEEDS = range(int(FIRST), int(LAST or FIRST) + 1)


@pytest.fixture(params=SEEDS)
def scene(request, genetic, monkeypatch, make_context):
    """A world, its results, its host and a context, all drawn from one seed."""
    draw = random.Random(request.param)
    world = World(draw, oddity=draw.choice((0.0, 0.05, 0.15, 0.3)))
    results = world.results(draw.choice((0, 1, 2, 5, 20, 80, 150)))
    host = Host(world, results, errors=draw.choice((0.0, 0.0, 0.002)))
    host.install(genetic, monkeypatch)
    ctx = make_context(thresholds={"turnover": 1.0}, vocabulary={"functions": []})
    if draw.random() < 0.5:
        ctx._graph_validator = print
    if draw.random() < 0.5:
        ctx.max_depth = draw.choice((0, 3, "4", None))
    return draw, world, results, host, ctx


def agree(host, ours, theirs):
    """Both tell the same, with the same calls of the host."""
    outcome, log = host.outcome_of(ours)
    expected, expected_log = host.outcome_of(theirs)
    assert outcome == expected
    assert log == expected_log


def test_figures_and_keys_of_single_results(genetic, scene):
    draw, world, results, host, ctx = scene
    rules = Improvement(genetic)
    pairs = [
        (genetic._improvement_depth, rules.depth),
        (genetic._candidate_quality, rules.quality),
        (genetic._reaction_priority_key, rules.priority_key),
        (genetic._reaction_repair_priority_key, rules.repair_priority_key),
        (genetic._failure_progress_key, rules.progress_key),
        (genetic._failure_signature, rules.signature),
        (genetic._actionable_near_miss_key, rules.near_miss_key),
        (genetic._delta_exposure_peer_value,
         lambda one: rules.peer_value(one, "delta_exposure",
                                      ("delta_exposure_max", "delta_exposure_exceeded"))),
        (genetic._max_weight_peer_repair_key,
         lambda one: rules.peer_repair_key(one, "max_weight",
                                           ("max_weight_max", "max_weight_exceeded"))),
    ]
    for result in results[:20]:
        for ours, theirs in pairs:
            agree(host, lambda: ours(result), lambda: theirs(result))
        other = draw.choice(results)
        agree(host, lambda: genetic._is_improved_result(result, other),
              lambda: rules.is_improved(result, other))


def test_features_and_families_of_graphs(genetic, scene):
    _, world, _, host, _ = scene
    rules = Improvement(genetic)
    source = rules.feature_names(World(world.draw, oddity=0.0).graph())
    for _ in range(10):
        graph = world.graph()
        agree(host, lambda: sorted(genetic._graph_feature_names(graph)),
              lambda: sorted(rules.feature_names(graph)))
        agree(host, lambda: genetic._graph_root_family(graph), lambda: rules.root_family(graph))
        agree(host, lambda: genetic._numeric_repair_peer_key(graph),
              lambda: rules.numeric_key(graph))
        agree(host, lambda: genetic._peer_feature_overlap_key(source, graph),
              lambda: rules.overlap_key(source, graph))


def test_peers_in_their_order(genetic, scene):
    draw, _, results, host, _ = scene
    rules = Improvement(genetic)
    for source in draw.sample(results, min(5, len(results))):
        agree(host, lambda: genetic._reaction_peer_graphs(results, source),
              lambda: rules.peer_graphs(results, source))


def test_near_misses(genetic, scene):
    draw, world, results, host, ctx = scene
    rules = Improvement(genetic)
    size = draw.choice([1, 2, 3, 10, "2", "x", [], 1.5, -4, float("nan"), 10**30])
    agree(host, lambda: genetic._select_actionable_near_miss_parents(ctx, results, size),
          lambda: rules.select(ctx, results, size))
    agree(host, lambda: genetic._select_actionable_near_miss_parents(results, size),
          lambda: rules.select(results, size))


def test_the_source_pool(genetic, scene):
    draw, _, results, host, ctx = scene
    rules = Improvement(genetic)
    current = draw.sample(results, len(results) // 3)
    context = draw.choice((ctx, None))
    agree(host, lambda: genetic._improvement_source_pool(context, results, current, 2),
          lambda: rules.source_pool(context, results, current, 2))


def test_a_batch_of_improvements(genetic, scene):
    draw, world, results, host, ctx = scene
    rules = Improvement(genetic)
    seen = {genetic._structural_key(graph) for graph in host.replaced[:2] if plain(genetic, graph)}
    limits = {
        "max_depth": draw.choice((None, 0, 2, 4, 2.5)),
        "remaining_candidates": draw.choice((None, 0, 1, 3, 20, -1, 2.5)),
        "max_plans_per_result": draw.choice((None, 0, -1, 1, 2, "3", "x", float("nan"))),
    }
    context = draw.choice((ctx, ctx, None))
    ours, theirs = set(seen), set(seen)
    agree(host,
          lambda: genetic._derive_improvement_batch(context, results, ours, **limits),
          lambda: rules.derive_batch(context, results, theirs, **limits))
    assert ours == theirs


def plain(genetic, graph):
    try:
        genetic._structural_key(graph)
    except TypeError:
        return False
    return True


def entries(result):
    return result.entries if isinstance(result, Record) else dict(result)


def test_nothing_that_came_in_is_changed(genetic, scene):
    draw, _, results, host, ctx = scene
    before = [host.known(entries(result)) for result in results]
    for call in (
        lambda: genetic._improvement_source_pool(ctx, results, results, 3),
        lambda: genetic._derive_improvement_batch(
            ctx, results, set(), max_depth=3, remaining_candidates=None
        ),
    ):
        host.outcome_of(call)
    assert [host.known(entries(result)) for result in results] == before
