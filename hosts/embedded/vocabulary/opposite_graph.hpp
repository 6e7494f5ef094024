// The graph of the opposite signal.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// arith_neg of the graph, or of a graph that is such a negation its panel: the weights change their
// signs and nothing else. It may be one level deeper than the graph.
[[nodiscard]] genetic::Value opposite_graph(const genetic::Value& graph);

// The graph below the negations that it begins with: a signal or its opposite, whichever is
// shorter.
[[nodiscard]] genetic::Value without_sign(const genetic::Value& graph);

}  // namespace varnholt::embedded
