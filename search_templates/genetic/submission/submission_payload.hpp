// The payload under which a passing candidate is submitted.
#pragma once

#include <string>

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The candidate's own "eval_id" unless that is absent; otherwise "genetic-candidate-" with its
// index, or "genetic-graph-" with the first 16 hexadecimal digits of the SHA-256 of its graph's
// canonical text.
[[nodiscard]] Value candidate_eval_id(const Mapping& candidate);

// The payload of a passing candidate, absent for one that does not pass. A payload is built once;
// an existing one, from the evaluator or from an earlier call, is only completed. The candidate
// gets its checked timing as "backtest_timing".
//
// With `refresh_pool_metrics`, whose truth is read only then, the candidate is measured against the
// signal pool last (pool_metric_refresh.hpp), after which it may no longer pass: then the result is
// absent, and the payload stays on the candidate.
//
// What backtest_timing.hpp and the host throw propagates.
[[nodiscard]] Value ensure_candidate_submission_payload(Host& host, SearchContext& context,
                                                        Mapping& candidate,
                                                        const Value& refresh_pool_metrics = false);

}  // namespace varnholt::genetic
