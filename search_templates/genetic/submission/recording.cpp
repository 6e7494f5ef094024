#include "search_templates/genetic/submission/recording.hpp"

#include <optional>
#include <string>

#include "search_templates/genetic/submission/backtest_timing.hpp"
#include "search_templates/genetic/submission/error_texts.hpp"
#include "search_templates/genetic/submission/submission_payload.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

bool passes(const Mapping& record) {
  return truth(record.get(keys::kPasses));
}

bool says_succeeded(const Value& last_record) {
  const std::optional<Mapping> record = as_mapping(last_record);
  return record && truth(record->get(keys::kRecordingSucceeded));
}

bool backtest_completed(const Mapping& record) {
  if (passes(record)) return true;
  const std::optional<Mapping> evidence = as_mapping(record.get(keys::kAttemptEvidence));
  return evidence && truth(evidence->get(keys::kBacktestCompleted));
}

bool has_timing(const Value& source) {
  const std::optional<Mapping> mapping = as_mapping(source);
  return mapping && !mapping->get(keys::kBacktestTiming).is_absent();
}

// The timing of a completed backtest: the one that came with the result, or else the one that this
// process remembers. An empty one becomes absent, which a passing candidate may not have.
Value completed_backtest_timing(BacktestTimings& timings, const Mapping& record) {
  const bool is_process_result = record.contains(keys::kWorkerPid);
  const bool has_serialized_timing = !record.get(keys::kBacktestTiming).is_absent() ||
                                     has_timing(record.get(keys::kAttemptEvidence)) ||
                                     has_timing(record.get(keys::kSubmissionPayload));
  // The consuming operation never gets a payload's timing here: that would be a serialized one.
  Value timing = is_process_result || has_serialized_timing
                     ? candidate_backtest_timing_payload(timings, record, is_process_result)
                     : consumed_process_backtest_timing(timings, record.get(keys::kGraph), Value());
  if (truth(timing)) return timing;
  if (passes(record)) throw RuntimeError(std::string(kMissingSerializedTiming));
  return {};
}

// Makes the attempt of a child the current one, so that the record is written to it.
void activate_attempt(SearchContext& context, const Mapping& record) {
  if (!record.contains(keys::kProcessAttempt)) return;
  const Value source_attempt_id = record.get(keys::kSourceAttemptId);
  if (source_attempt_id.is_absent()) return;
  context.activate_existing_attempt(source_attempt_id, record.get(keys::kAttemptEvidence));
}

Value tracking_metric_kwargs(const Mapping& record) {
  Value tracking = record.get(keys::kTrackingMetricKwargs);
  return truth(tracking) ? tracking : Value(Mapping());
}

Value persisted_id(const Callable& safe_record, const Mapping& record, const Value& timing) {
  const bool passed = passes(record);
  return safe_record(
      {record.get(keys::kGraph), passed},
      {{keys::kRejectionReason, passed ? Value() : candidate_rejection_reason(record)},
       {keys::kStats, record.get(keys::kStats)},
       {keys::kPerColumnStats, record.get(keys::kPerColumnStats)},
       {keys::kExpressionElapsedSeconds, record.get(keys::kElapsedSimulationSeconds)},
       {keys::kBacktestTiming, timing},
       {keys::kTrackingMetricKwargs, tracking_metric_kwargs(record)}});
}

void mark_recorded(Mapping& record, const Value& eval_id) {
  record.set(keys::kParentRecorded, true);
  if (eval_id.is_absent()) return;
  record.set(keys::kEvalId, eval_id);
  if (std::optional<Mapping> payload = as_mapping(record.get(keys::kSubmissionPayload))) {
    payload->set(keys::kEvalId, eval_id);
  }
}

}  // namespace

Value candidate_rejection_reason(const Value& candidate) {
  const Value failures = record_of(candidate).get(keys::kFailures);
  if (!truth(failures) || !as_mapping(failures)) return {};
  // A mapping of the host's may be true and yet give nothing.
  return iterate(failures)->next().value_or(Value());
}

bool record_candidate_result_in_parent(Host& host, SearchContext& context, const Value& candidate) {
  Mapping record = record_of(candidate);
  if (truth(record.get(keys::kParentRecorded))) return true;

  Value timing;
  if (backtest_completed(record)) {
    timing = completed_backtest_timing(host.backtest_timings(), record);
    // Written also where it is absent: the key says that the backtest was completed.
    record.set(keys::kBacktestTiming, timing);
  }
  activate_attempt(context, record);
  const Callable safe_record = context.required_safe_record();
  if (passes(record)) {
    static_cast<void>(ensure_candidate_submission_payload(host, context, record, true));
  }
  // Whether it passes is read again: the pool may have blocked it.
  const Value eval_id = persisted_id(safe_record, record, timing);
  // Read in any case; what it says counts only where there is no id.
  const Value last_record = context.last_evaluation_record().value_or(Value());
  if (eval_id.is_absent() && !says_succeeded(last_record)) return false;
  mark_recorded(record, eval_id);
  return true;
}

void record_candidate_results_in_parent(Host& host, SearchContext& context,
                                        const Value& candidates) {
  const auto walk = iterate(candidates);
  while (const std::optional<Value> candidate = walk->next()) {
    if (!record_candidate_result_in_parent(host, context, *candidate)) {
      throw RuntimeError(std::string(kPersistenceFailed));
    }
  }
}

}  // namespace varnholt::genetic
