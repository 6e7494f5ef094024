"""From a passing result to its submission: measuring, recording, ranking, enqueueing."""

from varnholt.search_templates.genetic import _host, _native


def _candidate_stats_payload(ctx, candidate):
    """Return the candidate's statistics as a submission carries them."""
    return _native.candidate_stats_payload(_host, ctx, candidate)


def _submission_mi_failure_detail(ctx, score):
    """Return the host's detail of a failed gate on mutual information."""
    return _native.submission_mi_failure_detail(_host, ctx, score)


def _block_candidate_submission(candidate, reason, detail=None):
    """End the candidate's passing: a failure, a failed verdict, and the blocked reason."""
    return _native.block_candidate_submission(_host, candidate, reason, detail)


def _set_candidate_mi_tracking(ctx, candidate, score):
    """Write the mutual information and its passed verdict."""
    return _native.set_candidate_mi_tracking(_host, ctx, candidate, score)


def _set_candidate_correlation_tracking(ctx, candidate, correlation):
    """Write the correlation and its passed verdict."""
    return _native.set_candidate_correlation_tracking(_host, ctx, candidate, correlation)


def _mark_candidate_pool_metrics_pending(candidate, payload, detail):
    """Mark both: the pool metrics cannot be computed yet."""
    return _native.mark_candidate_pool_metrics_pending(candidate, payload, detail)


def _clear_candidate_pool_metrics_pending(candidate, payload):
    """Take the mark from both."""
    return _native.clear_candidate_pool_metrics_pending(candidate, payload)


def _refresh_candidate_submission_pool_metrics(ctx, candidate, payload):
    """Measure the candidate against the signal pool: it ends clear, blocked or pending."""
    return _native.refresh_candidate_submission_pool_metrics(_host, ctx, candidate, payload)


def _candidate_eval_id(candidate):
    """Return the candidate's evaluation id, or one made of its index or its graph."""
    return _native.candidate_eval_id(candidate)


def _ensure_candidate_submission_payload(ctx, candidate, *, refresh_pool_metrics=False):
    """Return the payload of a passing candidate, built once and then completed, or None."""
    return _native.ensure_candidate_submission_payload(_host, ctx, candidate, refresh_pool_metrics)


def _candidate_rejection_reason(candidate):
    """Return the first reason of the candidate's failures, or None."""
    return _native.candidate_rejection_reason(candidate)


def _record_candidate_result_in_parent(ctx, candidate):
    """Record one result once; tell whether it is recorded."""
    return _native.record_candidate_result_in_parent(_host, ctx, candidate)


def _record_candidate_results_in_parent(ctx, candidates):
    """Record each result; RuntimeError at the first that the host does not record."""
    return _native.record_candidate_results_in_parent(_host, ctx, candidates)


def rank_submittable_candidates(candidates):
    """Return the passing candidates in a new list: best score, lowest index, smallest graph."""
    return _native.rank_submittable_candidates(_host, candidates)


def _submit_candidate(ctx, candidate):
    """Enqueue the payload of one recorded candidate, once."""
    return _native.submit_candidate(_host, ctx, candidate)


def _submit_submittable_candidates(ctx, candidates):
    """Enqueue the passing candidates, best first."""
    return _native.submit_submittable_candidates(_host, ctx, candidates)
