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

// Meaning and unit of each are those of the statistic of that name. The defaults ask for a signal
// that is at least as good as holding the sample's instruments in equal parts (a sharpe of 0.58
// from 2000 to 2013) without being the market itself.
struct GateThresholds {
  double min_abs_weight_sum_mean = 0.5;
  double max_turnover = 1.0;
  double max_max_weight = 1.0;
  double max_delta_exposure = 0.9;
  double min_gross_returns_sharpe = 0.6;
  double min_sharpe = 0.6;
};

struct GateFailure {
  genetic::Key reason;
  std::string detail;  // "sharpe 0.12 is below 0.3"
};

// The first gate that the statistics fail, or nothing.
[[nodiscard]] std::optional<GateFailure> first_failed_gate(const BacktestStatistics& statistics,
                                                           const GateThresholds& thresholds);

}  // namespace varnholt::embedded
