// How large a graph is, and how large it may be.
#pragma once

#include <cstddef>
#include <limits>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Bounds on the walk over a graph; the defaults are those of every evaluator. They keep a graph
// that contains itself from overflowing the stack, and one whose shared parts unfold without end
// from never being done.
struct GraphLimits {
  int max_depth = 100;
  std::size_t max_nodes = 1000;
  // The longest window, in days.
  int max_window = std::numeric_limits<int>::max();
};

struct GraphShape {
  std::size_t node_count = 0;  // With windows; a part that stands in two places counts twice.
  int depth = 0;               // Nodes on the longest way down; a lone feature has depth 1.
};

// The shape of any tree of nodes, whatever their names and types. Throws GraphError where a node
// does not follow graph_node.hpp, or where the graph is beyond the limits.
[[nodiscard]] GraphShape measure_graph(const genetic::Value& graph, const GraphLimits& limits = {});

// Counts one more node at `place`; GraphError where that is beyond the limits.
void count_node(GraphShape& shape, const GraphPlace& place, const GraphLimits& limits);

}  // namespace varnholt::embedded
