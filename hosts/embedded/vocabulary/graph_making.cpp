#include "hosts/embedded/vocabulary/graph_making.hpp"

#include "hosts/embedded/vocabulary/opposite_graph.hpp"
#include "hosts/embedded/vocabulary/unit_check.hpp"

namespace varnholt::embedded {

genetic::Value GraphMaking::finished(genetic::Value graph) const {
  if (options_.simplifies) graph = canonical_form(graph, *vocabulary_, options_.canonical);
  return options_.drops_sign ? without_sign(graph) : graph;
}

bool GraphMaking::fits_units(const genetic::Value& graph, const genetic::Value& parent) const {
  if (!options_.keeps_units) return true;
  const std::size_t mixed = units_of_graph(graph, *vocabulary_).mixed_calls;
  return mixed == 0 || mixed <= units_of_graph(parent, *vocabulary_).mixed_calls;
}

}  // namespace varnholt::embedded
