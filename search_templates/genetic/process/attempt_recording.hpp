// Recording the result of a process in the parent, and ending its attempt in the ledger.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/attempt_ledger.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Records the result of a process in the parent (submission/recording.hpp), and tells the ledger
// that the attempt has its end. RuntimeError "genetic candidate parent evaluation persistence
// failed: candidate_index=..." when the host did not record it.
void record_process_candidate_result_in_parent(Host& host, SearchContext& context,
                                               AttemptLedger& attempt_ledger,
                                               const Value& candidate_index,
                                               const Value& candidate_result);

}  // namespace varnholt::genetic
