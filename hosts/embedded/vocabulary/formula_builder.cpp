#include "hosts/embedded/vocabulary/formula_builder.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <utility>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/value/copy.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Value;

namespace {

// What the operators of a formula come to on numbers; nothing for other functions.
std::optional<double> result_on_numbers(std::string_view name,
                                        const std::vector<FormulaPart>& parts) {
  const double x = parts.front().number;
  if (name == "arith_neg") return -x;
  if (parts.size() < 2) return std::nullopt;
  const double y = parts[1].number;
  if (name == "arith_add") return x + y;
  if (name == "arith_sub") return x - y;
  if (name == "arith_mul") return x * y;
  if (name == "arith_div") return x / y;
  if (name == "arith_power") return std::pow(x, y);
  return std::nullopt;
}

bool all_numbers(const std::vector<FormulaPart>& parts) {
  return std::all_of(parts.begin(), parts.end(),
                     [](const FormulaPart& part) { return part.is_number(); });
}

}  // namespace

FormulaPart FormulaBuilder::feature(const FeatureEntry& feature, std::size_t offset) const {
  return {make_graph_node(feature.name, kFeatureType, List()), 0.0, {1, 1}, offset};
}

FormulaPart FormulaBuilder::copy_of(const Value& graph, std::size_t offset) const {
  const GraphShape shape = measure_graph(graph);
  check_shape(shape, offset);
  return {genetic::deep_copy(graph), 0.0, shape, offset};
}

FormulaPart FormulaBuilder::number(double number, std::size_t offset) const {
  if (!std::isfinite(number)) {
    tokens_.refuse(offset, "the arithmetic on numbers has no finite result",
                   "write the number that is meant");
  }
  return {Value(), number + 0.0, {1, 1}, offset};
}

FormulaPart FormulaBuilder::operation(std::string_view name, const std::vector<FormulaPart>& panels,
                                      std::size_t offset) const {
  if (all_numbers(panels)) {
    const std::optional<double> result = result_on_numbers(name, panels);
    if (result) return number(*result, offset);
  }
  const FunctionEntry* const function = vocabulary_.find_function(name);
  if (function == nullptr) {
    tokens_.refuse(offset, "the vocabulary has no \"" + std::string(name) + "\"",
                   "write it without this operator");
  }
  std::vector<Argument> arguments;
  arguments.reserve(panels.size());
  for (const FormulaPart& panel : panels)
    arguments.push_back({panel, {}});
  return call(*function, std::move(arguments), offset);
}

FormulaPart FormulaBuilder::call(const FunctionEntry& function, std::vector<Argument> arguments,
                                 std::size_t offset) const {
  GraphShape shape{1, 1};
  List children(arguments.size());
  bool has_data = false;
  for (Argument& argument : arguments) {
    shape.node_count += argument.part.shape.node_count;
    shape.depth = std::max(shape.depth, argument.part.shape.depth + 1);
    if (!argument.setting.is_absent()) {
      children.append(std::move(argument.setting));
    } else if (argument.part.is_number()) {
      children.append(make_graph_node(number_text(argument.part.number), kConstantType, List()));
    } else {
      has_data = true;
      children.append(std::move(argument.part.graph));
    }
  }
  if (!has_data) {
    tokens_.refuse(offset, std::string(function.name) + " is given nothing but numbers",
                   "write the number that it comes to, or a feature in the place of one");
  }
  check_shape(shape, offset);
  return {make_graph_node(function.name, kRotationType, std::move(children)), 0.0, shape, offset};
}

void FormulaBuilder::check_shape(const GraphShape& shape, std::size_t offset) const {
  if (shape.depth > limits_.max_depth) {
    tokens_.refuse(offset,
                   "the graph is deeper than " + std::to_string(limits_.max_depth) + " nodes",
                   "use fewer levels");
  }
  if (shape.node_count > limits_.max_nodes) {
    tokens_.refuse(offset,
                   "the graph has more than " + std::to_string(limits_.max_nodes) + " nodes",
                   "use fewer nodes");
  }
}

Value FormulaBuilder::window(const FormulaPart& part) const {
  if (!part.is_number()) {
    tokens_.refuse(part.offset, "data stand where a window is expected",
                   "write a whole number of days, such as 20");
  }
  const double days = part.number;
  if (days != std::floor(days)) {
    tokens_.refuse(part.offset, number_text(days) + " is no whole number of days",
                   "write " + number_text(std::max(1.0, std::floor(days))));
  }
  if (days < 1.0 || days > kLongestWindow) {
    tokens_.refuse(part.offset, number_text(days) + " days are no window",
                   "write a whole number of days from 1 to " + std::to_string(kLongestWindow));
  }
  if (days > limits_.max_window) {
    tokens_.refuse(part.offset,
                   "a window of " + number_text(days) + " days is beyond the limit of " +
                       std::to_string(limits_.max_window) + " days",
                   "write a shorter one");
  }
  return make_graph_node(std::to_string(static_cast<int>(days)), kWindowType, List());
}

Value FormulaBuilder::number_setting(const FormulaPart& part, const FunctionEntry& function) const {
  const NumberRange& range = function.range;
  if (!part.is_number() || part.number < range.low || part.number > range.high) {
    tokens_.refuse(part.offset,
                   part.is_number() ? number_text(part.number) + " is out of range"
                                    : std::string("data stand where a number is expected"),
                   "give " + std::string(function.name) + " a number from " +
                       number_text(range.low) + " to " + number_text(range.high));
  }
  return make_graph_node(number_text(part.number), kNumberType, List());
}

}  // namespace varnholt::embedded
