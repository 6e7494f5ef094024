#include "hosts/embedded/vocabulary/random_graphs.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/unit_check.hpp"
#include "search_templates/genetic/value/copy.hpp"

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

// What a graph ends in: a feature, or a formula of the user's own.
struct Leaf {
  const FeatureEntry* feature = nullptr;
  const NamedFormula* formula = nullptr;
  double weight = 0.0;
  GraphShape shape{1, 1};
  Unit unit;
};

// A graph, or a part of one, with its unit.
struct Grown {
  Value graph;
  UnitOfPanel unit;
};

// Functions whose second panel may be a number.
bool goes_with_constants(const FunctionEntry& function) {
  return function.family == "arith" || function.family == "comparison";
}

class Grower {
 public:
  Grower(genetic::RandomGenerator& generator, const Vocabulary& vocabulary,
         const RandomGraphOptions& options)
      : generator_(generator), vocabulary_(vocabulary), options_(options) {
    for (const int window : vocabulary.windows) {
      if (window <= options.max_window) windows_.push_back(window);
    }
    for (const FeatureEntry& feature : vocabulary.features) {
      if (feature.weight <= 0.0) continue;
      leaves_.push_back({&feature, nullptr, feature.weight, {1, 1}, feature.unit});
    }
    for (const NamedFormula& formula : vocabulary.formulas) {
      if (formula.weight <= 0.0) continue;
      leaves_.push_back({nullptr, &formula, formula.weight, measure_graph(formula.graph),
                         units_of_graph(formula.graph, vocabulary).unit});
    }
  }

  Value whole_graph() {
    while (true) {
      std::size_t nodes = options_.max_nodes;
      is_mixed_ = false;
      Grown grown = grow(options_.max_depth, nodes, true);
      if (!is_mixed_ || !may_redraw()) return std::move(grown.graph);
    }
  }

 private:
  // A subtree of at most `depth` levels and `nodes` nodes, both at least 1. Takes from `nodes` what
  // it uses.
  Grown grow(int depth, std::size_t& nodes, bool is_root) {
    const std::vector<const FunctionEntry*> functions = fitting_functions(depth, nodes);
    const bool is_leaf =
        functions.empty() || (!is_root && generator_.random() < options_.leaf_share);
    if (is_leaf) {
      const Leaf& leaf = weighted_choice(fitting_leaves(depth, nodes), generator_.random());
      nodes -= leaf.shape.node_count;
      return {leaf.feature != nullptr ? make_graph_node(leaf.feature->name, kFeatureType, List())
                                      : genetic::deep_copy(leaf.formula->graph),
              {leaf.unit, std::nullopt}};
    }
    const FunctionEntry& function = weighted_choice(functions, generator_.random());
    List children(function.child_count());
    std::vector<UnitOfPanel> panels;
    panels.reserve(function.data_children());
    // What is no subtree is spoken for before the subtrees take any node.
    nodes -= 1 + function.child_count() - function.data_children();
    for (std::size_t left = function.data_children(); left > 0; --left) {
      if (left < function.data_children() && draws_constant(function)) {
        children.append(random_constant());
        panels.push_back({kFitsAll, constant_value(last_name(children))});
        --nodes;
        continue;
      }
      const std::size_t share = left == 1 ? nodes : std::min((nodes + 1) / 2, nodes - (left - 1));
      Grown panel = grow_like(function, panels, depth - 1, share, nodes);
      children.append(std::move(panel.graph));
      panels.push_back(panel.unit);
    }
    int window = 0;
    for (const ArgumentKind kind : function.arguments()) {
      if (kind == ArgumentKind::Data) continue;
      children.append(random_setting(kind, function));
      if (kind == ArgumentKind::Days) window = window_of(last_name(children)).value_or(0);
    }
    const UnitOfCall call = unit_of_call(function, panels, window);
    return {make_graph_node(function.name, kRotationType, std::move(children)),
            {call.unit, std::nullopt}};
  }

  // Counts one redraw, where there is one left.
  bool may_redraw() {
    if (redraws_ == kMostRedraws) return false;
    ++redraws_;
    return true;
  }

