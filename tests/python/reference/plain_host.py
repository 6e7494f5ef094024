"""The host's modules and operations, as the plain versions see them.

`bind` takes over what stands in the module under test at the moment, so that both ask one host.
"""

NAMES = (
    "_engine", "_process_evaluation", "_reaction_planning", "_search_settings",
    "_evaluate_threshold_gates", "score_candidate", "crossover", "hoist_mutation",
    "point_mutation", "subtree_mutation", "_random_weighted_graphs",
)
CONSTANTS = (
    "DEFAULT_BATCH_SIZE", "DEFAULT_RESTART_THRESHOLD", "DEFAULT_ELITE_FRACTION",
    "DEFAULT_DIVERSITY_WEIGHT", "DEFAULT_PARSIMONY_WEIGHT", "DEFAULT_OPERATOR_RATES",
    "_PROCESS_TERMINAL_FAILURE_REASONS",
)


def bind(module):
    globals().update({name: getattr(module, name) for name in NAMES + CONSTANTS})
