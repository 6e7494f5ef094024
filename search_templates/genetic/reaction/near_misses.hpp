// Which failed results of a generation are worth a repair, or breeding from.
#pragma once

#include <cstdint>

#include "search_templates/genetic/reaction/failure_progress.hpp"
#include "search_templates/genetic/reaction/priority.hpp"
#include "search_templates/genetic/reaction/reaction_environment.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The sort key of a near miss, of which the least comes first: the nearer to passing, the more
// elite by the host's score with the module's default weights, then by the plain priority. Each key
// is one request of the host's score.
struct NearMissKey {
  FailureProgress progress;
  Value negated_eliteness;
  ReactionPriority priority;

  [[nodiscard]] bool is_less_than(const NearMissKey& other) const;
};
[[nodiscard]] NearMissKey actionable_near_miss_key(const ReactionEnvironment& environment,
                                                   const Value& result);

// The near misses among `results`: of each combination of failures that a reaction can address the
// best one, in order, and then the nearest of the rest, one of each structure, up to four times the
// batch size and never fewer than the constant that is called a maximum, on purpose. A batch size
// that is not a number counts as missing.
//
// A near miss has a failure that a reaction can address or one against the signal pool, and a
// sharpe and a quality above zero, unless its sharpe is so negative that its reversal would pass.
// Of two results of one structure the first stays, even if the other is better. The results
// returned may be enlarged copies; none of those given is changed.
[[nodiscard]] List select_actionable_near_miss_parents(const ReactionEnvironment& environment,
                                                       const Value& results,
                                                       const Value& batch_size);

}  // namespace varnholt::genetic
