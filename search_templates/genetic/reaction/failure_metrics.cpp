#include "search_templates/genetic/reaction/failure_metrics.hpp"

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <optional>

#include "search_templates/genetic/context/thresholds.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

bool contains_any(const Value& failures, std::span<const Key> reason_names) {
  return std::any_of(reason_names.begin(), reason_names.end(),
                     [&failures](Key name) { return contains(failures, name); });
}

bool fails_with_any(const Value& result, std::span<const Key> reason_names) {
  if (truth(entry(result, keys::kPasses))) return false;
  const Value failures = entry(result, keys::kFailures);
  return truth(failures) && contains_any(failures, reason_names);
}

// The failures of a result, when both are mappings.
std::optional<Mapping> failures_mapping(const Value& result) {
  const std::optional<Mapping> record = as_mapping(result);
  return record ? as_mapping(record->get(keys::kFailures)) : std::nullopt;
}

Value attribute_or_absent(const Value& object, Key name) {
  return attribute(object, name.view()).value_or(Value());
}

// What the gates say of a result; nothing when the metrics or the gates fail.
std::optional<Value> gate_result(Gates& gates, const Value& result, const Value& thresholds) {
  try {
    const Value metrics = stats_gate_metrics_for_result(gates, result);
    return gates.evaluate_threshold_gates(metrics, thresholds);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

Mapping expanded_failure(Gates& gates, const Value& reason, const Value& gate_failure) {
  const Value metric = gates.threshold_gate_failure_metric(gate_failure);
  const DetailOperation recorded_failure_detail = gates.required_recorded_failure_detail();
  const Value detail =
      recorded_failure_detail({.reason = reason,
                               .metric = metric,
                               .value = attribute_or_absent(gate_failure, keys::kActual),
                               .threshold = attribute_or_absent(gate_failure, keys::kThreshold),
                               .gate = attribute_or_absent(gate_failure, keys::kGate),
                               .comparison = attribute_or_absent(gate_failure, keys::kOperator),
                               .category = attribute_or_absent(gate_failure, keys::kCategory)});
  return {{keys::kReason, reason}, {keys::kDetail, detail}};
}

bool carries_a_metric(JsonReader& json_reader, const Value& failure) {
  const MetricPair pair = failure_metric_pair(json_reader, failure);
  return !pair.value.is_absent() || !pair.threshold.is_absent();
}

// The detail of a failure as a mapping, when it is one or the JSON text of one.
std::optional<Mapping> detail_mapping(JsonReader& json_reader, const Value& detail) {
  if (!is_instance_of(detail, Kind::kText)) return as_mapping(detail);
  try {
    return as_mapping(json_reader.read(detail));
  } catch (const std::exception&) {
    return std::nullopt;  // A text for people, not for us.
  }
}

}  // namespace

bool has_reaction_failure(const Value& result) {
  return fails_with_any(result, REACTION_FAILURE_REASONS);
}

bool has_gate_near_miss_failure(const Value& result) {
  return fails_with_any(result, GATE_NEAR_MISS_FAILURE_REASONS);
}

bool has_actionable_near_miss_failure(const Value& result) {
  return has_reaction_failure(result) || has_gate_near_miss_failure(result);
}

bool has_failure_reason(const Value& result, std::span<const Key> reason_names) {
  const std::optional<Mapping> failures = failures_mapping(result);
  return failures && contains_any(*failures, reason_names);
}

bool has_failure_reason(const Value& result, const Value& reason_names) {
  const std::optional<Mapping> failures = failures_mapping(result);
  if (!failures) return false;
  const auto names = iterate(reason_names);
  while (const std::optional<Value> name = names->next()) {
    if (contains(*failures, *name)) return true;
  }
  return false;
}

Value stats_gate_metrics_for_result(Gates& gates, const Value& result) {
  if (const std::optional<Mapping> record = as_mapping(result)) {
    // Two reads on purpose: a record of the host may make what it gives.
    if (!record->get(keys::kStats).is_absent()) {
      const auto stats_gate_metrics = gates.required_stats_gate_metrics();
      return stats_gate_metrics(record->at(keys::kStats));
    }
  }
  return gates.stats_gate_metrics(result);
}

Mapping expanded_threshold_failures(SearchContext& context, Gates& gates, const Value& result) {
  Mapping expanded;
  if (truth(entry(result, keys::kPasses))) return expanded;
  const Value thresholds = context_thresholds(context, gates);
  if (!truth(thresholds)) return expanded;
  const std::optional<Value> judged = gate_result(gates, result, thresholds);
  if (!judged) return expanded;

  // A missing walk counts as an empty one; an absent one fails.
  const Value gate_failures = attribute(*judged, keys::kFailures.view()).value_or(Tuple());
  const auto walk = iterate(gate_failures);
  while (const std::optional<Value> gate_failure = walk->next()) {
    const Value reason = gates.threshold_gate_failure_reason(*gate_failure);
    if (!is_member(REACTION_FAILURE_REASONS, reason)) continue;
    // A later failure of a reason replaces the earlier, which keeps its place in the order.
    expanded.set(reason, expanded_failure(gates, reason, *gate_failure));
  }
  return expanded;
}

Value with_expanded_reaction_failures(SearchContext* context, Gates& gates, JsonReader& json_reader,
                                      const Value& result) {
  if (context == nullptr || !as_mapping(result)) return result;
  const Mapping expanded = expanded_threshold_failures(*context, gates, result);
  if (expanded.empty()) return result;

  const Value recorded = entry(result, keys::kFailures);
  Mapping failures = truth(recorded) ? new_mapping(recorded) : Mapping();
  bool changed = false;
  MappingCursor cursor(expanded);
  while (const std::optional<MappingEntry> expansion = cursor.next()) {
    if (carries_a_metric(json_reader, failures.get(expansion->key))) continue;
    failures.set(expansion->key, expansion->value);
    changed = true;
  }
  if (!changed) return result;
  Mapping enlarged = new_mapping(result);
  enlarged.set(keys::kFailures, failures);
  return enlarged;
}

MetricPair failure_metric_pair(JsonReader& json_reader, const Value& failure) {
  const std::optional<Mapping> record = as_mapping(failure);
  if (!record) return {};
  MetricPair own{record->get(keys::kValue), record->get(keys::kThreshold)};
  if (!own.value.is_absent() || !own.threshold.is_absent()) return own;
  const auto detail = detail_mapping(json_reader, record->get(keys::kDetail));
  if (!detail) return {};
  return {detail->get(keys::kValue), detail->get(keys::kThreshold)};
}

MetricPair sharpe_reaction_metric_pair(Gates& gates, JsonReader& json_reader, const Value& result) {
  Value value = number(entry(result, keys::kSharpe), Value());
  // The host is asked also when the record's own sharpe will do.
  const Value metrics = stats_gate_metrics_for_result(gates, result);
  const Value measured = number(entry(metrics, keys::kSharpe), Value());
  if (value.is_absent()) value = measured;
  const std::optional<Mapping> failures = failures_mapping(result);
  if (!failures) return {value, Value()};

  for (const Key reason : SHARPE_REACTION_FAILURE_REASONS) {
    const MetricPair pair = failure_metric_pair(json_reader, failures->get(reason));
    const Value failed_value = number(pair.value, Value());
    const Value threshold = number(pair.threshold, Value());
    if (value.is_absent()) value = failed_value;
    if (!threshold.is_absent()) return {value, threshold};
  }
  return {value, Value()};
}

Value sharpe_reaction_value(Gates& gates, JsonReader& json_reader, const Value& result) {
  return sharpe_reaction_metric_pair(gates, json_reader, result).value;
}

bool is_negative_sharpe_reaction_candidate(Gates& gates, JsonReader& json_reader,
                                           const Value& result) {
  if (!has_failure_reason(result, SHARPE_REACTION_FAILURE_REASONS)) return false;
  const MetricPair pair = sharpe_reaction_metric_pair(gates, json_reader, result);
  if (pair.value.is_absent() || pair.threshold.is_absent()) return false;
  const double value = to_float(pair.value);
  const double threshold = to_float(pair.threshold);
  // A NaN threshold is not below zero, and then no magnitude reaches it.
  if (threshold < 0.0) return false;
  return value < 0.0 && std::abs(value) >= threshold;
}

}  // namespace varnholt::genetic
