#include "hosts/embedded/vocabulary/graph_check.hpp"

#include "hosts/embedded/vocabulary/expression.hpp"

namespace varnholt::embedded {

GraphShape check_graph(const genetic::Value& graph, const Vocabulary& vocabulary,
                       const GraphLimits& limits) {
  return compile_expression(graph, vocabulary, limits).shape;
}

}  // namespace varnholt::embedded
