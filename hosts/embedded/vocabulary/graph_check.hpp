// Whether a graph is valid in a vocabulary.
//
// The rules:
// - every node follows graph_node.hpp;
// - a feature is one of the vocabulary's, and has no children;
// - a rotation is one of the vocabulary's functions; its children are the arguments that it takes:
//   features, rotations or constants for its panels, at least one of which is no constant, then a
//   group, a number and a window where it takes them, and nothing else;
// - a window is the decimal text of its days, from 1 to kLongestWindow, a constant or number the
//   text of a finite number with the fewest digits, a group one of the vocabulary's; they have no
//   children;
// - the root is a feature or a rotation;
// - the graph is within the limits.
#pragma once

#include "hosts/embedded/vocabulary/graph_shape.hpp"  // IWYU pragma: export
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The shape of a graph that follows the rules. Throws GraphError, which names the place and the
// remedy, for one that does not.
[[nodiscard]] GraphShape check_graph(const genetic::Value& graph, const Vocabulary& vocabulary,
                                     const GraphLimits& limits = {});

}  // namespace varnholt::embedded
