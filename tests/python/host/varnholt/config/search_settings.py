"""The default settings of the small host."""

DEFAULT_BATCH_SIZE = 4
DEFAULT_RESTART_THRESHOLD = 3
DEFAULT_ELITE_FRACTION = 0.25
DEFAULT_DIVERSITY_WEIGHT = 0.5
DEFAULT_PARSIMONY_WEIGHT = 0.125
DEFAULT_OPERATOR_RATES = {
    "crossover": 0.4,
    "hoist_mutation": 0.2,
    "point_mutation": 0.3,
    "subtree_mutation": 0.1,
}
DEFAULT_PROCESS_PRIORITY = 10
