// Whether a graph adds or compares panels of different units.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// A panel of a call.
struct UnitOfPanel {
  Unit unit;
  std::optional<double> constant;  // Where it is one.
};

// What a call of the function gives: its unit, and where two of its panels are not alike, these.
// Then its unit is that of the first.
struct UnitOfCall {
  Unit unit;
  std::optional<std::pair<Unit, Unit>> mixed;
};
[[nodiscard]] UnitOfCall unit_of_call(const FunctionEntry& function,
                                      const std::vector<UnitOfPanel>& panels, int window_days);

// The unit of a graph that follows the rules of graph_check.hpp.
struct UnitsOfGraph {
  Unit unit;
  std::size_t mixed_calls = 0;
  // Of the innermost, leftmost of them: "arith_add puts a price and a return together".
  std::string first_mixture;
};
[[nodiscard]] UnitsOfGraph units_of_graph(const genetic::Value& graph,
                                          const Vocabulary& vocabulary);

}  // namespace varnholt::embedded
