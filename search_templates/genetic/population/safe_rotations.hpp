// The rotations that a repair may put into a signal.
#pragma once

#include <set>
#include <string>

#include "search_templates/genetic/host/random_graph_limits.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Deep copies of the rotations that the host calls safe, without those that have no name. Empty,
// without a call of the host, for a context whose vocabulary is no mapping; a missing vocabulary is
// an empty one.
[[nodiscard]] List safe_reaction_rotations(RandomGraphLimits& limits, SearchContext& context);

// The names of those rotations.
[[nodiscard]] std::set<std::string> safe_reaction_rotation_names(RandomGraphLimits& limits,
                                                                 SearchContext& context);

}  // namespace varnholt::genetic
