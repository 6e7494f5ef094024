// Formulas in the words of one search.
#pragma once

#include <optional>
#include <string_view>

#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The graph of a formula as fresh graphs may have it, finished by `making`: a window becomes the
// nearest, as a multiple, that the vocabulary draws within the limits. Nothing where a function, a
// feature or every window is not drawn or not there, or where the graph is beyond the limits.
[[nodiscard]] std::optional<genetic::Value> drawn_formula(std::string_view formula,
                                                          const Vocabulary& vocabulary,
                                                          const GraphLimits& limits,
                                                          const GraphMaking& making);

}  // namespace varnholt::embedded
