#include "search_templates/genetic/evaluation/candidate_result.hpp"

#include <exception>
#include <optional>

#include "search_templates/genetic/context/verdicts.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::string_view kRecordingFailed =
    "Genetic candidate evaluation failure recording failed";

Mapping failure_record(const Value& reason, const Value& detail) {
  return {{keys::kReason, reason}, {keys::kDetail, detail}};
}

// The verdict is made even when the key is there: each of the three is a host call.
void set_default_verdicts(Mapping& tracking, EvaluationVerdicts& verdicts) {
  tracking.set_default(keys::kStatsVerdict, not_evaluated_verdict(verdicts));
  tracking.set_default(keys::kCorrelationVerdict, not_evaluated_verdict(verdicts));
  tracking.set_default(keys::kMiVerdict, not_evaluated_verdict(verdicts));
}

// The host's reason from statistics. Only a TypeError leads to the second call, without the
// keyword; the unpacking belongs to each call. Nothing when the host fails otherwise.
std::optional<std::pair<Value, Value>> derived_pair(SearchContext& context, const Callable& derive,
                                                    const Value& stats) {
  try {
    return catching(
        {ErrorKind::kTypeError},
        [&] {
          return unpack_pair(derive({stats}, {{keys::kIncludeCorrelation, false}}));
        },
        // A host that does not know the keyword is asked again.
        [&](const Error&) {
          const auto handled = context.handling(std::current_exception());
          return unpack_pair(derive({stats}));
        });
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

DerivedFailure with_reason(const Value& reason, Mapping tracking) {
  tracking.set_default(keys::kFailureReason, reason);
  Value detail = tracking.get(keys::kFailureDetail);
  return {reason, std::move(detail), std::move(tracking)};
}

// The last evaluation's record, recording the failure first when there is none.
Mapping evaluation_record(SearchContext& context, Logger& logger, const Value& graph,
                          const EvaluationFailure& failure) {
  std::optional<Mapping> record = as_mapping(context.last_evaluation_record().value_or(Value()));
  if (record) return *record;

  if (const Callable safe_record = context.safe_record()) {
    try {
      safe_record({graph, false},
                  {{keys::kRejectionReason, failure.reason},
                   {keys::kTrackingMetricKwargs, Mapping{{keys::kFailureReason, failure.reason},
                                                         {keys::kFailureDetail, failure.detail}}}});
    } catch (const std::exception&) {
      logger.warning_with_error(kRecordingFailed, std::current_exception());
    }
    // Read again whether the recording worked or not.
    record = as_mapping(context.last_evaluation_record().value_or(Value()));
  }
  return record.value_or(Mapping());
}

}  // namespace

StatisticsNumbers statistics_numbers(const Value& stats) {
  StatisticsNumbers numbers;
  numbers.sharpe = number(attribute(stats, keys::kSharpe.view()).value_or(0.0));
  // The fallback is read first, also when there is a quality score.
  const Value fallback = attribute(stats, keys::kSharpe.view()).value_or(0.0);
  numbers.quality_score = number(attribute(stats, keys::kQualityScore.view()).value_or(fallback));
  numbers.correlation =
      optional_correlation(attribute(stats, keys::kCorrelation.view()).value_or(Value()));
  return numbers;
}

EvaluationFailure evaluation_exception_failure(RuntimeReadiness& runtime, const Value& error) {
  if (runtime.is_sdk_runtime_not_ready_error(error)) {
    // One statement each, since the operands of one sum would be computed in any order.
    std::string detail = str(runtime.sdk_runtime_not_ready_rejection_detail());
    detail += " Cause: ";
    detail += type_name(error);
    detail += ": ";
    detail += str(error);
    return {reasons::kSdkRuntimeNotReady, detail};
  }
  return {reasons::kEvaluateException, text_form(error)};
}

DerivedFailure derive_candidate_failure(SearchContext& context, const Mapping& record,
                                        const Value& stats) {
  const Value recorded = record.get(keys::kTrackingMetricKwargs);
  Mapping tracking = truth(recorded) ? new_mapping(recorded) : Mapping();
  const Value rejection_reason = record.get(keys::kRejectionReason);
  const bool infer_from_stats = is_same_or_equal(rejection_reason, reasons::kEvaluateException) &&
                                !truth(record.get(keys::kPassed)) && !stats.is_absent();
  if (truth(rejection_reason) && !infer_from_stats) {
    return with_reason(rejection_reason, std::move(tracking));
  }

  const Value tracked_reason = tracking.get(keys::kFailureReason);
  if (truth(tracked_reason)) {
    return {text_form(tracked_reason), tracking.get(keys::kFailureDetail), std::move(tracking)};
  }
  if (truth(record.get(keys::kPassed)) || stats.is_absent()) {
    return {Value(), Value(), std::move(tracking)};
  }

  if (const Callable derive = context.derive_rejection_reason_detail()) {
    const auto derived = derived_pair(context, derive, stats);
    if (derived && !derived->first.is_absent()) {
      tracking.set_default(keys::kFailureReason, derived->first);
      if (!derived->second.is_absent()) {
        tracking.set_default(keys::kFailureDetail, derived->second);
      }
      return {derived->first, derived->second, std::move(tracking)};
    }
  }
  if (truth(rejection_reason)) return with_reason(rejection_reason, std::move(tracking));
  return {Value(), Value(), std::move(tracking)};
}

Mapping candidate_exception_result(Host& host, SearchContext& context, const Value& graph,
                                   const Value& error) {
  EvaluationFailure failure = evaluation_exception_failure(host.runtime_readiness(), error);
  const Mapping record = evaluation_record(context, host.logger(), graph, failure);
  const Value stats = record.get(keys::kStats);
  DerivedFailure derived = derive_candidate_failure(context, record, stats);
  Mapping& tracking = derived.tracking_metric_kwargs;
  if (derived.reason.is_absent()) {
    tracking.set_default(keys::kFailureReason, failure.reason);
    tracking.set_default(keys::kFailureDetail, failure.detail);
  } else {
    // A derived detail may be absent; it then replaces the exception's text as well.
    failure = {derived.reason, derived.detail};
  }
  set_default_verdicts(tracking, host.evaluation_verdicts());

  Mapping result(12);
  result.set(keys::kGraph, plain_graph_data(graph));
  result.set(keys::kStats, stats);
  result.set(keys::kPasses, false);
  result.set(keys::kFailures,
             Mapping{{failure.reason, failure_record(failure.reason, failure.detail)}});
  result.set(keys::kEvalId, Value());
  result.set(keys::kSubmissionPayload, Value());
  result.set(keys::kAttemptEvidence, context.current_attempt_evidence());
  result.set(keys::kPerColumnStats, record.get(keys::kPerColumnStats));
  result.set(keys::kTrackingMetricKwargs, tracking);
  const StatisticsNumbers numbers = statistics_numbers(stats);
  result.set(keys::kSharpe, numbers.sharpe);
  result.set(keys::kQualityScore, numbers.quality_score);
  result.set(keys::kCorrelation, numbers.correlation);
  return result;
}

Mapping candidate_process_evaluation_error_result(ProcessEvaluation& process_evaluation,
                                                  EvaluationVerdicts& verdicts, const Value& graph,
                                                  const Value& error) {
  Value reason = attribute(error, keys::kTerminalReason.view()).value_or(Value());
  if (!truth(reason)) reason = process_evaluation.terminal_worker_failed();
  reason = text_form(reason);
  Value detail = attribute(error, keys::kDetail.view()).value_or(Value());
  detail = text_form(truth(detail) ? detail : error);

  Mapping result(11);
  result.set(keys::kGraph, plain_graph_data(graph));
  result.set(keys::kStats, Value());
  result.set(keys::kPasses, false);
  result.set(keys::kFailures, Mapping{{reason, failure_record(reason, detail)}});
  result.set(keys::kEvalId, Value());
  result.set(keys::kSubmissionPayload, Value());
  result.set(keys::kPerColumnStats, Value());
  Mapping tracking{{keys::kFailureReason, reason}, {keys::kFailureDetail, detail}};
  set_default_verdicts(tracking, verdicts);
  result.set(keys::kTrackingMetricKwargs, tracking);
  result.set(keys::kSharpe, 0.0);
  result.set(keys::kQualityScore, 0.0);
  result.set(keys::kCorrelation, Value());
  return result;
}

List process_evaluation_error_results(ProcessEvaluation& process_evaluation,
                                      EvaluationVerdicts& verdicts, const Value& batch,
                                      const Value& error) {
  List results;
  const auto graphs = iterate(batch);
  while (const std::optional<Value> graph = graphs->next()) {
    results.append(
        candidate_process_evaluation_error_result(process_evaluation, verdicts, *graph, error));
  }
  return results;
}

bool process_evaluation_error_is_search_fatal(ProcessEvaluation& process_evaluation,
                                              const Value& error) {
  const Value reason = attribute(error, keys::kTerminalReason.view()).value_or(Value());
  // Equality alone: a reason that is not equal to itself is not fatal by being the same object.
  if (reason == process_evaluation.terminal_process_priority_failed()) return true;
  if (reason == process_evaluation.terminal_memory_budget_exceeded()) return true;
  return attribute(error, keys::kCandidateIndex.view()).value_or(Value()).is_absent();
}

}  // namespace varnholt::genetic
