#include "search_templates/genetic/submission/pool_metric_tracking.hpp"

#include <array>
#include <exception>
#include <optional>

#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/context/thresholds.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr const char* kThresholdsRequired = "genetic search requires canonical PnL-MI thresholds";
constexpr const char* kEvidenceRequired = "genetic search requires canonical failure evidence";

void remove_pool_failure_reason(Mapping& tracking) {
  if (!is_member(POOL_FAILURE_REASONS, tracking.get(keys::kFailureReason))) return;
  tracking.erase(keys::kFailureReason);
  tracking.erase(keys::kFailureDetail);
}

Value failed_verdict(Gates& gates, const Value& reason, const Value& detail) {
  GateOutcome outcome{.passed = false, .reason = reason, .detail = detail};
  if (const VerdictOperation failed_gate_verdict = gates.find_failed_gate_verdict()) {
    if (const std::optional<Mapping> evidence = as_mapping(detail)) {
      outcome.value = evidence->get(keys::kValue);
      outcome.threshold = evidence->get(keys::kThreshold);
    }
    return failed_gate_verdict(outcome);
  }
  if (const VerdictOperation gate_verdict = gates.find_gate_verdict()) {
    return gate_verdict(outcome);
  }
  return Mapping{{keys::kPassed, false}, {keys::kReason, reason}};
}

Value passed_verdict(Gates& gates, const Value& value, const Value& threshold) {
  if (const VerdictOperation gate_verdict = gates.find_gate_verdict()) {
    return gate_verdict({.passed = true, .value = value, .threshold = threshold});
  }
  return Mapping{{keys::kPassed, true},
                 {keys::kReason, Value()},
                 {keys::kValue, value},
                 {keys::kThreshold, threshold}};
}

Value mi_threshold(Gates& gates, PoolThresholds& thresholds, SearchContext& context) {
  const MiThresholdOperation threshold_and_pool =
      thresholds.find_submission_mi_threshold_and_pool();
  const Value era_config = context_era_config(context);
  const Value pool_name = context_value(context, context_names::kSignalPoolName);
  if (!threshold_and_pool || era_config.is_absent() || !truth(pool_name)) return {};
  try {
    return item(threshold_and_pool(era_config, pool_name, context_thresholds(context, gates)), 0);
  } catch (const std::exception&) {
    return {};  // The metric has passed; only what is told about it is poorer.
  }
}

Value correlation_threshold(PoolThresholds& thresholds, SearchContext& context) {
  const CorrelationThresholdOperation threshold_and_pool =
      thresholds.find_submission_correlation_threshold_and_pool();
  const Value era_config = context_era_config(context);
  const Value pool_name = context_value(context, context_names::kSignalPoolName);
  if (!threshold_and_pool) return {};
  return item(threshold_and_pool(era_config, pool_name), 0);
}

}  // namespace

Mapping mapping_made_when_missing(Mapping& record, Key key) {
  return expected_record(record.set_default(key, Mapping()));
}

Value submission_mi_failure_detail(Gates& gates, PoolThresholds& thresholds, SearchContext& context,
                                   const Value& score) {
  const MiThresholdOperation threshold_and_pool =
      thresholds.find_submission_mi_threshold_and_pool();
  if (!threshold_and_pool) throw RuntimeError(kThresholdsRequired);
  // One statement each: the operands of one call would be read in any order.
  const Value era_config = context_era_config(context);
  const Value pool_name = context_value(context, context_names::kSignalPoolName);
  const Value threshold =
      unpack_pair(threshold_and_pool(era_config, pool_name, context_thresholds(context, gates)))
          .first;
  const DetailOperation recorded_failure_detail = gates.find_recorded_failure_detail();
  if (!recorded_failure_detail) throw RuntimeError(kEvidenceRequired);
  return recorded_failure_detail({.reason = reasons::kPnlMiBelowThreshold,
                                  .metric = keys::kIsPnlMi,
                                  .value = score,
                                  .threshold = threshold,
                                  .gate = "is_pnl_mi_threshold",
                                  .comparison = "<",
                                  .category = "quality"});
}

void block_candidate_submission(Gates& gates, Mapping& candidate, const Value& reason,
                                const Value& detail) {
  candidate.set(keys::kPasses, false);
  Mapping failure{{keys::kReason, reason}};
  if (!detail.is_absent()) failure.set(keys::kDetail, detail);
  mapping_made_when_missing(candidate, keys::kFailures).set(reason, failure);

  Mapping tracking = mapping_made_when_missing(candidate, keys::kTrackingMetricKwargs);
  // The tracking values know the failed gate on mutual information by another name.
  tracking.set(keys::kFailureReason, is_same_or_equal(reason, reasons::kPnlMiBelowThreshold)
                                         ? Value(reasons::kPnlMi)
                                         : reason);
  if (detail.is_absent()) {
    tracking.erase(keys::kFailureDetail);
  } else {
    tracking.set(keys::kFailureDetail, detail);
  }
  // Every reason but the correlation's is a verdict on mutual information, on purpose.
  const Key verdict_key = is_same_or_equal(reason, reasons::kCorrelationExceeded)
                              ? keys::kCorrelationVerdict
                              : keys::kMiVerdict;
  tracking.set(verdict_key, failed_verdict(gates, reason, detail));
  candidate.set(keys::kSubmissionBlockedReason, reason);
}

void set_candidate_mi_tracking(Gates& gates, PoolThresholds& thresholds, SearchContext& context,
                               Mapping& candidate, const Value& score) {
  Mapping tracking = mapping_made_when_missing(candidate, keys::kTrackingMetricKwargs);
  tracking.set(keys::kPnlMi, score);
  const Value threshold = mi_threshold(gates, thresholds, context);
  tracking.set(keys::kMiVerdict, passed_verdict(gates, score, threshold));
}

void set_candidate_correlation_tracking(Gates& gates, PoolThresholds& thresholds,
                                        SearchContext& context, Mapping& candidate,
                                        const Value& correlation) {
  Mapping tracking = mapping_made_when_missing(candidate, keys::kTrackingMetricKwargs);
  tracking.set(keys::kCorrelation, correlation);
  const Value threshold = correlation_threshold(thresholds, context);
  tracking.set(keys::kCorrelationVerdict, passed_verdict(gates, correlation, threshold));
}

void mark_candidate_pool_metrics_pending(Mapping& candidate, Mapping& payload,
                                         const Value& detail) {
  candidate.set(keys::kSubmissionPendingReason, reasons::kPoolMetricsRefreshRequired);
  candidate.erase(keys::kSubmissionBlockedReason);
  payload.set(keys::kSubmissionPendingReason, reasons::kPoolMetricsRefreshRequired);
  Mapping tracking = mapping_made_when_missing(candidate, keys::kTrackingMetricKwargs);
  remove_pool_failure_reason(tracking);
  tracking.set(keys::kPoolMetricsPending, true);
  tracking.set(keys::kPoolMetricsPendingDetail, text_form(detail));
}

void clear_candidate_pool_metrics_pending(Mapping& candidate, Mapping& payload) {
  candidate.erase(keys::kSubmissionPendingReason);
  payload.erase(keys::kSubmissionPendingReason);
  Mapping tracking = mapping_made_when_missing(candidate, keys::kTrackingMetricKwargs);
  tracking.erase(keys::kPoolMetricsPending);
  tracking.erase(keys::kPoolMetricsPendingDetail);
  remove_pool_failure_reason(tracking);
}

}  // namespace varnholt::genetic
