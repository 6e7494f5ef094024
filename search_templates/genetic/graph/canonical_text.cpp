#include "search_templates/genetic/graph/canonical_text.hpp"

#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/value/json_text.hpp"

namespace varnholt::genetic {

std::string canonical_graph_string(const Value& graph) {
  return json_text(plain_graph_data(graph));
}

}  // namespace varnholt::genetic
