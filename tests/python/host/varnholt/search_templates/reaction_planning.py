"""A planner without plans."""


def derive_reaction_improvements(*args, **kwargs):
    return []
