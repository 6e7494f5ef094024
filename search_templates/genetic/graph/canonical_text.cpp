#include "search_templates/genetic/graph/canonical_text.hpp"

#include <optional>
#include <utility>

#include "search_templates/genetic/graph/host_graph.hpp"
#include "search_templates/genetic/graph/plain_data.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/value/json_text.hpp"

namespace varnholt::genetic {

std::string canonical_graph_string(const Value& graph) {
  if (const HostGraph* const source = host_graph(graph)) {
    if (std::optional<std::string> text = source->canonical_text()) return *std::move(text);
  }
  // The text of a graph that holds nothing of the host is that of its copy, which is then spared.
  return json_text(native_tree_bytes(graph) ? graph : plain_graph_data(graph));
}

}  // namespace varnholt::genetic
