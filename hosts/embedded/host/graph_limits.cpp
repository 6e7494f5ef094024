#include "hosts/embedded/host/graph_limits.hpp"

#include <cstdint>
#include <optional>

#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Value;

Value EmbeddedGraphLimits::graph_depth_for_attempt_marker(const Value& graph) {
  return measure_graph(graph).depth;
}

Value EmbeddedGraphLimits::function_entries_for_kind(const Value& vocabulary,
                                                     std::string_view kind) {
  return genetic::item(genetic::item(vocabulary, "functions"), kind);
}

Value EmbeddedGraphLimits::random_weighted_window_limit(genetic::SearchContext& /*context*/,
                                                        const Value& /*max_depth*/) {
  return graphs_.max_window;
}

Value EmbeddedGraphLimits::random_weighted_node_limit(genetic::SearchContext& /*context*/) {
  return static_cast<std::int64_t>(graphs_.max_nodes);
}

Value EmbeddedGraphLimits::signal_generation_safe_rotations(
    const genetic::SafeRotationsRequest& request) {
  genetic::List safe;
  const auto walk = genetic::iterate(request.functions);
  while (const std::optional<Value> function = walk->next()) {
    // The rotation's own node and one for each of its children.
    const Value nodes = genetic::item(*function, "child_count").integer() + 1;
    if (!genetic::less(request.node_limit, nodes)) safe.append(*function);
  }
  return safe;
}

}  // namespace varnholt::embedded
