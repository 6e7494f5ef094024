// The gates: what a signal's statistics must be for it to pass.
//
// A signal stops at the first gate that it fails, in the order of the thresholds below. Each gate
// has one reason, under which the failure stands in the candidate's record, and a detail with the
// value, the threshold and how the two were compared.
#pragma once

#include <optional>
#include <string>

#include "hosts/embedded/backtest/statistics.hpp"
#include "search_templates/genetic/value/key.hpp"

namespace varnholt::embedded {

// Meaning and unit of each are those of the statistic of that name. What passes is what the search
// breeds from, so the defaults refuse what leads nowhere and leave the rest to the ranking: gates
// so narrow that a generation passes one signal in thirty leave too few parents (docs/figures.md).
struct GateThresholds {
  double min_abs_weight_sum_mean = 0.5;
  double max_turnover = 1.0;
  double max_max_weight = 1.0;
  double max_delta_exposure = 1.0;
  double min_gross_returns_sharpe = 0.3;
  double min_sharpe = 0.3;
};

struct GateFailure {
  genetic::Key reason;
  std::string detail;  // "sharpe 0.12 is below 0.3"
};

// The first gate that the statistics fail, or nothing.
[[nodiscard]] std::optional<GateFailure> first_failed_gate(const BacktestStatistics& statistics,
                                                           const GateThresholds& thresholds);

}  // namespace varnholt::embedded
