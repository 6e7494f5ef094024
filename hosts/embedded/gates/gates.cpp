#include "hosts/embedded/gates/gates.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include <fmt/format.h>

#include "search_templates/genetic/settings/reason_tables.hpp"

namespace varnholt::embedded {
namespace {

namespace reasons = genetic::reasons;
using genetic::Key;
using genetic::key;

constexpr Key kRisk = key<"risk">();
constexpr Key kQuality = key<"quality">();

template <double GateThresholds::*Member>
constexpr double gate_threshold(const GateThresholds& thresholds, const HardLimits& /*limits*/) {
  return thresholds.*Member;
}

template <double HardLimits::*Member>
constexpr double limit_threshold(const GateThresholds& /*thresholds*/, const HardLimits& limits) {
  return limits.*Member;
}

constexpr std::array kGateTable = {
    Gate{reasons::kTurnoverExceeded, key<"turnover">(), key<"turnover_limit">(), kRisk,
         Sense::AtMost, true, &BacktestStatistics::turnover,
         &limit_threshold<&HardLimits::turnover>},
    Gate{reasons::kMaxWeightExceeded, key<"max_weight">(), key<"max_weight_limit">(), kRisk,
         Sense::AtMost, true, &BacktestStatistics::max_weight,
         &limit_threshold<&HardLimits::max_weight>},
    Gate{reasons::kDeltaExposureExceeded, key<"delta_exposure">(), key<"delta_exposure_limit">(),
         kRisk, Sense::AtMost, true, &BacktestStatistics::delta_exposure,
         &limit_threshold<&HardLimits::delta_exposure>},
    Gate{reasons::kAbsWeightSumMeanBelowMin, key<"abs_weight_sum_mean">(),
         key<"abs_weight_sum_mean_min">(), kQuality, Sense::AtLeast, false,
         &BacktestStatistics::abs_weight_sum_mean,
         &gate_threshold<&GateThresholds::min_abs_weight_sum_mean>},
    Gate{reasons::kTurnoverMax, key<"turnover">(), key<"turnover_max">(), kRisk, Sense::AtMost,
         false, &BacktestStatistics::turnover, &gate_threshold<&GateThresholds::max_turnover>},
    Gate{reasons::kMaxWeightMax, key<"max_weight">(), key<"max_weight_max">(), kRisk, Sense::AtMost,
         false, &BacktestStatistics::max_weight, &gate_threshold<&GateThresholds::max_max_weight>},
    Gate{reasons::kDeltaExposureMax, key<"delta_exposure">(), key<"delta_exposure_max">(), kRisk,
         Sense::AtMost, false, &BacktestStatistics::delta_exposure,
         &gate_threshold<&GateThresholds::max_delta_exposure>},
    Gate{reasons::kGrossReturnsSharpeBelowMin, key<"gross_returns_sharpe">(),
         key<"gross_returns_sharpe_min">(), kQuality, Sense::AtLeast, false,
         &BacktestStatistics::gross_returns_sharpe,
         &gate_threshold<&GateThresholds::min_gross_returns_sharpe>},
    Gate{reasons::kSharpeMin, key<"sharpe">(), key<"sharpe_min">(), kQuality, Sense::AtLeast, false,
         &BacktestStatistics::sharpe, &gate_threshold<&GateThresholds::min_sharpe>}};

bool passes(Sense sense, double actual, double threshold) {
  if (!std::isfinite(actual)) return false;
  const double beyond = sense == Sense::AtMost ? actual - threshold : threshold - actual;
  // An infinite threshold has no rounding: nothing passes a minimum of infinity.
  const double rounding =
      std::isfinite(threshold) ? kGateRounding * std::max(1.0, std::abs(threshold)) : 0.0;
  return beyond <= rounding;
}

std::string detail_text(const Gate& gate, double actual, double threshold) {
  if (!std::isfinite(actual)) {
    return fmt::format("{} {} is not a finite number", gate.metric.view(), actual);
  }
  std::string value = fmt::format("{:.4g}", actual);
  std::string bound = fmt::format("{:.4g}", threshold);
  // "1 is above 1" tells nothing.
  if (value == bound) {
    value = fmt::format("{}", actual);
    bound = fmt::format("{}", threshold);
  }
  return fmt::format("{} {} is {} {}{}", gate.metric.view(), value,
                     gate.sense == Sense::AtMost ? "above" : "below",
                     gate.is_limit ? "the limit " : "", bound);
}

}  // namespace

Key Gate::comparison() const {
  return sense == Sense::AtMost ? key<">">() : key<"<">();
}

std::span<const Gate> gate_table() {
  return kGateTable;
}

std::optional<GateFailure> judge_gate(const Gate& gate, double actual, double threshold) {
  if (passes(gate.sense, actual, threshold)) return std::nullopt;
  return GateFailure{gate.reason,   gate.metric, gate.name, gate.comparison(),
                     gate.category, actual,      threshold, detail_text(gate, actual, threshold)};
}

std::vector<GateFailure> failed_gates(const BacktestStatistics& statistics,
                                      const GateThresholds& thresholds, const HardLimits& limits) {
  std::vector<GateFailure> failures;
  for (const Gate& gate : kGateTable) {
    if (auto failure =
            judge_gate(gate, statistics.*gate.statistic, gate.threshold(thresholds, limits))) {
      failures.push_back(std::move(*failure));
    }
  }
  return failures;
}

std::optional<GateFailure> first_failed_gate(const BacktestStatistics& statistics,
                                             const GateThresholds& thresholds,
                                             const HardLimits& limits) {
  for (const Gate& gate : kGateTable) {
    if (auto failure =
            judge_gate(gate, statistics.*gate.statistic, gate.threshold(thresholds, limits))) {
      return failure;
    }
  }
  return std::nullopt;
}

}  // namespace varnholt::embedded
