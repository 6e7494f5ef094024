#include "search_templates/genetic/reaction/improvement_outcome.hpp"

#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

bool improvement_terminal_ends_search(const Value& reason) {
  return is_member(SEARCH_TERMINAL_IMPROVEMENT_REASONS, reason);
}

bool improvement_terminal_exhausts_near_misses(const Value& reason,
                                               const Value& generation_improvement_count,
                                               const Value& generation_round_count) {
  if (is_same_or_equal(reason, reasons::kMaxImprovementCandidates) ||
      is_same_or_equal(reason, reasons::kMaxImprovementRounds)) {
    return less(0, generation_improvement_count) || less(0, generation_round_count);
  }
  return is_member(EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS, reason);
}

}  // namespace varnholt::genetic
