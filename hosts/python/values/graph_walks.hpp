// Walks over graphs of Python's exact types that go through the interpreter's own calls, without a
// value for each node.
//
// They give what the library's walks give, and give up where anything is unusual: a subclass, a key
// that is no text, a nesting too deep. Whoever called asks the library then, which also knows what
// to complain of. Nothing of the host has been asked until then, so that nobody can tell.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/graph/host_graph.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// The frozen form, which is the structural key as well, and the plain copy. Null when they give up.
[[nodiscard]] nb::object walk_frozen(nb::handle graph);
[[nodiscard]] nb::object walk_plain(nb::handle graph);
// The plain value of a frozen form. Null when it gives up.
[[nodiscard]] nb::object walk_thawed(nb::handle frozen);

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
