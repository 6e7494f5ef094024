// The catalogue of repairs: what a researcher would try on a signal that nearly passed.
//
//   name                    what is tried
//   reverse                 trade the opposite
//   reverse_slower          the opposite, with windows about twice as long
//   reverse_smooth          the opposite, averaged over a long window
//   smooth_mean             average over as many days as the turnover asks for
//   smooth_long             average over a long window
//   smooth_decay            average over recent days, the latest weighing most
//   slower_windows          windows about twice as long
//   much_slower_windows     windows about three times as long
//   quicker_windows         windows about half as long
//   blend_with_peer         add another signal, both at one scale
//   blend_with_second_peer  add the next one instead
//   hedge_with_peer         hold another signal against it, both at one scale
//   demean                  the same weight long as short
//   standardise             likewise, a day's spread being the same every day
//   rank                    ranks in place of values
//   clip                    values beyond the usual spread count no more than it
//   scale_over_time         each instrument against its own recent spread
//   equal_weights           long or short of each instrument, all alike
//   grade_comparisons       differences in place of comparisons, which hold or do not
//
// A repair puts nodes on top of a graph. Where the limits leave no room for them, the innermost
// part of the graph is cut.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "hosts/embedded/planner/graph_edits.hpp"
#include "hosts/embedded/planner/repair_case.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// What repairs may be made of.
struct RepairMaterial {
  FunctionNames functions;
  std::vector<int> windows;  // In days, ascending.
  GraphLimits limits;        // Of the repaired graph.
  // Graphs of other signals, the best peers first. They follow the rules of graph_check.hpp, as the
  // graph of the failed signal does.
  std::vector<genetic::Value> peers;
  // Finishes the repaired graphs.
  GraphMaking making = {};
};

// The number of peers that are used, the first ones.
inline constexpr std::size_t kPeersUsed = 2;

// One entry of the catalogue. Its graph may share nodes with the graphs that it is made of.
struct RepairPlan {
  std::string_view name;
  std::string_view explanation;  // One line.
  // Nothing where the repair does not apply: no window to lengthen, no peer, no such function.
  std::optional<genetic::Value> (*graph)(const RepairCase& failed, const RepairMaterial& material);
  // Which peer the graph is made of beside the signal's own, if any.
  std::optional<std::size_t> peer = {};
};

[[nodiscard]] std::span<const RepairPlan> repair_plans();

// The plan of that name, which must be in the catalogue.
[[nodiscard]] const RepairPlan& repair_plan(std::string_view name);

}  // namespace varnholt::embedded
