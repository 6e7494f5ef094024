#include "hosts/embedded/vocabulary/random_graphs.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "hosts/embedded/vocabulary/graph_node.hpp"

namespace varnholt::embedded {
namespace {

using genetic::List;
using genetic::Value;

// The entry that `draw`, uniform in [0, 1), points to on a line where each has the length of its
// weight. Rounding may leave the draw beyond the end of the line; that is the last entry's.
template <typename Entry>
const Entry& weighted_choice(const std::vector<const Entry*>& entries, double draw) {
  double total = 0.0;
  for (const Entry* entry : entries)
    total += entry->weight;
  double left = draw * total;
  for (const Entry* entry : entries) {
    left -= entry->weight;
    if (left < 0.0) return *entry;
  }
  return *entries.back();
}

class Grower {
 public:
  Grower(genetic::RandomGenerator& generator, const Vocabulary& vocabulary,
         const RandomGraphOptions& options)
      : generator_(generator), vocabulary_(vocabulary), options_(options) {
    for (const int window : vocabulary.windows) {
      if (window <= options.max_window) windows_.push_back(window);
    }
    for (const FeatureEntry& feature : vocabulary.features)
      features_.push_back(&feature);
  }

  // A subtree of at most `depth` levels and `nodes` nodes, both at least 1. Takes from `nodes` what
  // it uses.
  Value grow(int depth, std::size_t& nodes, bool is_root) {
    const std::vector<const FunctionEntry*> functions = fitting_functions(depth, nodes);
    const bool is_feature =
        functions.empty() || (!is_root && generator_.random() < options_.leaf_share);
    --nodes;
    if (is_feature) {
      const FeatureEntry& feature = weighted_choice(features_, generator_.random());
      return make_graph_node(feature.name, kFeatureType, List());
    }
    const FunctionEntry& function = weighted_choice(functions, generator_.random());
    List children(function.child_count());
    if (function.needs_window()) --nodes;  // Its node is spoken for before the subtrees take any.
    for (std::size_t left = function.data_children(); left > 0; --left) {
      std::size_t share = left == 1 ? nodes : (nodes + 1) / 2;
      const std::size_t given = share;
      children.append(grow(depth - 1, share, false));
      nodes -= given - share;
    }
    if (function.needs_window()) children.append(random_window());
    return make_graph_node(function.name, kRotationType, std::move(children));
  }

 private:
  [[nodiscard]] std::vector<const FunctionEntry*> fitting_functions(int depth,
                                                                    std::size_t nodes) const {
    std::vector<const FunctionEntry*> functions;
    if (depth < 2) return functions;
    for (const FunctionEntry& function : vocabulary_.functions) {
      if (function.weight <= 0.0) continue;
      const bool has_window = !function.needs_window() || !windows_.empty();
      if (has_window && 1 + function.child_count() <= nodes) functions.push_back(&function);
    }
    return functions;
  }

  Value random_window() {
    const std::size_t index = genetic::random_below(generator_, windows_.size());
    return make_graph_node(std::to_string(windows_[index]), kWindowType, List());
  }

  genetic::RandomGenerator& generator_;
  const Vocabulary& vocabulary_;
  const RandomGraphOptions& options_;
  std::vector<int> windows_;
  std::vector<const FeatureEntry*> features_;
};

}  // namespace

Value random_graph(genetic::RandomGenerator& generator, const Vocabulary& vocabulary,
                   const RandomGraphOptions& options) {
  if (options.max_depth < 1 || options.max_nodes < 1) {
    throw std::invalid_argument("a random graph needs a depth and a number of nodes of 1 or more");
  }
  if (!(options.leaf_share >= 0.0 && options.leaf_share <= 1.0)) {
    throw std::invalid_argument("the share of leaves of a random graph lies between 0 and 1");
  }
  if (vocabulary.features.empty()) {
    throw std::invalid_argument("a vocabulary without features has no graphs; give it market data");
  }
  std::size_t nodes = options.max_nodes;
  return Grower(generator, vocabulary, options).grow(options.max_depth, nodes, true);
}

}  // namespace varnholt::embedded
