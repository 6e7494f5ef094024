// Measuring a candidate against the signal pool right before it is recorded and submitted.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Measures mutual information and correlation anew and leaves the candidate in one of four states:
//
//   pending        "_submission_pending_reason" is "pool_metrics_refresh_required" and both
//                  verdicts are those of what was not evaluated: the pool's data is not ready
//   blocked        on mutual information, "_submission_blocked_reason" is
//                  "pnl_mi_below_threshold" and `passes` is false
//   blocked        on correlation, the same with "correlation_exceeded"
//   clear          neither is set by this call, and both verdicts passed
//
// The stale metrics are wiped first, before anything can fail, so that they never reach a
// submission. A failed gate on mutual information wins, whatever the correlation. The effects of an
// earlier call are not undone: `passes` stays false, and only the pending mark lifts a block.
//
// A failure of the host, other than the two that mean "not ready", propagates after the wipe.
void refresh_candidate_submission_pool_metrics(Host& host, SearchContext& context,
                                               Mapping& candidate, Mapping& payload);

}  // namespace varnholt::genetic
