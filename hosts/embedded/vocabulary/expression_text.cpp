#include "hosts/embedded/vocabulary/expression_text.hpp"

namespace varnholt::embedded {
namespace {

void write(const genetic::Value& value, const GraphPlace& place, const GraphLimits& limits,
           GraphShape& shape, std::string& out) {
  count_node(shape, place, limits);
  const GraphNode node = read_graph_node(value, place);
  out += node.name;
  if (node.children.empty()) return;
  out += '(';
  for (std::size_t i = 0; i < node.children.size(); ++i) {
    if (i > 0) out += ", ";
    write(node.children.at(i), place.of_child(i), limits, shape, out);
  }
  out += ')';
}

}  // namespace

std::string expression_text(const genetic::Value& graph, const GraphLimits& limits) {
  std::string text;
  GraphShape shape;
  write(graph, GraphPlace{}, limits, shape, text);
  return text;
}

}  // namespace varnholt::embedded
