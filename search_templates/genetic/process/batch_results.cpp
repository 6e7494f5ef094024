#include "search_templates/genetic/process/batch_results.hpp"

#include <optional>

#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/process/attempt_recording.hpp"
#include "search_templates/genetic/submission/submitting.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

Mapping candidate_result_from_process_result(const Value& process_result) {
  const auto read = [&process_result](Key name) {
    return required_attribute(process_result, name.view());
  };
  Mapping result = new_mapping(read(keys::kPayload));
  result.set_default(keys::kCandidateIndex, read(keys::kCandidateIndex));
  result.set(keys::kWorkerPid, read(keys::kWorkerPid));
  result.set(keys::kElapsedSimulationSeconds, read(keys::kElapsedSimulationSeconds));
  result.set(keys::kProcessAttempt, read(keys::kAttempt));
  if (std::optional<Mapping> payload = as_mapping(result.get(keys::kSubmissionPayload))) {
    payload->set_default(keys::kWorkerPid, read(keys::kWorkerPid));
  }
  return result;
}

// All bookkeeping is by the index of the process result, whatever index the record has.
void record_completed_process_result(Host& host, SearchContext& context,
                                     AttemptLedger& attempt_ledger, bool stream_submissions,
                                     const StreamedResults& streamed, const Value& process_result) {
  const auto candidate_index = [&process_result] {
    return required_attribute(process_result, keys::kCandidateIndex.view());
  };
  Mapping result = candidate_result_from_process_result(process_result);
  attempt_ledger.apply_child_evidence(candidate_index(), result.get(keys::kAttemptEvidence));
  const Value expected_attempt_id = attempt_ledger.source_attempt_id(candidate_index());
  if (!expected_attempt_id.is_absent()) {
    result.set(keys::kSourceAttemptId, expected_attempt_id);
    if (std::optional<Mapping> payload = as_mapping(result.get(keys::kSubmissionPayload))) {
      payload->set(keys::kPayloadSourceAttemptId, expected_attempt_id);
    }
  }
  record_process_candidate_result_in_parent(host, context, attempt_ledger, candidate_index(),
                                            result);
  if (stream_submissions) submit_candidate(host, context, result);
  streamed.current().set(candidate_index(), result);
}

Mapping record_isolated_failure(Host& host, SearchContext& context, AttemptLedger& attempt_ledger,
                                const Value& candidate_index, const Value& graph,
                                const Value& terminal_error) {
  Mapping result = candidate_process_evaluation_error_result(
      host.process_evaluation(), host.evaluation_verdicts(), graph, terminal_error);
  const Mapping tracking = record_of(result.at(keys::kTrackingMetricKwargs));
  const Value failure_reason = tracking.at(keys::kFailureReason);
  const Value failure_detail = tracking.get(keys::kFailureDetail);
  const Value source_attempt_id = attempt_ledger.source_attempt_id(candidate_index);
  if (!source_attempt_id.is_absent()) result.set(keys::kSourceAttemptId, source_attempt_id);
  // The record has no `process_attempt`: the recorder does not activate the attempt for it.
  result.set(keys::kAttemptEvidence,
             attempt_ledger.failure_evidence(candidate_index, failure_reason, failure_detail));
  record_process_candidate_result_in_parent(host, context, attempt_ledger, candidate_index, result);
  return result;
}

}  // namespace varnholt::genetic
