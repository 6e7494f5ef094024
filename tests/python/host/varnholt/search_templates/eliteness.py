"""Scores of candidates."""


def score_candidate(
    candidate,
    *,
    sibling_correlations,
    pool_correlation,
    diversity_weight=0.0,
    parsimony_weight=0.0,
):
    return candidate.get("quality_score", 0.0)
