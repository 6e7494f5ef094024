"""Pool metrics, timings, recording and submission against plain Python versions of them.

Goal: the same answers, objects, errors with what they carry, changes of records, and questions to
the host. Method: random scenes, played twice (differences.py); a difference prints its seed.
"""

import plain_submission
from differences import Scenes
from host_scenes import (
    candidate, evidence, payload, scores, submission_context, submission_engine, timing, timings,
)

scenes = Scenes(plain_submission)


@scenes.of("_submission_mi_failure_detail")
def _(w):
    submission_engine(w, 0.6)
    return (submission_context(w), w.number())


@scenes.of("_block_candidate_submission")
def _(w):
    submission_engine(w, 0.6)
    return (candidate(w), w.either("pnl_mi_below_threshold", "correlation_exceeded", "x"),
            w.either(None, lambda: w.mapping(value=w.number, threshold=w.number)))


@scenes.of("_set_candidate_mi_tracking", "_set_candidate_correlation_tracking")
def _(w):
    submission_engine(w, 0.6)
    return (submission_context(w), candidate(w), w.number())


@scenes.of("_mark_candidate_pool_metrics_pending")
def _(w):
    return (candidate(w), payload(w), w.odd())


@scenes.of("_clear_candidate_pool_metrics_pending")
def _(w):
    return (candidate(w), payload(w))


@scenes.of("_refresh_candidate_submission_pool_metrics")
def _(w):
    submission_engine(w)
    return (submission_context(w), candidate(w), payload(w))


@scenes.of("_validated_process_backtest_timing")
def _(w):
    timings(w)
    return (timing(w),)


@scenes.of("_consumed_process_backtest_timing")
def _(w):
    timings(w)
    return (w.graph(1), payload(w) if w.chance(0.8) else w.odd())


@scenes.of(
    "_validated_graph_process_backtest_timing", "_validated_graph_backtest_timing",
    "_graph_bound_process_backtest_timing",
)
def _(w):
    timings(w)
    return (w.graph(1), timing(w))


@scenes.of("_process_backtest_timing")
def _(w):
    timings(w)
    return (w.graph(1), evidence(w), payload(w))


@scenes.of("_candidate_backtest_timing_payload")
def _(w):
    timings(w)
    return (w.odd(), candidate(w)), {"require_process_identity": w.either(True, False)}


@scenes.of("_candidate_eval_id", "_candidate_rejection_reason")
def _(w):
    return (candidate(w) if w.chance(0.9) else w.odd(),)


@scenes.of("_ensure_candidate_submission_payload")
def _(w):
    timings(w)
    submission_engine(w)
    return (submission_context(w), candidate(w)), {"refresh_pool_metrics": w.either(True, False)}


@scenes.of("_record_candidate_result_in_parent", "_submit_candidate")
def _(w):
    timings(w)
    submission_engine(w)
    return (submission_context(w), candidate(w))


@scenes.of("_record_candidate_results_in_parent")
def _(w):
    timings(w)
    submission_engine(w)
    return (submission_context(w), w.either(
        lambda: [candidate(w), candidate(w)], lambda: (candidate(w),)))


@scenes.of("rank_submittable_candidates")
def _(w):
    scores(w)
    return (w.either(lambda: [candidate(w) for _ in range(5)],
                     lambda: iter([candidate(w) for _ in range(3)])),)


@scenes.of("_submit_submittable_candidates")
def _(w):
    scores(w)
    timings(w)
    submission_engine(w)
    return (submission_context(w), [candidate(w) for _ in range(3)])


@scenes.cases(80)
def test_equal_to_plain_python(genetic, name, oddity, seeds):
    scenes.compare(genetic, name, oddity, seeds)
