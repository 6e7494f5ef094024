// The text form of a graph, for showing, ordering and digests. It plays no part in deduplication.
#pragma once

#include <string>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The JSON text of the graph's plain data, keys sorted, without blanks; "null" for an absent graph.
// Fails as plain_graph_data does.
[[nodiscard]] std::string canonical_graph_string(const Value& graph);

}  // namespace varnholt::genetic
