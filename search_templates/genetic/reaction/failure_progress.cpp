#include "search_templates/genetic/reaction/failure_progress.hpp"

#include <cmath>
#include <optional>
#include <vector>

#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/reaction/result_quality.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/list_order.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"
#include "search_templates/genetic/value/tuple_order.hpp"

namespace varnholt::genetic {
namespace {

constexpr double kViolationOfAnything = 1.0;
constexpr double kLeastScale = 1e-12;

bool passes(const Value& result) {
  return truth(entry(result, keys::kPasses));
}

// What a result that does not pass has under `failures`; what is not true counts as no failure.
Value failures_of(const Value& result) {
  Value failures = entry(result, keys::kFailures);
  return truth(failures) ? failures : Value(Mapping());
}

// A figure that is not there is never converted: most failures have none, and the error of each
// conversion would be half of what such a failure costs.
double number_or_zero(const Value& figure) {
  return figure.is_absent() ? 0.0 : tolerant_float(figure).value_or(0.0);
}

}  // namespace

double failure_violation(JsonReader& json_reader, const Value& reason, const Value& failure) {
  if (!as_mapping(failure)) return kViolationOfAnything;
  const MetricPair pair = failure_metric_pair(json_reader, failure);
  const double value = number_or_zero(pair.value);
  const double threshold = number_or_zero(pair.threshold);
  double scale = std::abs(threshold);
  if (scale <= kLeastScale) scale = 1.0;
  static_cast<void>(hash(reason));  // The table is a set: what cannot be a member of one fails.
  const double violation =
      is_member(MINIMUM_FAILURE_REASONS, reason) ? threshold - value : value - threshold;
  // Neither side of the test for a NaN, which is kept.
  return violation <= 0.0 ? 0.0 : violation / scale;
}

bool FailureProgress::is_less_than(const FailureProgress& other) const {
  return TupleOrder()
      .then(failure_count, other.failure_count)
      .then(total_violation, other.total_violation)
      .is_less();
}

FailureProgress failure_progress_key(JsonReader& json_reader, const Value& result) {
  FailureProgress progress;
  if (passes(result)) return progress;
  const Value recorded = failures_of(result);
  const std::optional<Mapping> failures = as_mapping(recorded);
  if (!failures || !truth(recorded)) return progress;
  MappingCursor cursor(*failures);
  while (const std::optional<MappingEntry> failure = cursor.next()) {
    progress.total_violation += failure_violation(json_reader, failure->key, failure->value);
  }
  progress.failure_count = static_cast<std::int64_t>(failures->size());
  return progress;
}

bool is_improved_result(JsonReader& json_reader, const Value& result, const Value& source) {
  if (passes(result) && !passes(source)) return true;
  const FailureProgress reached = failure_progress_key(json_reader, result);
  const FailureProgress before = failure_progress_key(json_reader, source);
  if (reached.is_less_than(before)) return true;
  if (before.is_less_than(reached)) return false;
  return candidate_quality(result) > candidate_quality(source);
}

Tuple failure_signature(const Value& result) {
  const Value failures = failures_of(result);
  if (!as_mapping(failures)) return {};
  std::vector<Value> names;
  const auto walk = iterate(failures);
  while (std::optional<Value> reason = walk->next()) {
    if (is_instance_of(*reason, Kind::kText)) names.push_back(*std::move(reason));
  }
  std::vector<Value> sorted;
  sorted.reserve(names.size());
  for (const std::size_t place :
       list_order(names.size(), [&names](std::size_t left, std::size_t right) {
         return less(names[left], names[right]);
       })) {
    sorted.push_back(names[place]);
  }
  return Tuple(sorted);
}

}  // namespace varnholt::genetic
