// The steps of the ledger that are functions of their own: opening a marker for a candidate under
// way, and recording a result of a process.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/attempt_ledger.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Opens the host's marker for a candidate that was started, in the parent, and returns its
// identity. Absent, without a call, for another event, for anything but a mapping, and for a
// candidate without a graph.
[[nodiscard]] Value write_parent_process_evaluation_attempt_marker(Host& host,
                                                                   SearchContext& context,
                                                                   const Value& event);

// Records the result of a process in the parent (submission/recording.hpp), and tells the ledger
// that the attempt has its end. RuntimeError "genetic candidate parent evaluation persistence
// failed: candidate_index=..." when the host did not record it.
void record_process_candidate_result_in_parent(Host& host, SearchContext& context,
                                               AttemptLedger& attempt_ledger,
                                               const Value& candidate_index,
                                               const Value& candidate_result);

}  // namespace varnholt::genetic
