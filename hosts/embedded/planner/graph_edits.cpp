#include "hosts/embedded/planner/graph_edits.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <utility>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Value;

namespace {

constexpr std::string_view kNegation = "arith_neg";
constexpr std::string_view kDifference = "arith_sub";
constexpr std::string_view kSum = "arith_add";
constexpr std::string_view kGreater = "comparison_gt";
constexpr std::string_view kLess = "comparison_lt";

// f(-x) = -f(x), to the rounding of their sums.
constexpr std::array<std::string_view, 16> kOdd = {
    "ts_mean",      "ts_sum",       "ts_decay",     "ts_delta",  "ts_zscore",  "cross_zscore",
    "cross_demean", "cross_scale",  "arith_tanh",   "arith_log", "arith_sign", "ts_delay",
    "ts_ema",       "group_demean", "group_zscore", "ts_skew"};
// f(-x, y) = f(x, -y) = -f(x, y).
constexpr std::array<std::string_view, 4> kOddInEach = {"arith_mul", "arith_div", "ts_correlation",
                                                        "ts_covariance"};
// -f(x, ...) = g(-x, ...) for the two of a pair.
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kMirrored = {
    {{"ts_min", "ts_max"},
     {"ts_max", "ts_min"},
     {"arith_min", "arith_max"},
     {"arith_max", "arith_min"}}};
constexpr std::array<std::string_view, 3> kScaled = {"cross_rank", "cross_zscore", "cross_scale"};

bool contains(const auto& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// What was checked before is read again, without looking for its place.
GraphNode read(const Value& node) {
  return read_graph_node(node, GraphPlace{});
}

std::optional<double> constant_of(const GraphNode& node) {
  return node.type == kConstantType ? constant_value(node.name) : std::nullopt;
}

bool is_constant(const Value& graph) {
  return read(graph).type == kConstantType;
}

Value rotation_like(const GraphNode& node, std::string_view name, List children) {
  return make_graph_node(name, node.type, std::move(children));
}

// The children with some of them replaced.
List with_child(const List& children, std::size_t place, const Value& child) {
  List changed(children.size());
  for (std::size_t i = 0; i < children.size(); ++i)
    changed.append(i == place ? child : children.at(i));
  return changed;
}

// Keeps the flattest of the ways to say something.
class Flattest {
 public:
  void offer(Value way) {
    const GraphShape shape = measure_graph(way);
    if (best_ &&
        std::tuple(shape.depth, shape.node_count) >= std::tuple(shape_.depth, shape_.node_count)) {
      return;
    }
    best_ = std::move(way);
    shape_ = shape;
  }

  [[nodiscard]] std::optional<Value> take() { return std::move(best_); }

 private:
  std::optional<Value> best_;
  GraphShape shape_;
};

class Reversal {
 public:
  explicit Reversal(const FunctionNames& functions) : functions_(functions) {}

  [[nodiscard]] std::optional<Value> of(const Value& graph) const {
    const GraphNode node = read(graph);
    Flattest ways;
    // Of two ways that are alike the one that is offered first stays: the plainest.
    if (const std::optional<double> number = constant_of(node)) {
      ways.offer(make_graph_node(number_text(-*number), kConstantType, List()));
      return ways.take();
    }
    if (functions_.contains(kNegation)) ways.offer(rotation_of(kNegation, {graph}));
    if (node.type == kRotationType) offer_by_root(node, ways);
    return ways.take();
  }

 private:
  void offer_by_root(const GraphNode& node, Flattest& ways) const {
    const List& panels = node.children;
    if (node.name == kNegation) ways.offer(panels.at(0));
    if (node.name == kDifference) {
      ways.offer(rotation_like(node, kDifference, List{panels.at(1), panels.at(0)}));
    }
    if (node.name == kSum) offer_both(node, kSum, ways);
    if (contains(kOdd, node.name)) offer_one(node, node.name, 0, ways);
    if (contains(kOddInEach, node.name)) {
      offer_one(node, node.name, 0, ways);
      offer_one(node, node.name, 1, ways);
    }
    for (const auto& [name, mirror] : kMirrored) {
      if (node.name != name || !functions_.contains(mirror)) continue;
      if (name.starts_with("ts_")) {
        offer_one(node, mirror, 0, ways);
      } else {
        offer_both(node, mirror, ways);
      }
    }
  }

  void offer_one(const GraphNode& node, std::string_view name, std::size_t place,
                 Flattest& ways) const {
    if (const std::optional<Value> panel = of(node.children.at(place))) {
      ways.offer(rotation_like(node, name, with_child(node.children, place, *panel)));
    }
  }

  void offer_both(const GraphNode& node, std::string_view name, Flattest& ways) const {
    const std::optional<Value> first = of(node.children.at(0));
    const std::optional<Value> second = of(node.children.at(1));
    if (first && second) ways.offer(rotation_like(node, name, List{*first, *second}));
  }

  const FunctionNames& functions_;
};

// A new graph in which `change` has been asked of every node, its children first.
template <typename Change>
Value rebuilt(const Value& graph, const Change& change) {
  const GraphNode node = read(graph);
  List children(node.children.size());
  for (std::size_t i = 0; i < node.children.size(); ++i)
    children.append(rebuilt(node.children.at(i), change));
  return change(node, std::move(children));
}

// A window that is not among those of the list, by as much as so many steps of the list change one,
// and no further than the list goes.
std::string stretched(const std::string& name, std::span<const int> windows, int steps) {
  constexpr double kStep = 1.5;
  const std::optional<int> days = window_of(name);
  if (!days || windows.empty()) return name;
  const double wanted = std::round(*days * std::pow(kStep, steps));
  const int least = std::min(*days, windows.front());
  const int most = std::max(*days, windows.back());
  return std::to_string(std::clamp(static_cast<int>(wanted), least, most));
}

}  // namespace

Value rotation_of(std::string_view name, std::initializer_list<Value> panels,
                  std::optional<int> window) {
  List children(panels);
  if (window) children.append(make_graph_node(std::to_string(*window), kWindowType, List()));
  return make_graph_node(name, kRotationType, std::move(children));
}

std::optional<Value> reversed(const Value& graph, const FunctionNames& functions) {
  return Reversal(functions).of(graph);
}

Value with_other_windows(const Value& graph, std::span<const int> windows, int steps) {
  const auto other = [windows, steps](const std::string& name) {
    const auto found = std::find_if(windows.begin(), windows.end(),
                                    [&name](int window) { return name == std::to_string(window); });
    if (found == windows.end()) return stretched(name, windows, steps);
    const auto last = static_cast<std::int64_t>(windows.size()) - 1;
    const std::int64_t place = std::clamp<std::int64_t>((found - windows.begin()) + steps, 0, last);
    return std::to_string(windows[static_cast<std::size_t>(place)]);
  };
  return rebuilt(graph, [&other](const GraphNode& node, List children) {
    const std::string name = node.type == kWindowType ? other(node.name) : node.name;
    return make_graph_node(name, node.type, std::move(children));
  });
}

Value cut_to_depth(const Value& graph, int depth) {
  const GraphNode node = read(graph);
  if (node.type != kRotationType) return graph;
  if (depth < 2) {
    // One of its panels at least is no constant.
    std::size_t panel = 0;
    while (is_constant(node.children.at(panel)))
      ++panel;
    return cut_to_depth(node.children.at(panel), depth);
  }
  List children(node.children.size());
  for (std::size_t i = 0; i < node.children.size(); ++i)
    children.append(cut_to_depth(node.children.at(i), depth - 1));
  return rotation_like(node, node.name, std::move(children));
}

Value with_differences(const Value& graph) {
  return rebuilt(graph, [](const GraphNode& node, List children) {
    if (node.name == kGreater) return rotation_like(node, kDifference, std::move(children));
    if (node.name == kLess) {
      return rotation_like(node, kDifference, List{children.at(1), children.at(0)});
    }
    return make_graph_node(node.name, node.type, std::move(children));
  });
}

bool is_scaled(const Value& graph) {
  return contains(kScaled, read(graph).name);
}

}  // namespace varnholt::embedded
