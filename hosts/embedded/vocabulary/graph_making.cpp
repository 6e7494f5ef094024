#include "hosts/embedded/vocabulary/graph_making.hpp"

#include <utility>

namespace varnholt::embedded {

genetic::Value GraphMaking::finished(genetic::Value graph) const {
  if (!options_.simplifies) return graph;
  return canonical_form(graph, *vocabulary_, options_.canonical);
}

}  // namespace varnholt::embedded
