// Whether a graph says something in a vocabulary.
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

#include <cstddef>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Bounds on the walk over a graph. They keep a graph that contains itself from overflowing the
// stack, and one whose shared parts unfold without end from never being done.
struct GraphLimits {
  int max_depth = 100;
  std::size_t max_nodes = 1000;
};

struct GraphShape {
  std::size_t node_count = 0;  // With windows; a part that stands in two places counts twice.
  int depth = 0;               // Nodes on the longest way down; a lone feature has depth 1.
};

// The shape of a graph that follows the rules. Throws GraphError, which names the place and the
// mend, for one that does not.
[[nodiscard]] GraphShape check_graph(const genetic::Value& graph, const Vocabulary& vocabulary,
                                     const GraphLimits& limits = {});

// The shape of any tree of nodes, whatever their names and types. Throws GraphError where a node
// does not follow graph_node.hpp, or where the graph is beyond the limits.
[[nodiscard]] GraphShape measure_graph(const genetic::Value& graph, const GraphLimits& limits = {});

// Counts one more node at `place`; GraphError where that is beyond the limits.
void count_node(GraphShape& shape, const GraphPlace& place, const GraphLimits& limits);

}  // namespace varnholt::embedded
