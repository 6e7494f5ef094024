// From one failed result to the improvements that the host plans for it.
#pragma once

#include "search_templates/genetic/reaction/reaction_environment.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What the host's planner returns for a result, as it stands: a sequence of improvements. Without a
// call of the planner an empty list for a result that, judged by all gates, has no failure that a
// reaction can address. `max_plans` and `extra_data_graphs` are handed on.
[[nodiscard]] Value derive_reaction_improvements(const ReactionEnvironment& environment,
                                                 const Value& result,
                                                 const Value& max_plans = Value(),
                                                 const Value& extra_data_graphs = Tuple());

// The first of them, or absent.
[[nodiscard]] Value derive_reaction_improvement(const ReactionEnvironment& environment,
                                                const Value& result);

}  // namespace varnholt::genetic
