// Failed signals and the material for their repairs, for the tests of the planner.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/planner/repair_plans.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {

inline Vocabulary small_vocabulary() {
  SyntheticUniverseOptions options;
  options.instruments = 2;
  options.days = 20;
  options.factors = 1;
  return make_vocabulary(make_synthetic_universe(options));
}

// Everything that the vocabulary has, within the limits.
inline RepairMaterial material_of(const Vocabulary& vocabulary, const GraphLimits& limits = {8, 40},
                                  std::vector<genetic::Value> peers = {}) {
  RepairMaterial material;
  for (const FunctionEntry& function : vocabulary.functions)
    material.functions.emplace(function.name);
  material.windows = vocabulary.windows;
  material.limits = limits;
  material.peers = std::move(peers);
  return material;
}

// A graph as expression_text writes it: "ts_mean(arith_sub(close, open), 5)".
inline genetic::Value graph_of(std::string_view text) {
  struct Reader {
    std::string_view rest;

    genetic::Value node() {
      const std::size_t end = rest.find_first_of("(,)");
      const std::string name(rest.substr(0, end));
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
      if (!rest.starts_with('(')) {
        const bool is_window = name.find_first_not_of("0123456789") == std::string::npos;
        return is_window ? window(name) : feature(name);
      }
      genetic::List children;
      do {
        rest.remove_prefix(rest.starts_with(", ") ? 2 : 1);
        children.append(node());
      } while (rest.starts_with(','));
      rest.remove_prefix(1);
      return make_graph_node(name, "rotation", children);
    }
  };
  return Reader{text}.node();
}

inline RepairCase failed_case(std::string_view graph, std::vector<MissedGate> failures = {}) {
  return {graph_of(graph), std::move(failures), {}, {}};
}

}  // namespace varnholt::embedded::test
