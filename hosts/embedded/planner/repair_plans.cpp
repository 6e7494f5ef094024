#include "hosts/embedded/planner/repair_plans.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "search_templates/genetic/settings/reason_tables.hpp"

namespace varnholt::embedded {

using genetic::Value;
namespace reasons = genetic::reasons;

namespace {

using Graph = std::optional<Value>;

// In days, where the vocabulary has such windows; otherwise the nearest shorter one.
constexpr int kLongWindow = 60;
constexpr int kDecayWindow = 40;
constexpr int kShortestSmoothing = 5;

constexpr std::size_t kBestPeer = 0;
constexpr std::size_t kSecondPeer = 1;
static_assert(kSecondPeer < kPeersUsed);

// Steps in the list of windows, each about half as long again as the one before it.
constexpr int kTwice = 2;
constexpr int kThrice = 3;
constexpr int kHalf = -2;

// The longest window of at most `days`, or the shortest where all are longer.
std::optional<int> window_near(const RepairMaterial& material, double days) {
  std::optional<int> found;
  for (const int window : material.windows) {
    if (!found || window <= days) found = window;
  }
  return found;
}

std::optional<int> window_of_at_least(const RepairMaterial& material, double days) {
  for (const int window : material.windows) {
    if (window >= days) return window;
  }
  return window_near(material, days);
}

// The graph with `levels` levels and `nodes` nodes to spare below the limits.
Graph with_room(const Value& graph, const RepairMaterial& material, int levels, std::size_t nodes) {
  for (int depth = material.limits.max_depth - levels; depth >= 1; --depth) {
    Value cut = cut_to_depth(graph, depth);
    if (measure_graph(cut).node_count + nodes <= material.limits.max_nodes) return cut;
  }
  return std::nullopt;
}

// The function of the whole graph. Only functions that change nothing when they are done twice are
// put on top without a window.
Graph wrapped(const Value& graph, const RepairMaterial& material, std::string_view function) {
  const bool is_done = read_graph_node(graph, GraphPlace{}).name == function;
  if (is_done || !material.functions.contains(function)) return std::nullopt;
  const Graph panel = with_room(graph, material, 1, 1);
  if (!panel) return std::nullopt;
  return rotation_of(function, {*panel});
}

Graph wrapped(const Value& graph, const RepairMaterial& material, std::string_view function,
              std::optional<int> window) {
  if (!window || !material.functions.contains(function)) return std::nullopt;
  const Graph panel = with_room(graph, material, 1, 2);
  if (!panel) return std::nullopt;
  return rotation_of(function, {*panel}, *window);
}

Graph smoothed(const Value& graph, const RepairMaterial& material) {
  return wrapped(graph, material, "ts_mean", window_near(material, kLongWindow));
}

Graph slowed(const Value& graph, const RepairMaterial& material, int steps) {
  return with_room(with_other_windows(graph, material.windows, steps), material, 0, 0);
}

// Exactly the opposite where it fits, otherwise that of a part of the graph.
Graph turned_round(const Graph& graph, const RepairMaterial& material) {
  if (!graph) return std::nullopt;
  Graph opposite = reversed(*graph, material.functions);
  if (opposite) {
    const GraphShape shape = measure_graph(*opposite);
    if (shape.depth <= material.limits.max_depth && shape.node_count <= material.limits.max_nodes) {
      return opposite;
    }
  }
  // A graph that begins with a negation has its panel as the opposite, which always fits.
  return wrapped(*graph, material, "arith_neg");
}

// A panel whose days are of one size, so that it can be added to another one. The size of what is
// not scaled has nothing to do with what it is worth: a volume would drown a return.
Graph at_one_scale(const Value& graph, const RepairMaterial& material, std::size_t nodes) {
  RepairMaterial share = material;
  share.limits = {material.limits.max_depth - 1, nodes};
  Graph cut = with_room(graph, share, 0, 0);
  if (cut && is_scaled(*cut)) return cut;
  return wrapped(graph, share, "cross_scale");
}

Graph combined(const RepairCase& failed, const RepairMaterial& material, std::string_view function,
               std::size_t peer) {
  const bool is_possible = peer < material.peers.size() && material.functions.contains(function) &&
                           material.limits.max_nodes >= 3;
  if (!is_possible) return std::nullopt;
  const std::size_t nodes = material.limits.max_nodes - 1;
  // The signal goes first; the peer takes what is left of the nodes, at least a third of them.
  const Graph own = at_one_scale(failed.graph, material, nodes - nodes / 3);
  if (!own) return std::nullopt;
  const std::size_t left = nodes - measure_graph(*own).node_count;
  const Graph other = at_one_scale(material.peers[peer], material, left);
  if (!other) return std::nullopt;
  return rotation_of(function, {*own, *other});
}

Graph two_wrapped(const RepairCase& failed, const RepairMaterial& material, std::string_view outer,
                  std::string_view inner) {
  if (!material.functions.contains(outer) || !material.functions.contains(inner)) {
    return std::nullopt;
  }
  const Graph panel = with_room(failed.graph, material, 2, 2);
  if (!panel) return std::nullopt;
  return rotation_of(outer, {rotation_of(inner, {*panel})});
}

// The turnover of a mean over w days of what is new every day falls with the root of w. Twice as
// many days as that asks for, since no signal is quite new every day.
double days_for_turnover(const RepairCase& failed) {
  double days = kShortestSmoothing;
  for (const genetic::Key reason : {reasons::kTurnoverMax, reasons::kTurnoverExceeded}) {
    const MissedGate* const missed = failed.missed(reason.view());
    if (missed == nullptr || !missed->value || !missed->threshold) continue;
    if (*missed->threshold <= 0.0) continue;
    const double ratio = *missed->value / *missed->threshold;
    days = std::max(days, 2.0 * ratio * ratio);
  }
  return days;
}

Graph reverse(const RepairCase& failed, const RepairMaterial& material) {
  return turned_round(failed.graph, material);
}
Graph reverse_slower(const RepairCase& failed, const RepairMaterial& material) {
  return turned_round(with_other_windows(failed.graph, material.windows, kTwice), material);
}
Graph reverse_smooth(const RepairCase& failed, const RepairMaterial& material) {
  return turned_round(smoothed(failed.graph, material), material);
}
Graph smooth_mean(const RepairCase& failed, const RepairMaterial& material) {
  return wrapped(failed.graph, material, "ts_mean",
                 window_of_at_least(material, days_for_turnover(failed)));
}
Graph smooth_long(const RepairCase& failed, const RepairMaterial& material) {
  return smoothed(failed.graph, material);
}
Graph smooth_decay(const RepairCase& failed, const RepairMaterial& material) {
  return wrapped(failed.graph, material, "ts_decay", window_near(material, kDecayWindow));
}
Graph slower_windows(const RepairCase& failed, const RepairMaterial& material) {
  return slowed(failed.graph, material, kTwice);
}
Graph much_slower_windows(const RepairCase& failed, const RepairMaterial& material) {
  return slowed(failed.graph, material, kThrice);
}
Graph quicker_windows(const RepairCase& failed, const RepairMaterial& material) {
  return slowed(failed.graph, material, kHalf);
}
Graph blend_with_peer(const RepairCase& failed, const RepairMaterial& material) {
  return combined(failed, material, "arith_add", kBestPeer);
}
Graph blend_with_second_peer(const RepairCase& failed, const RepairMaterial& material) {
  return combined(failed, material, "arith_add", kSecondPeer);
}
Graph hedge_with_peer(const RepairCase& failed, const RepairMaterial& material) {
  return combined(failed, material, "arith_sub", kBestPeer);
}
Graph demean(const RepairCase& failed, const RepairMaterial& material) {
  return wrapped(failed.graph, material, "cross_demean");
}
Graph standardise(const RepairCase& failed, const RepairMaterial& material) {
  return wrapped(failed.graph, material, "cross_zscore");
}
Graph rank(const RepairCase& failed, const RepairMaterial& material) {
  return wrapped(failed.graph, material, "cross_rank");
}
Graph clip(const RepairCase& failed, const RepairMaterial& material) {
  return two_wrapped(failed, material, "arith_tanh", "cross_zscore");
}
Graph scale_over_time(const RepairCase& failed, const RepairMaterial& material) {
  return wrapped(failed.graph, material, "ts_zscore", window_near(material, kLongWindow));
}
Graph all_alike(const RepairCase& failed, const RepairMaterial& material) {
  return two_wrapped(failed, material, "arith_sign", "cross_demean");
}
Graph grade_comparisons(const RepairCase& failed, const RepairMaterial& material) {
  if (!material.functions.contains("arith_sub")) return std::nullopt;
  return with_room(with_differences(failed.graph), material, 0, 0);
}

constexpr auto kPlans = std::to_array({
    RepairPlan{"reverse", "trade the opposite: what loses steadily earns when it is turned round",
               &reverse},
    RepairPlan{"reverse_slower",
               "trade the opposite with longer windows, so that costs do not eat what it earns",
               &reverse_slower},
    RepairPlan{"reverse_smooth",
               "trade the opposite averaged over many days, so that costs do not eat what it earns",
               &reverse_smooth},
    RepairPlan{"smooth_mean", "average over as many days as it takes to trade within the limit",
               &smooth_mean},
    RepairPlan{"smooth_long", "average over many days: less noise, and less to trade",
               &smooth_long},
    RepairPlan{"smooth_decay", "average with the latest days weighing most: less to trade",
               &smooth_decay},
    RepairPlan{"slower_windows", "look back about twice as far: a slower signal trades less",
               &slower_windows},
    RepairPlan{"much_slower_windows",
               "look back about three times as far: what is noise in weeks may hold over months",
               &much_slower_windows},
    RepairPlan{"quicker_windows", "look back about half as far, so that more days have a value",
               &quicker_windows},
    RepairPlan{"blend_with_peer",
               "add the best peer at the same scale: independent errors cancel, and a day on which "
               "one is silent is the other's",
               &blend_with_peer, kBestPeer},
    RepairPlan{"blend_with_second_peer",
               "add the second best peer at the same scale: another mix, other errors that cancel",
               &blend_with_second_peer, kSecondPeer},
    RepairPlan{"hedge_with_peer", "hold the best peer against it, so that common exposure cancels",
               &hedge_with_peer, kBestPeer},
    RepairPlan{"demean", "take off the day's mean: as much long as short", &demean},
    RepairPlan{"standardise",
               "take off the day's mean and divide by its spread: as much long as "
               "short, every day at one scale",
               &standardise},
    RepairPlan{"rank", "ranks in place of values: none stands out, and each known one has a place",
               &rank},
    RepairPlan{"clip", "squash what lies beyond the day's usual spread", &clip},
    RepairPlan{"scale_over_time",
               "measure each instrument by its own recent spread, so that none is large for good",
               &scale_over_time},
    RepairPlan{"equal_weights", "long above the day's mean and short below it, all alike",
               &all_alike},
    RepairPlan{"grade_comparisons",
               "differences in place of comparisons, so that a day on which one fails has a value",
               &grade_comparisons},
});

}  // namespace

std::span<const RepairPlan> repair_plans() {
  return kPlans;
}

const RepairPlan& repair_plan(std::string_view name) {
  const auto* const found = std::find_if(
      kPlans.begin(), kPlans.end(), [name](const RepairPlan& plan) { return plan.name == name; });
  if (found == kPlans.end()) {
    throw std::out_of_range("no repair is called \"" + std::string(name) + "\"");
  }
  return *found;
}

}  // namespace varnholt::embedded
