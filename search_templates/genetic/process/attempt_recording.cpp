#include "search_templates/genetic/process/attempt_recording.hpp"

#include <string>

#include "search_templates/genetic/submission/error_texts.hpp"
#include "search_templates/genetic/submission/recording.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
void record_process_candidate_result_in_parent(Host& host, SearchContext& context,
                                               AttemptLedger& attempt_ledger,
                                               const Value& candidate_index,
                                               const Value& candidate_result) {
  if (!record_candidate_result_in_parent(host, context, candidate_result)) {
    attempt_ledger.acknowledge_parent_persistence_failure(candidate_index);
    throw RuntimeError(std::string(kPersistenceFailed) +
                       ": candidate_index=" + str(to_integer(candidate_index)));
  }
  attempt_ledger.mark_parent_finalized(candidate_index);
}

}  // namespace varnholt::genetic
