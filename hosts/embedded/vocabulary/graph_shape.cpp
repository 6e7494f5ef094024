#include "hosts/embedded/vocabulary/graph_shape.hpp"

#include <algorithm>
#include <string>

namespace varnholt::embedded {
namespace {

void measure(const genetic::Value& value, const GraphPlace& place, const GraphLimits& limits,
             GraphShape& shape) {
  count_node(shape, place, limits);
  const GraphNode node = read_graph_node(value, place);
  for (std::size_t i = 0; i < node.children.size(); ++i) {
    measure(node.children.at(i), place.of_child(i), limits, shape);
  }
}

}  // namespace

void count_node(GraphShape& shape, const GraphPlace& place, const GraphLimits& limits) {
  if (place.depth > limits.max_depth) {
    throw GraphError(place.text(),
                     "the graph is deeper than " + std::to_string(limits.max_depth) + " nodes",
                     "use fewer levels");
  }
  if (++shape.node_count > limits.max_nodes) {
    throw GraphError(place.text(),
                     "the graph has more than " + std::to_string(limits.max_nodes) + " nodes",
                     "use fewer nodes");
  }
  shape.depth = std::max(shape.depth, place.depth);
}

GraphShape measure_graph(const genetic::Value& graph, const GraphLimits& limits) {
  GraphShape shape;
  measure(graph, GraphPlace{}, limits, shape);
  return shape;
}

}  // namespace varnholt::embedded
