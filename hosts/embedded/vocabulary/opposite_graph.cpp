#include "hosts/embedded/vocabulary/opposite_graph.hpp"

#include <string_view>

#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/value/copy.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Value;

namespace {

constexpr std::string_view kNegation = "arith_neg";

}  // namespace

Value opposite_graph(const Value& graph) {
  const GraphNode root = read_graph_node(graph, GraphPlace{});
  if (root.name == kNegation) return genetic::deep_copy(root.children.at(0));
  return make_graph_node(kNegation, kRotationType, List{genetic::deep_copy(graph)});
}

Value without_sign(const Value& graph) {
  const GraphNode root = read_graph_node(graph, GraphPlace{});
  return root.name == kNegation ? without_sign(root.children.at(0)) : graph;
}

}  // namespace varnholt::embedded
