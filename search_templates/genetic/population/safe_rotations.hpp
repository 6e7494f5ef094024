// The rotations that a repair may put into a signal.
#pragma once

#include <set>
#include <string>

#include "search_templates/genetic/host/engine.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Deep copies of the rotations that the host calls safe, those without a name left out. Empty,
// without asking the host, for a context whose vocabulary is no mapping; a missing vocabulary is an
// empty one.
[[nodiscard]] List safe_reaction_rotations(Engine& engine, SearchContext& context);

// The names of those rotations.
[[nodiscard]] std::set<std::string> safe_reaction_rotation_names(Engine& engine,
                                                                 SearchContext& context);

}  // namespace varnholt::genetic
