// The types of nodes that the search itself knows: those that carry the data of a graph. All others
// are the host's own.
#pragma once

#include "search_templates/genetic/value/key.hpp"

namespace varnholt::genetic::node_types {

inline constexpr Key kFeature = key<"feature">();
inline constexpr Key kRotation = key<"rotation">();

}  // namespace varnholt::genetic::node_types
