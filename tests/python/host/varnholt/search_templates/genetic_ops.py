"""Operators that change nothing but the one draw that each of them makes."""

import copy


def crossover(first, second, *, rng, validator):
    return _drawn(first, rng, validator)


def hoist_mutation(graph, *, rng, validator):
    return _drawn(graph, rng, validator)


def point_mutation(graph, replacements, *, rng, validator):
    return _drawn(graph, rng, validator)


def subtree_mutation(graph, replacements, *, rng, validator):
    return _drawn(graph, rng, validator)


def _drawn(graph, rng, validator):
    if rng is not None:
        rng.random()
    child = copy.deepcopy(graph)
    if validator is not None:
        validator(child)
    return child
