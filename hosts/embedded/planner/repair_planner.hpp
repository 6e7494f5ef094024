// Which repairs a failed signal gets, and in which order.
//
// Each reason for a failure has the repairs that a researcher would try, the most promising first
// (docs/repairs.md has the results of each). A signal whose Sharpe ratio is too small is first
// diagnosed: one that loses steadily is reversed, one whose costs eat what it earns is slowed down,
// one that nearly made it is blended with a peer.
#pragma once

#include <string_view>
#include <vector>

#include "hosts/embedded/planner/repair_plans.hpp"

namespace varnholt::embedded {

struct PlannedRepair {
  const RepairPlan* plan = nullptr;
  std::string_view reason;  // The failure that it is meant for, one of the case's.
  genetic::Value graph;     // New: it shares nothing with the case or the material.
};

// The repairs of a signal, the most promising first. The same case and material give the same
// repairs. Every graph follows the rules of graph_check.hpp, is within the material's limits, and
// no two of them, nor the signal's own, have one structure. A reason without repairs adds none.
//
// Throws GraphError for a graph of the case or of the peers that breaks a rule.
[[nodiscard]] std::vector<PlannedRepair> plan_repairs(const RepairCase& failed,
                                                      const RepairMaterial& material);

}  // namespace varnholt::embedded
