// Whether a graph is valid in a vocabulary.
//
// The rules:
// - every node follows graph_node.hpp;
// - a feature is one of the vocabulary's, and has no children;
// - a rotation is one of the vocabulary's functions; its children are as many features or rotations
//   as it takes panels, followed by one window if it needs one, and nothing else;
// - a window is the decimal text of one of the vocabulary's windows, and has no children;
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
