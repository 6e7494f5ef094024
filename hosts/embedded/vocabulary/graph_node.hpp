// One node of a graph as open data, read with its place so that a mistake can be found again.
//
// A node is a mapping with exactly these keys:
//
//   node       text: the name of a feature, function or group, the days of a window ("20"), or a
//              number ("0.5")
//   type       text: "feature", "rotation", "window", "constant", "number" or "group"
//   children   list of nodes; all but rotations may leave it out or have it empty
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// A graph that does not follow the rules. The text reads "graph, PLACE: PROBLEM; REMEDY", where the
// place is "root" or a path such as "children[1].children[0]".
class GraphError : public genetic::ValueError {
 public:
  GraphError(const std::string& place, const std::string& problem, const std::string& remedy);
};

// Where a node stands, as a chain of the nodes above it; those must outlive it.
struct GraphPlace {
  const GraphPlace* parent = nullptr;  // None for the root.
  std::size_t child = 0;               // Which child of its parent it is, from 0.
  int depth = 1;                       // The root has depth 1.

  [[nodiscard]] GraphPlace of_child(std::size_t index) const { return {this, index, depth + 1}; }
  [[nodiscard]] std::string text() const;
};

// A name as an error shows it: its first characters, and \xNN for what has no place in a text. An
// error's text ends at a NUL, and a name of a million characters would hide the remedy behind it.
[[nodiscard]] std::string shown_name(std::string_view name);

struct GraphNode {
  std::string name;
  std::string type;
  genetic::List children;
};

// Reads the node's own entries, not its children. Throws GraphError for what is no such mapping.
[[nodiscard]] GraphNode read_graph_node(const genetic::Value& node, const GraphPlace& place);

// A new node, with its keys in the order above.
[[nodiscard]] genetic::Value make_graph_node(std::string_view name, std::string_view type,
                                             genetic::List children);

}  // namespace varnholt::embedded
