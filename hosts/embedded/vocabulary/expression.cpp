#include "hosts/embedded/vocabulary/expression.hpp"

#include <algorithm>
#include <string>

namespace varnholt::embedded {
namespace {

using genetic::Value;

std::string quoted(const std::string& text) {
  return "\"" + shown_name(text) + "\"";
}

template <typename Entry>
std::string names_of(const std::vector<Entry>& entries) {
  std::string text;
  for (const Entry& entry : entries) {
    if (!text.empty()) text += ", ";
    text += entry.name;
  }
  return text;
}

std::string days_of(const std::vector<int>& windows) {
  std::string text;
  for (const int window : windows) {
    if (!text.empty()) text += ", ";
    text += std::to_string(window);
  }
  return text;
}

// "1 feature or rotation and then a window"
std::string arguments_of(const FunctionEntry& function) {
  std::string text =
      function.data_children() == 1 ? "1 feature or rotation" : "2 features or rotations";
  if (function.needs_window()) text += " and then a window";
  return text;
}

class Compiler {
 public:
  Compiler(const Vocabulary& vocabulary, const GraphLimits& limits)
      : vocabulary_(vocabulary), limits_(limits) {}

  Expression compile(const Value& graph) {
    (void)compile_data(graph, GraphPlace{});
    return std::move(expression_);
  }

 private:
  // The step for a feature or rotation with all that is below it.
  std::size_t compile_data(const Value& value, const GraphPlace& place) {
    count_node(expression_.shape, place, limits_);
    const GraphNode node = read_graph_node(value, place);
    if (node.type == kFeatureType) return step_of({.feature = &find_feature(node, place)});
    if (node.type == kRotationType) return compile_function(node, place);
    if (node.type == kWindowType) {
      throw GraphError(place.text(), "a window stands where data are expected",
                       "put a feature or a rotation here");
    }
    throw GraphError(place.text(), quoted(node.type) + " is no type of node",
                     R"(use "feature", "rotation" or "window")");
  }

  std::size_t compile_function(const GraphNode& node, const GraphPlace& place) {
    const FunctionEntry* const function = vocabulary_.find_function(node.name);
    if (function == nullptr) {
      throw GraphError(place.text(), quoted(node.name) + " is no function of this vocabulary",
                       "use one of " + names_of(vocabulary_.functions));
    }
    if (node.children.size() != function->child_count()) {
      throw GraphError(place.text(),
                       node.name + " has " + std::to_string(node.children.size()) +
                           " children where it takes " + std::to_string(function->child_count()),
                       "give it " + arguments_of(*function));
    }
    ExpressionStep step{.function = function};
    for (std::size_t i = 0; i < function->data_children(); ++i) {
      step.inputs[i] = compile_data(node.children.at(i), place.of_child(i));
    }
    if (function->needs_window()) {
      const std::size_t last = node.children.size() - 1;
      step.window = compile_window(node.children.at(last), place.of_child(last));
    }
    return step_of(step);
  }

  int compile_window(const Value& value, const GraphPlace& place) {
    count_node(expression_.shape, place, limits_);
    const GraphNode node = read_graph_node(value, place);
    if (node.type != kWindowType) {
      throw GraphError(
          place.text(),
          "a node of the type " + quoted(node.type) + " stands where a window is expected",
          "put a window here, such as 20 days");
    }
    const std::optional<int> window = vocabulary_.find_window(node.name);
    if (!window) {
      throw GraphError(place.text(), quoted(node.name) + " is no window of this vocabulary",
                       "use one of " + days_of(vocabulary_.windows));
    }
    if (*window > limits_.max_window) {
      throw GraphError(place.text(),
                       "a window of " + std::to_string(*window) + " days is beyond the limit of " +
                           std::to_string(limits_.max_window) + " days",
                       "use a shorter one");
    }
    require_no_children(node, place);
    return *window;
  }

  const FeatureEntry& find_feature(const GraphNode& node, const GraphPlace& place) const {
    const FeatureEntry* const feature = vocabulary_.find_feature(node.name);
    if (feature == nullptr) {
      throw GraphError(place.text(), quoted(node.name) + " is no feature of these market data",
                       "use one of " + names_of(vocabulary_.features));
    }
    require_no_children(node, place);
    return *feature;
  }

  static void require_no_children(const GraphNode& node, const GraphPlace& place) {
    if (node.children.empty()) return;
    throw GraphError(place.text(), "a node of the type " + quoted(node.type) + " has children",
                     "remove them");
  }

  // The place of the step, which is an earlier one where that says the same. Graphs are small: a
  // look at every step costs less than a table of them.
  std::size_t step_of(const ExpressionStep& step) {
    std::vector<ExpressionStep>& steps = expression_.steps;
    const auto found = std::find(steps.begin(), steps.end(), step);
    if (found != steps.end()) return static_cast<std::size_t>(found - steps.begin());
    steps.push_back(step);
    return steps.size() - 1;
  }

  const Vocabulary& vocabulary_;
  const GraphLimits& limits_;
  Expression expression_;
};

}  // namespace

Expression compile_expression(const Value& graph, const Vocabulary& vocabulary,
                              const GraphLimits& limits) {
  return Compiler(vocabulary, limits).compile(graph);
}

}  // namespace varnholt::embedded
