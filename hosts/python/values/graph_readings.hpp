// What the library reads from graphs, read by the interpreter's own calls where they are of
// Python's exact types throughout. The walks give up as those of graph_walks.hpp do.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/graph/host_graph.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// The set of the texts under "node": of all nodes, or of those whose "type" is "feature". Null when
// they give up.
[[nodiscard]] nb::object walk_node_names(nb::handle graph);
[[nodiscard]] nb::object walk_feature_names(nb::handle graph);

// The walks of genetic::HostGraph.
[[nodiscard]] std::optional<std::string> walk_canonical_text(nb::handle graph);
[[nodiscard]] bool walk_parts(nb::handle graph, genetic::PlainParts& parts);
[[nodiscard]] bool walk_names(nb::handle graph, genetic::NamedNodes which,
                              const std::function<void(std::string_view)>& take);

}  // namespace varnholt::python
