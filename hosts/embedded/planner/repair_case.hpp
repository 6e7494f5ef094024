// A signal that failed its gates, as far as its repair needs it: the graph, and by how much it
// missed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// A gate that was missed. What is not known, or no finite number, is absent.
struct MissedGate {
  std::string reason;  // As in the table of gates: "turnover_max".
  std::optional<double> value;
  std::optional<double> threshold;
};

struct RepairCase {
  genetic::Value graph;
  std::vector<MissedGate> failures;
  // Annualised, after costs and before them.
  std::optional<double> sharpe;
  std::optional<double> gross_sharpe;

  // The failure for that reason, or nullptr.
  [[nodiscard]] const MissedGate* missed(std::string_view reason) const;
};

// What may become of a signal whose Sharpe ratio is too small.
//
// Costs weigh on a signal whichever way it is traded. With g before costs and n after them, the
// reversed signal has -g before costs and n - 2g after them: the loss of g, minus the costs once
// more.
enum class SharpeOutlook {
  Reversed,           // Reversed it passes, by this estimate.
  ReversedIfCheaper,  // Reversed it would pass but for its costs, or earn something at least.
  EatenByCosts,       // It passes before costs.
  NearMiss,           // It earns something after costs, but not enough.
  Weak                // None of these, or not known.
};

// Nothing for a signal whose Sharpe ratios missed no gate. A figure that is not known counts as
// equal to the other one, and a threshold that is not known likewise, or as 0.
[[nodiscard]] std::optional<SharpeOutlook> sharpe_outlook(const RepairCase& failed);

}  // namespace varnholt::embedded