  // The next panel of the function, from `share` of the nodes; drawn again while it is not like
  // those before it.
  Grown grow_like(const FunctionEntry& function, const std::vector<UnitOfPanel>& before, int depth,
                  std::size_t share, std::size_t& nodes) {
    for (int tries = 0;; ++tries) {
      std::size_t left = share;
      Grown panel = grow(depth, left, false);
      std::vector<UnitOfPanel> panels = before;
      panels.push_back(panel.unit);
      const bool is_good =
          !options_.keeps_units || !unit_of_call(function, panels, 0).mixed.has_value();
      if (is_good || tries == kMostPanelRedraws || !may_redraw()) {
        is_mixed_ = is_mixed_ || !is_good;
        nodes -= share - left;
        return panel;
      }
    }
  }

  static std::string last_name(const List& children) {
    return read_graph_node(children.at(children.size() - 1), GraphPlace{}).name;
  }

  [[nodiscard]] std::vector<const FunctionEntry*> fitting_functions(int depth,
                                                                    std::size_t nodes) const {
    std::vector<const FunctionEntry*> functions;
    if (depth < 2) return functions;
    for (const FunctionEntry& function : vocabulary_.functions) {
      if (function.weight <= 0.0) continue;
      const bool has_window = !function.needs_window() || !windows_.empty();
      const bool has_group = !function.takes(ArgumentKind::Group) || !vocabulary_.groups.empty();
      if (has_window && has_group && 1 + function.child_count() <= nodes) {
        functions.push_back(&function);
      }
    }
    return functions;
  }

  [[nodiscard]] std::vector<const Leaf*> fitting_leaves(int depth, std::size_t nodes) const {
    std::vector<const Leaf*> leaves;
    leaves.reserve(leaves_.size());
    for (const Leaf& leaf : leaves_) {
      if (leaf.shape.depth <= depth && leaf.shape.node_count <= nodes) leaves.push_back(&leaf);
    }
    return leaves;
  }

  bool draws_constant(const FunctionEntry& function) {
    return options_.constant_share > 0.0 && !vocabulary_.constants.empty() &&
           goes_with_constants(function) && generator_.random() < options_.constant_share;
  }

  Value random_constant() {
    const std::size_t index = genetic::random_below(generator_, vocabulary_.constants.size());
    return make_graph_node(number_text(vocabulary_.constants[index]), kConstantType, List());
  }

  Value random_setting(ArgumentKind kind, const FunctionEntry& function) {
    if (kind == ArgumentKind::Group) {
      const std::size_t index = genetic::random_below(generator_, vocabulary_.groups.size());
      return make_graph_node(vocabulary_.groups[index], kGroupType, List());
    }
    if (kind == ArgumentKind::Number) {
      const std::span<const double> numbers = function.range.drawn;
      const std::size_t index = genetic::random_below(generator_, numbers.size());
      return make_graph_node(number_text(numbers[index]), kNumberType, List());
    }
    const std::size_t index = genetic::random_below(generator_, windows_.size());
    return make_graph_node(std::to_string(windows_[index]), kWindowType, List());
  }

  genetic::RandomGenerator& generator_;
  const Vocabulary& vocabulary_;
  const RandomGraphOptions& options_;
  std::vector<int> windows_;
  std::vector<Leaf> leaves_;
  int redraws_ = 0;
  bool is_mixed_ = false;  // Whether a panel stayed that is not like those before it.
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
  if (!(options.constant_share >= 0.0 && options.constant_share <= 1.0)) {
    throw std::invalid_argument("the share of constants of a random graph lies between 0 and 1");
  }
  if (std::none_of(vocabulary.features.begin(), vocabulary.features.end(),
                   [](const FeatureEntry& feature) { return feature.weight > 0.0; })) {
    throw std::invalid_argument("a vocabulary without features has no graphs; give it market data");
  }
  Grower grower(generator, vocabulary, options);
  return grower.whole_graph();
}

}  // namespace varnholt::embedded
