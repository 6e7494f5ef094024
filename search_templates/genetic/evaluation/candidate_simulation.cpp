#include "search_templates/genetic/evaluation/candidate_simulation.hpp"

#include <exception>
#include <optional>

#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/submission/backtest_timing.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

Mapping failures_of(const DerivedFailure& derived) {
  Mapping failures;
  if (!truth(derived.reason)) return failures;
  Mapping failure{{keys::kReason, derived.reason}};
  // Left out when there is none, unlike in the records of exceptions.
  if (!derived.detail.is_absent()) failure.set(keys::kDetail, derived.detail);
  failures.set(derived.reason, failure);
  return failures;
}

bool backtest_completed(const Value& attempt_evidence) {
  const std::optional<Mapping> evidence = as_mapping(attempt_evidence);
  return evidence && truth(evidence->get(keys::kBacktestCompleted));
}

Mapping result_record(Host& host, SearchContext& context, const Value& graph,
                      const Mapping& outcome) {
  const Value recorded = outcome.get(keys::kRecord);
  const bool has_record = truth(recorded);
  const Value payloads = outcome.get(keys::kSubmissionPayloads);
  const Value payload = truth(payloads) ? Value(new_mapping(item(payloads, 0))) : Value();
  // A record that is none fails where it is first read, after the payloads.
  const Mapping record = has_record ? record_of(recorded) : Mapping();
  const Value stats = record.get(keys::kStats);
  const DerivedFailure derived = derive_candidate_failure(context, record, stats);

  const Mapping failures = failures_of(derived);
  const bool passed = truth(record.get(keys::kPassed));
  const Value attempt_evidence = outcome.get(keys::kAttemptEvidence);
  // Asked for a candidate that passed as well: the evidence may be the host's own mapping.
  const bool completed = backtest_completed(attempt_evidence);
  // A candidate that failed after its backtest was completed still carries its timing.
  Value timing;
  if (passed || completed) {
    timing = process_backtest_timing(host.backtest_timings(), graph, attempt_evidence, payload);
  }

  Mapping result(13);
  result.set(keys::kGraph, plain_graph_data(graph));
  result.set(keys::kStats, stats);
  result.set(keys::kPasses, passed);
  result.set(keys::kFailures, failures);
  result.set(keys::kEvalId, payload.is_absent() ? Value() : payload.mapping().get(keys::kEvalId));
  result.set(keys::kSubmissionPayload, payload);
  result.set(keys::kAttemptEvidence, attempt_evidence);
  result.set(keys::kPerColumnStats, record.get(keys::kPerColumnStats));
  result.set(keys::kTrackingMetricKwargs, derived.tracking_metric_kwargs);
  const StatisticsNumbers numbers = statistics_numbers(stats);
  result.set(keys::kSharpe, numbers.sharpe);
  result.set(keys::kQualityScore, numbers.quality_score);
  result.set(keys::kCorrelation, numbers.correlation);
  if (!timing.is_absent()) result.set(keys::kBacktestTiming, timing);
  return result;
}

}  // namespace

Mapping simulate_candidate(Host& host, SearchContext& context, const Value& graph) {
  const Callable evaluate = context.evaluate_for_template();
  if (!evaluate) {
    throw RuntimeError("genetic search requires the canonical SearchContext evaluator");
  }
  Value outcome;
  try {
    outcome = evaluate({graph});
  } catch (const std::exception& error) {
    const auto handled = context.handling(std::current_exception());
    return candidate_exception_result(host, context, graph, error_object(error));
  }
  return result_record(host, context, graph, record_of(outcome));
}

}  // namespace varnholt::genetic
