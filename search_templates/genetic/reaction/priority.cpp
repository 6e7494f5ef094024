#include "search_templates/genetic/reaction/priority.hpp"

#include <algorithm>
#include <optional>

#include "search_templates/genetic/reaction/failure_progress.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

constexpr double kFarthestCloseViolation = 1.0;

// The read is guarded with the conversion: an entry may be computed when it is read.
Value integer_entry(const Value& result, Key key) {
  return tolerate([&] { return to_integer(record_of(result).get(key, 0)); }).value_or(0);
}

bool names_close_constraint(const Tuple& signature) {
  const auto names = signature.items();
  return std::any_of(names.begin(), names.end(), [](const Value& reason) {
    return is_member(CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS, reason);
  });
}

}  // namespace

Value improvement_depth(const Value& result) {
  return integer_entry(result, keys::kImprovementDepth);
}

void ReactionPriority::continue_order(TupleOrder& order, const ReactionPriority& other) const {
  order.then(negated_quality, other.negated_quality)
      .then(improvement_depth, other.improvement_depth)
      .then(candidate_index, other.candidate_index);
}

ReactionPriority reaction_priority_key(const Value& result) {
  const Value candidate_index = integer_entry(result, keys::kCandidateIndex);
  return {-candidate_quality(result), improvement_depth(result), candidate_index};
}

bool RepairPriority::is_less_than(const RepairPriority& other) const {
  if (is_close != other.is_close) return is_close;
  TupleOrder order;
  if (is_close) {
    // The violation and the depth outrank the quality here.
    order.then(total_violation, other.total_violation)
        .then(plain.improvement_depth, other.plain.improvement_depth);
  }
  plain.continue_order(order, other.plain);
  return order.is_less();
}

RepairPriority reaction_repair_priority_key(JsonReader& json_reader, const Value& result) {
  const FailureProgress progress = failure_progress_key(json_reader, result);
  const Tuple signature = failure_signature(result);
  RepairPriority priority;
  // A violation that is not a number is not close.
  priority.is_close = progress.failure_count == 1 &&
                      progress.total_violation <= kFarthestCloseViolation &&
                      names_close_constraint(signature);
  if (priority.is_close) priority.total_violation = progress.total_violation;
  priority.plain = reaction_priority_key(result);
  return priority;
}

}  // namespace varnholt::genetic
