// Graphs in a form that people read.
#pragma once

#include <string>

#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The graph as a call, such as "cross_rank(ts_delta(close, 5))". The names need not be those of any
// vocabulary. Throws GraphError as measure_graph does.
[[nodiscard]] std::string expression_text(const genetic::Value& graph,
                                          const GraphLimits& limits = {});

}  // namespace varnholt::embedded
