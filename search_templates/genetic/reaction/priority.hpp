// In which order failed results are repaired: sort keys, of which the least comes first.
//
// A result is read as in failure_metrics.hpp. Depths and indexes are integers of any size, 0 for
// a value that cannot be converted; qualities are reals, 0.0 for anything but a number.
#pragma once

#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/reaction/result_quality.hpp"
#include "search_templates/genetic/value/tuple_order.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// How many repairs have led to a result. May be negative, as the record has it.
[[nodiscard]] Value improvement_depth(const Value& result);

// The plain key: better quality first, then the shallower repair, then the earlier candidate.
struct ReactionPriority {
  double negated_quality = 0.0;
  Value improvement_depth;
  Value candidate_index;

  // Goes on with an order in which these are the next elements.
  void continue_order(TupleOrder& order, const ReactionPriority& other) const;
};
[[nodiscard]] ReactionPriority reaction_priority_key(const Value& result);

// The key of a repair. A result with a single failure, of a constraint and missed by at most its
// own threshold, comes before all others: the nearest miss first, then the shallower repair, then
// the better quality. A lone sharpe miss is never one of those, however close. All other results
// stand in the order of the plain key.
struct RepairPriority {
  bool is_close = false;
  double total_violation = 0.0;  // Of a close one alone.
  ReactionPriority plain;

  [[nodiscard]] bool is_less_than(const RepairPriority& other) const;
};
[[nodiscard]] RepairPriority reaction_repair_priority_key(JsonReader& json_reader,
                                                          const Value& result);

}  // namespace varnholt::genetic
