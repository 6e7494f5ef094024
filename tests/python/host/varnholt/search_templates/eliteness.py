"""Scores of candidates."""


def score_candidate(
    candidate, *, sibling_correlations, pool_correlation, diversity_weight, parsimony_weight
):
    return candidate.get("quality_score", 0.0)
