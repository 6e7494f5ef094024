#include "search_templates/genetic/submission/recording.hpp"

#include <optional>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

bool says_succeeded(const Value& last_record) {
  const std::optional<Mapping> record = as_mapping(last_record);
  return record && truth(record->get(keys::kRecordingSucceeded));
}

}  // namespace

Value candidate_rejection_reason(const Value& candidate) {
  const std::optional<Mapping> failures = as_mapping(record_of(candidate).get(keys::kFailures));
  if (!failures || failures->empty()) return {};
  MappingCursor cursor(*failures);
  return cursor.next()->key;
}

bool record_candidate_result_in_parent(SearchContext& context, const Value& candidate) {
  Mapping record = record_of(candidate);
  if (truth(record.get(keys::kParentRecorded))) return true;

  const Callable safe_record = context.safe_record();
  if (!safe_record) {
    throw RuntimeError("genetic search requires the canonical SearchContext recorder");
  }
  const bool passed = truth(record.get(keys::kPasses));
  const Value tracking = record.get(keys::kTrackingMetricKwargs);
  const Value eval_id = safe_record(
      {record.get(keys::kGraph), passed},
      {{keys::kRejectionReason, passed ? Value() : candidate_rejection_reason(candidate)},
       {keys::kStats, record.get(keys::kStats)},
       {keys::kPerColumnStats, record.get(keys::kPerColumnStats)},
       {keys::kExpressionElapsedSeconds, record.get(keys::kElapsedSimulationSeconds)},
       {keys::kTrackingMetricKwargs, truth(tracking) ? tracking : Value(Mapping())}});
  // Read in any case; what it says counts only where there is no id.
  const Value last_record = context.last_evaluation_record().value_or(Value());
  if (eval_id.is_absent() && !says_succeeded(last_record)) return false;

  record.set(keys::kParentRecorded, true);
  if (!eval_id.is_absent()) record.set(keys::kEvalId, eval_id);
  return true;
}

void record_candidate_results_in_parent(SearchContext& context, const Value& candidates) {
  const auto walk = iterate(candidates);
  while (const std::optional<Value> candidate = walk->next()) {
    if (!record_candidate_result_in_parent(context, *candidate)) {
      throw RuntimeError("genetic candidate parent evaluation persistence failed");
    }
  }
}

}  // namespace varnholt::genetic
