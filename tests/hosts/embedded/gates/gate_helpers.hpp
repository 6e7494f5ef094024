// Statistics and thresholds for the tests of the gates: one signal that passes, and room to spoil.
#pragma once

#include <string>
#include <vector>

#include "hosts/embedded/gates/gates.hpp"

namespace varnholt::embedded::test {

// Statistics that pass gates() and limits() with room on every side.
inline BacktestStatistics good_statistics() {
  BacktestStatistics statistics;
  statistics.sharpe = 1.5;
  statistics.gross_returns_sharpe = 1.6;
  statistics.turnover = 0.2;
  statistics.max_weight = 0.5;
  statistics.delta_exposure = 0.1;
  statistics.abs_weight_sum_mean = 1.0;
  return statistics;
}

inline GateThresholds some_gates() {
  return {.min_abs_weight_sum_mean = 0.5,
          .max_turnover = 0.5,
          .max_max_weight = 0.6,
          .max_delta_exposure = 0.3,
          .min_gross_returns_sharpe = 1.0,
          .min_sharpe = 0.8};
}

inline HardLimits some_limits() {
  return {.turnover = 1.5, .max_weight = 0.9, .delta_exposure = 0.75};
}

inline std::vector<std::string> reasons_of(const std::vector<GateFailure>& failures) {
  std::vector<std::string> names;
  for (const GateFailure& failure : failures)
    names.emplace_back(failure.reason.view());
  return names;
}

}  // namespace varnholt::embedded::test
