// One round's new graphs: from which results they are derived, and which of them are accepted.
#pragma once

#include <cstdint>

#include "search_templates/genetic/population/deduplication.hpp"
#include "search_templates/genetic/reaction/reaction_environment.hpp"
#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The results to derive improvements from, one of each structure: first the near misses among all
// results of the generation, then the results of the current round, whether or not they are worth a
// repair. Of two results of one structure the first stays. Each is judged by all gates.
[[nodiscard]] List improvement_source_pool(const ReactionEnvironment& environment,
                                           const Value& generation_results,
                                           const Value& current_round_results,
                                           const Value& batch_size);
// The same with the near misses at hand.
[[nodiscard]] List improvement_source_pool_of(const ReactionEnvironment& environment,
                                              const Value& near_misses,
                                              const Value& current_round_results);

// The limits of a batch. Absent is no limit, and 0 is one, but for the last: there 0, a negative
// number and anything but a number are the module's default.
struct ImprovementLimits {
  Value max_depth;
  Value remaining_candidates;
  Value max_plans_per_result = DEFAULT_MAX_REACTION_PLANS_PER_SOURCE;
};

struct ImprovementBatch {
  List improvements;                 // The accepted ones, in the order of acceptance.
  std::int64_t eligible_count = 0;   // Results with a failure that a reaction can address.
  std::int64_t duplicate_count = 0;  // Improvements with a structure that was evaluated.
  std::int64_t depth_limited_count =
      0;  // Results at the depth limit, and graphs that are too deep.
  bool candidate_limit_reached = false;  // Whether one more new improvement turned up.
};

// Asks the host's planner for improvements of the results, in the order of their repair priority,
// and accepts those that are new and not too deep. The limit on candidates ends the batch when one
// more new graph turns up after it is full; that graph is not marked as evaluated. An accepted
// one's structure enters `evaluated` at once, before it is evaluated.
[[nodiscard]] ImprovementBatch derive_improvement_batch(const ReactionEnvironment& environment,
                                                        const Value& results, SeenGraphs& evaluated,
                                                        const ImprovementLimits& limits);

}  // namespace varnholt::genetic
