// Graphs for the tests of the embedded host.
#pragma once

#include <initializer_list>
#include <string_view>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded::test {

inline genetic::Value feature(std::string_view name) {
  return make_graph_node(name, "feature", genetic::List());
}

inline genetic::Value window(std::string_view days) {
  return make_graph_node(days, "window", genetic::List());
}

inline genetic::Value constant(std::string_view number) {
  return make_graph_node(number, "constant", genetic::List());
}

inline genetic::Value rotation(std::string_view name,
                               std::initializer_list<genetic::Value> children) {
  return make_graph_node(name, "rotation", genetic::List(children));
}

}  // namespace varnholt::embedded::test
