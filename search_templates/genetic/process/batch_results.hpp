// What becomes of one candidate of a batch in the parent: its result, or its failure, is recorded
// there, once.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/attempt_ledger.hpp"
#include "search_templates/genetic/process/streamed_results.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The result record of a process result: a copy of its payload with the worker's identity. The copy
// is shallow, and the worker's identity is written into the submission payload as well.
[[nodiscard]] Mapping candidate_result_from_process_result(const Value& process_result);

// A result at the moment it completes. Its evidence goes to the ledger, the identity of its attempt
// into the record; then it is recorded, only then, where the batch streams, submitted, and only
// then kept among the streamed results.
void record_completed_process_result(Host& host, SearchContext& context,
                                     AttemptLedger& attempt_ledger, bool stream_submissions,
                                     const StreamedResults& streamed, const Value& process_result);

// The record of a candidate whose worker failed or took too long, recorded. Such a record is never
// submitted.
[[nodiscard]] Mapping record_isolated_failure(Host& host, SearchContext& context,
                                              AttemptLedger& attempt_ledger,
                                              const Value& candidate_index, const Value& graph,
                                              const Value& terminal_error);

}  // namespace varnholt::genetic
