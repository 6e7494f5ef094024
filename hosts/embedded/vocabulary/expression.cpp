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

std::string names_of(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names)
    text.append(text.empty() ? "" : ", ").append(name);
  return text;
}

// "1 feature or rotation and then a window"
std::string arguments_of(const FunctionEntry& function) {
  std::string text = function.data_children() == 1
                         ? "1 feature or rotation"
                         : std::to_string(function.data_children()) + " features or rotations";
  if (function.takes(ArgumentKind::Group)) text += " and then a group";
  if (function.takes(ArgumentKind::Number)) text += " and then a number";
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
    if (node.type == kConstantType) return compile_constant(node, place);
    if (node.type == kWindowType || node.type == kNumberType || node.type == kGroupType) {
      throw GraphError(place.text(), "a " + node.type + " stands where data are expected",
                       "put a feature or a rotation here");
    }
    throw GraphError(place.text(), quoted(node.type) + " is no type of node",
                     R"(use "feature", "rotation", "window", "constant", "number" or "group")");
  }

  std::size_t compile_constant(const GraphNode& node, const GraphPlace& place) {
    if (place.parent == nullptr) {
      throw GraphError(place.text(), "the graph is nothing but a constant",
                       "put a feature or a rotation here");
    }
    const double number = read_number(node, place);
    return step_of({.number = number});
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
    const ArgumentKinds kinds = function->arguments();
    bool has_data = false;
    for (std::size_t i = 0; i < kinds.size(); ++i) {
      const Value& child = node.children.at(i);
      const GraphPlace child_place = place.of_child(i);
      switch (kinds[i]) {
        case ArgumentKind::Data:
          step.inputs[i] = compile_data(child, child_place);
          has_data = has_data || !expression_.steps[step.inputs[i]].is_constant();
          break;
        case ArgumentKind::Group:
          step.group = &compile_group(child, child_place);
          break;
        case ArgumentKind::Number:
          step.number = compile_number(child, child_place, *function);
          break;
        case ArgumentKind::Days:
          step.window = compile_window(child, child_place);
          break;
      }
    }
    if (!has_data) {
      throw GraphError(place.text(), node.name + " is given nothing but constants",
                       "put the number that it comes to here, or a feature in the place of one");
    }
    return step_of(step);
  }

  // The node that settles how a function works.
  GraphNode read_setting(const Value& value, const GraphPlace& place, std::string_view type,
                         const std::string& example) {
    count_node(expression_.shape, place, limits_);
    GraphNode node = read_graph_node(value, place);
    if (node.type == type) {
      require_no_children(node, place);
      return node;
    }
    const std::string wanted(type);
    throw GraphError(
        place.text(),
        "a node of the type " + quoted(node.type) + " stands where a " + wanted + " is expected",
        "put a " + wanted + " here, such as " + example);
  }

  int compile_window(const Value& value, const GraphPlace& place) {
    const GraphNode node = read_setting(value, place, kWindowType, "20 days");
    const std::optional<int> window = window_of(node.name);
    if (!window) {
      throw GraphError(place.text(), quoted(node.name) + " is no window",
                       "use a whole number of days from 1 to " + std::to_string(kLongestWindow));
    }
    if (*window > limits_.max_window) {
      throw GraphError(place.text(),
                       "a window of " + std::to_string(*window) + " days is beyond the limit of " +
                           std::to_string(limits_.max_window) + " days",
                       "use a shorter one");
    }
    return *window;
  }

  const std::string& compile_group(const Value& value, const GraphPlace& place) {
    const GraphNode node = read_setting(value, place, kGroupType, "sector");
    const std::string* const group = vocabulary_.find_group(node.name);
    if (group != nullptr) return *group;
    throw GraphError(place.text(), quoted(node.name) + " is no group of these market data",
                     vocabulary_.groups.empty()
                         ? "they have none; use a function that needs no group, or give prices "
                           "with a column of names of that name"
                         : "use one of " + names_of(vocabulary_.groups) +
                               ", or give prices with a column of names of that name");
  }

  double compile_number(const Value& value, const GraphPlace& place,
                        const FunctionEntry& function) {
    const GraphNode node = read_setting(value, place, kNumberType, "0.5");
    const double number = read_number(node, place);
    if (number >= function.range.low && number <= function.range.high) return number;
    throw GraphError(place.text(), node.name + " is out of range",
                     "give " + std::string(function.name) + " a number from " +
                         number_text(function.range.low) + " to " +
                         number_text(function.range.high));
  }

  static double read_number(const GraphNode& node, const GraphPlace& place) {
    const std::optional<double> number = constant_value(node.name);
    if (!number) {
      throw GraphError(place.text(), quoted(node.name) + " is no number as a node holds it",
                       "write a finite number with the fewest digits, such as 0.5 or -2");
    }
    require_no_children(node, place);
    return *number;
  }

  const FeatureEntry& find_feature(const GraphNode& node, const GraphPlace& place) const {
    const FeatureEntry* const feature = vocabulary_.find_feature(node.name);
    if (feature == nullptr) {
      throw GraphError(place.text(), quoted(node.name) + " is no feature of these market data",
                       "use one of " + names_of(vocabulary_.features) +
                           ", or give prices with a column of numbers of that name");
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
