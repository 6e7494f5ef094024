#include "hosts/embedded/gates/gates.hpp"

#include <string_view>

#include <fmt/format.h>

#include "search_templates/genetic/settings/reason_tables.hpp"

namespace varnholt::embedded {
namespace {

namespace reasons = genetic::reasons;

std::optional<GateFailure> at_most(genetic::Key reason, std::string_view name, double value,
                                   double threshold) {
  if (value <= threshold) return std::nullopt;
  return GateFailure{reason, fmt::format("{} {:.4g} is above {:.4g}", name, value, threshold)};
}

std::optional<GateFailure> at_least(genetic::Key reason, std::string_view name, double value,
                                    double threshold) {
  if (value >= threshold) return std::nullopt;
  return GateFailure{reason, fmt::format("{} {:.4g} is below {:.4g}", name, value, threshold)};
}

}  // namespace

std::optional<GateFailure> first_failed_gate(const BacktestStatistics& statistics,
                                             const GateThresholds& thresholds) {
  if (auto failure = at_least(reasons::kAbsWeightSumMeanBelowMin, "abs_weight_sum_mean",
                              statistics.abs_weight_sum_mean, thresholds.min_abs_weight_sum_mean)) {
    return failure;
  }
  if (auto failure = at_most(reasons::kTurnoverMax, "turnover", statistics.turnover,
                             thresholds.max_turnover)) {
    return failure;
  }
  if (auto failure = at_most(reasons::kMaxWeightMax, "max_weight", statistics.max_weight,
                             thresholds.max_max_weight)) {
    return failure;
  }
  if (auto failure = at_most(reasons::kDeltaExposureMax, "delta_exposure",
                             statistics.delta_exposure, thresholds.max_delta_exposure)) {
    return failure;
  }
  if (auto failure =
          at_least(reasons::kGrossReturnsSharpeBelowMin, "gross_returns_sharpe",
                   statistics.gross_returns_sharpe, thresholds.min_gross_returns_sharpe)) {
    return failure;
  }
  return at_least(reasons::kSharpeMin, "sharpe", statistics.sharpe, thresholds.min_sharpe);
}

}  // namespace varnholt::embedded
