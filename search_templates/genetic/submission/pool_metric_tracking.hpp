// What a measurement against the signal pool leaves on a candidate's record.
//
// Two metrics are measured before a passing candidate is submitted: the mutual information of its
// PnL, and its correlation. These functions make the changes to the record that follow: a passed
// verdict, a block with a failure, or the mark that the metrics cannot be computed yet.
//
// `tracking_metric_kwargs` and `failures` are created where the record has none. TypeError where
// they are not mappings.
#pragma once

#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/host/pool_thresholds.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The host's detail of a failed gate on mutual information. The search invents neither thresholds
// nor failure evidence: RuntimeError "genetic search requires canonical PnL-MI thresholds" or
// "genetic search requires canonical failure evidence" where the host lacks the operation.
[[nodiscard]] Value submission_mi_failure_detail(Gates& gates, PoolThresholds& thresholds,
                                                 SearchContext& context, const Value& score);

// The candidate does not pass any more: a failure under `reason`, a failed verdict, and
// "_submission_blocked_reason".
void block_candidate_submission(Gates& gates, Mapping& candidate, const Value& reason,
                                const Value& detail = Value());

// A measured metric with its passed verdict. The two differ on purpose: the threshold of mutual
// information is asked for only with an era configuration and a pool name, is given the context's
// thresholds, and counts as absent when asking fails; that of the correlation is always asked for,
// and a failure propagates.
void set_candidate_mi_tracking(Gates& gates, PoolThresholds& thresholds, SearchContext& context,
                               Mapping& candidate, const Value& score);
void set_candidate_correlation_tracking(Gates& gates, PoolThresholds& thresholds,
                                        SearchContext& context, Mapping& candidate,
                                        const Value& correlation);

// The metrics cannot be computed yet. The mark lifts an earlier block, but neither `failures` nor
// `passes` is undone.
void mark_candidate_pool_metrics_pending(Mapping& candidate, Mapping& payload, const Value& detail);
// The metrics are computed: the mark is removed. An earlier block stays.
void clear_candidate_pool_metrics_pending(Mapping& candidate, Mapping& payload);

// The mapping under `key` in a record, created when the key is missing.
[[nodiscard]] Mapping mapping_made_when_missing(Mapping& record, Key key);

}  // namespace varnholt::genetic
