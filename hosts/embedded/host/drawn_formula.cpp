#include "hosts/embedded/host/drawn_formula.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "hosts/embedded/operators/graph_parts.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

// Of two that are as near the shorter.
std::string nearest_window(const std::string& days, const std::vector<int>& windows) {
  const double wanted = std::log(window_of(days).value());
  const auto distance = [wanted](int window) { return std::abs(std::log(window) - wanted); };
  const auto nearest = std::min_element(
      windows.begin(), windows.end(),
      [&distance](int left, int right) { return distance(left) < distance(right); });
  return std::to_string(*nearest);
}

bool is_drawn(const GraphPart& part, const Vocabulary& vocabulary) {
  if (part.type == kRotationType) return vocabulary.find_function(part.name)->weight > 0.0;
  if (part.type == kFeatureType) return vocabulary.find_feature(part.name)->weight > 0.0;
  return true;
}

std::optional<Value> in_drawn_words(Value graph, const Vocabulary& vocabulary,
                                    const GraphLimits& limits) {
  std::vector<int> windows = vocabulary.windows;
  std::erase_if(windows, [&limits](int window) { return window > limits.max_window; });
  for (const GraphPart& part : graph_parts(graph)) {
    if (!is_drawn(part, vocabulary)) return std::nullopt;
    if (part.type != kWindowType) continue;
    if (windows.empty()) return std::nullopt;
    graph = with_name(graph, part.path, nearest_window(part.name, windows));
  }
  return graph;
}

}  // namespace

std::optional<Value> drawn_formula(std::string_view formula, const Vocabulary& vocabulary,
                                   const GraphLimits& limits, const GraphMaking& making) {
  try {
    std::optional<Value> graph =
        in_drawn_words(parse_formula(formula, vocabulary), vocabulary, limits);
    if (!graph) return std::nullopt;
    graph = making.finished(*std::move(graph));
    static_cast<void>(check_graph(*graph, vocabulary, limits));
    return graph;
  } catch (const FormulaError&) {
    return std::nullopt;  // These prices have no such column.
  } catch (const GraphError&) {
    return std::nullopt;  // It is larger than the graphs of this search may be.
  }
}

}  // namespace varnholt::embedded
