// Recording results in the parent: the parent process alone persists what the search found.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The first reason of a candidate's failures, as it stands; absent when there is none.
[[nodiscard]] Value candidate_rejection_reason(const Value& candidate);

// Persists one result through the host's recorder, once: the mark "_parent_recorded" makes a second
// call return true without asking the host. False when the host did not record it; then nothing is
// marked. The host may record without giving an id.
//
// A completed backtest must come with its timing (backtest_timing.hpp), which is checked before
// anything is written; together with the identity of the process when a worker produced the result.
// Of a passing candidate the pool metrics are measured before the record is written, so that the
// record holds the final verdict. The id that the host gives replaces the one in record and
// payload.
//
// AttributeError without a recorder. RuntimeError "genetic candidate is missing serialized backtest
// timing" for a passing candidate whose consumed timing is empty.
[[nodiscard]] bool record_candidate_result_in_parent(Host& host, SearchContext& context,
                                                     const Value& candidate);

// The same for each, in order. RuntimeError "genetic candidate parent evaluation persistence
// failed" at the first that is not recorded; those after it stay unrecorded.
void record_candidate_results_in_parent(Host& host, SearchContext& context,
                                        const Value& candidates);

}  // namespace varnholt::genetic
