"""Parents, breeding and batches against plain Python versions of them.

Goal: the same answers, objects, errors with what they carry, draws, and questions to the host and
to the scores. Method: random scenes, played twice (differences.py); a difference prints its seed.
"""

from fractions import Fraction

import plain_graph
import plain_population
from differences import Scenes
from host_scenes import (
    config, depth_engine, fresh, generator, operators, parent, parents, scores, validator, weight,
)

scenes = Scenes(plain_population, plain_graph)


@scenes.of("_candidate_eliteness")
def _(w):
    scores(w)
    return (parent(w) if w.chance(0.9) else w.odd(), weight(w), weight(w))


@scenes.of("_graph_node_names", "_data_graph_child_count")
def _(w):
    return (w.graph(3, 0.1),)


@scenes.of("_graph_similarity")
def _(w):
    return (w.graph(2, 0.05), w.graph(2, 0.05))


@scenes.of("_selected_redundancy")
def _(w):
    record = parent(w)
    if type(record) is dict:
        record["correlation"] = w.number()
    return (record, w.either(lambda: parents(w, 2), lambda: (parent(w),)))


@scenes.of("_diversity_adjusted_parent_score")
def _(w):
    scores(w)
    return (parent(w), w.either(lambda: parents(w, 2), lambda: (parent(w),)), weight(w), weight(w))


@scenes.of("_diverse_parent_pool")
def _(w):
    scores(w)
    return (w.either(None, lambda: parents(w, 8), lambda: parents(w)), w.odd(),
            w.draw.choice([0.25, 0.5, 1.0, 1, Fraction(1, 3), True]), weight(w), weight(w))


@scenes.of("_choose_operator")
def _(w):
    rates = {
        name: w.either(0.5, 0, 1, 0.25)
        for name in ("crossover", "point_mutation", "subtree_mutation", "hoist_mutation", "other")
        if w.chance(0.8)
    }
    return (w.dressed(rates), w.either(None, lambda: generator(w)))


@scenes.of("_weighted_parent_index")
def _(w):
    scores(w)
    found = w.draw.choice([parents(w), [parent(w)], []])
    return (found, w.draw.choice([None, generator(w)]), weight(w), weight(w))


@scenes.of("_restore_elite_root_node")
def _(w):
    return (w.graph(1, 0.1), w.either("root", ""), w.either(0, 1, 2), validator(w, 0.5))


@scenes.of("_fresh_random_candidates")
def _(w):
    fresh(w)
    return (w.odd(), w.either(0, 1, 2, 5), w.odd())


@scenes.of("_fresh_random_candidates_for_rng")
def _(w):
    fresh(w)
    return (w.odd(), w.draw.choice([0, 1, 2, 5]), w.odd())


@scenes.of("_elite_derived_graph")
def _(w):
    scores(w)
    fresh(w)
    operators(w)
    ctx = w.namespace("ctx", 0.3, _graph_validator=w.either(
        None, lambda: w.operation("validator", failing=0.2)))
    return (
        ctx, w.draw.choice([parents(w), [parent(w)]]), w.draw.choice([None, generator(w)]),
        w.either(None, lambda: {"crossover": w.number(), "hoist_mutation": 1}),
        w.draw.choice([0.5, 1.0, 1, Fraction(1, 2)]), weight(w), weight(w),
    )


@scenes.of("_safe_reaction_rotations", "_safe_reaction_rotation_names")
def _(w):
    def rotation():
        return w.mapping(name=lambda: w.either("a", "b", ""), x=w.odd)

    w.patch("_engine", w.namespace(
        "engine", 0.05,
        _function_entries_for_kind=w.operation("entries", lambda *_: w.odd()),
        _random_weighted_window_limit=w.operation("window", lambda *_: w.odd()),
        _random_weighted_node_limit=w.operation("nodes", lambda *_: w.odd()),
        _random_weighted_runtime_registry=w.operation("registry", lambda *_: w.odd()),
        _signal_generation_safe_rotations=w.operation("rotations", lambda *_, **__: w.either(
            lambda: [rotation() for _ in range(3)], lambda: iter([{"name": "n"}]))),
    ))
    return (w.namespace("ctx", 0.2, vocabulary=w.either(lambda: {"functions": []}),
                        max_depth=w.number()),)


@scenes.of("compose_next_batch")
def _(w):
    scores(w)
    depth_engine(w)
    return (
        w.either(None, lambda: parents(w, 5)), w.either(0, 1, 2, 4), w.odd(),
        w.either(None, lambda: w.operation(
            "fresh", lambda: {"graph": w.graph(1, 0.02)}, w.odd, failing=0.2)),
        w.either(None, lambda: w.operation(
            "elite", lambda *_: {"graph": w.graph(1, 0.02)}, failing=0.2)),
        w.draw.choice([0.5, 1.0, Fraction(1, 3)]), weight(w), weight(w), w.either(None, 3),
        validator(w),
    )


@scenes.of("_candidate_batch")
def _(w):
    scores(w)
    depth_engine(w)
    fresh(w)
    operators(w)
    ctx = w.namespace("ctx", 0.3, _graph_validator=w.either(
        None, lambda: w.operation("validator", lambda _: True, failing=0.2)),
        max_depth=w.number())
    index = w.draw.choice([0, 1, 2, 0.0, True, "0", None])
    prior = w.draw.choice([parents(w), [], None])
    force_restart = w.draw.choice([False, True, 0, 1, "x"])
    return (ctx, config(w), index, prior), {"force_restart": force_restart}


@scenes.of("_run_deduplicated_batch")
def _(w):
    fresh(w)
    graphs = w.either(lambda: [w.graph(1, 0.03) for _ in range(5)],
                      lambda: (w.graph(1, 0.02),))
    return (w.odd(), config(w), graphs, set())


@scenes.cases(80)
def test_equal_to_plain_python(genetic, name, oddity, seeds):
    scenes.compare(genetic, name, oddity, seeds)
