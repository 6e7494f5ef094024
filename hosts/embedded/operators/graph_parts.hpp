// The parts of a graph, and graphs made by replacing one part by another.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// One node with all that is below it.
struct GraphPart {
  std::vector<std::size_t> path;  // The children to go through from the root; empty for the root.
  genetic::Value node;            // The node itself, not a copy.
  std::string name;
  std::string type;
  std::size_t data_children = 0;  // Children that have a panel.
  std::string settings;           // The types of its other children, each with a comma behind it.
  GraphShape shape;               // Of the part alone.

  // A feature, a rotation or a constant: something that has a panel.
  [[nodiscard]] bool is_data() const;
  [[nodiscard]] bool is_constant() const;
  [[nodiscard]] int depth_above() const {  // Nodes above it.
    return static_cast<int>(path.size());
  }
};

// All parts of a graph, each before its children, children from left to right. GraphError as
// measure_graph.
[[nodiscard]] std::vector<GraphPart> graph_parts(const genetic::Value& graph,
                                                 const GraphLimits& limits = {});

// A new graph: `graph` with a copy of `part` in the place of what stands at `path`. Shares nothing
// with either.
[[nodiscard]] genetic::Value with_part(const genetic::Value& graph,
                                       const std::vector<std::size_t>& path,
                                       const genetic::Value& part);

// A new graph: the node at `path` has another name, everything else is as it was.
[[nodiscard]] genetic::Value with_name(const genetic::Value& graph,
                                       const std::vector<std::size_t>& path,
                                       const std::string& name);

}  // namespace varnholt::embedded
