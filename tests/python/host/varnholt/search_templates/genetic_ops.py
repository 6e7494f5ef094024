"""Operators that change nothing."""


def crossover(first, second, rng):
    return first


def hoist_mutation(graph, rng):
    return graph


def point_mutation(graph, rng):
    return graph


def subtree_mutation(graph, rng):
    return graph
