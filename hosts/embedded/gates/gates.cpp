#include "hosts/embedded/gates/gates.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
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

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::string_view kYearly = "annualised";
constexpr std::string_view kCapital = "fraction of the capital";

template <double GateThresholds::*Member>
constexpr double& gate(GateThresholds& thresholds, HardLimits& /*limits*/) {
  return thresholds.*Member;
}

template <double HardLimits::*Member>
constexpr double& limit(GateThresholds& /*thresholds*/, HardLimits& limits) {
  return limits.*Member;
}

constexpr double& least_sharpe(GateThresholds& thresholds, HardLimits& /*limits*/) {
  if (!thresholds.min_sharpe) thresholds.min_sharpe = kLeastSharpeWithoutDays;
  return *thresholds.min_sharpe;
}

constexpr std::array<Gate, 9> kGateTable = {
    Gate{.reason = reasons::kTurnoverExceeded,
         .metric = key<"turnover">(),
         .name = key<"turnover_limit">(),
         .category = kRisk,
         .sense = Sense::AtMost,
         .is_limit = true,
         .statistic = &BacktestStatistics::turnover,
         .setting = &limit<&HardLimits::turnover>,
         .key = "turnover",
         .option = "",
         .low = 0.0,
         .high = kMostTurnover,
         .meaning = "the most mean turnover",
         .unit = "as `turnover_max`",
         .option_unit = "",
         .help = "",
         .told = 1},
    Gate{.reason = reasons::kMaxWeightExceeded,
         .metric = key<"max_weight">(),
         .name = key<"max_weight_limit">(),
         .category = kRisk,
         .sense = Sense::AtMost,
         .is_limit = true,
         .statistic = &BacktestStatistics::max_weight,
         .setting = &limit<&HardLimits::max_weight>,
         .key = "max_weight",
         .option = "",
         .low = 0.0,
         .high = kMostWeight,
         .meaning = "the most weight of one instrument",
         .unit = "as `max_weight_max`",
         .option_unit = "",
         .help = "",
         .told = 2},
    Gate{.reason = reasons::kDeltaExposureExceeded,
         .metric = key<"delta_exposure">(),
         .name = key<"delta_exposure_limit">(),
         .category = kRisk,
         .sense = Sense::AtMost,
         .is_limit = true,
         .statistic = &BacktestStatistics::delta_exposure,
         .setting = &limit<&HardLimits::delta_exposure>,
         .key = "delta_exposure",
         .option = "",
         .low = 0.0,
         .high = kMostDeltaExposure,
         .meaning = "the most mean absolute net exposure",
         .unit = "as `delta_exposure_max`",
         .option_unit = "",
         .help = "",
         .told = 3},
    Gate{.reason = reasons::kAbsWeightSumMeanBelowMin,
         .metric = key<"abs_weight_sum_mean">(),
         .name = key<"abs_weight_sum_mean_min">(),
         .category = kQuality,
         .sense = Sense::AtLeast,
         .is_limit = false,
         .statistic = &BacktestStatistics::abs_weight_sum_mean,
         .setting = &gate<&GateThresholds::min_abs_weight_sum_mean>,
         .key = "abs_weight_sum_mean_min",
         .option = "--min-gross-exposure",
         .low = 0.0,
         .high = kMostAbsWeightSum,
         .meaning = "least mean gross exposure",
         .unit = "fraction of the capital; 1 is a position on every day",
         .option_unit = "capital",
         .help = "Mean gross exposure; 1 is a position on every day.",
         .told = 6},
    Gate{.reason = reasons::kTurnoverMax,
         .metric = key<"turnover">(),
         .name = key<"turnover_max">(),
         .category = kRisk,
         .sense = Sense::AtMost,
         .is_limit = false,
         .statistic = &BacktestStatistics::turnover,
         .setting = &gate<&GateThresholds::max_turnover>,
         .key = "turnover_max",
         .option = "--max-turnover",
         .low = 0.0,
         .high = kMostTurnover,
         .meaning = "largest mean turnover",
         .unit = "fraction of the capital traded a day; 2 turns the whole book round",
         .option_unit = "capital a day",
         .help = "Mean fraction of the capital traded a day; 2 turns the whole book round.",
         .told = 3},
    Gate{.reason = reasons::kMaxWeightMax,
         .metric = key<"max_weight">(),
         .name = key<"max_weight_max">(),
         .category = kRisk,
         .sense = Sense::AtMost,
         .is_limit = false,
         .statistic = &BacktestStatistics::max_weight,
         .setting = &gate<&GateThresholds::max_max_weight>,
         .key = "max_weight_max",
         .option = "--max-weight",
         .low = 0.0,
         .high = kMostWeight,
         .meaning = "largest weight of one instrument on any day",
         .unit = kCapital,
         .option_unit = "capital",
         .help = "Largest weight of one instrument on any day; 1 is all of the capital.",
         .told = 4},
    Gate{.reason = reasons::kDeltaExposureMax,
         .metric = key<"delta_exposure">(),
         .name = key<"delta_exposure_max">(),
         .category = kRisk,
         .sense = Sense::AtMost,
         .is_limit = false,
         .statistic = &BacktestStatistics::delta_exposure,
         .setting = &gate<&GateThresholds::max_delta_exposure>,
         .key = "delta_exposure_max",
         .option = "--max-net-exposure",
         .low = 0.0,
         .high = kMostDeltaExposure,
         .meaning = "largest mean absolute net exposure",
         .unit = "fraction of the capital; 0 is market neutral",
         .option_unit = "capital",
         .help = "Mean absolute net exposure; 0 is market neutral, 1 all on one side.",
         .told = 5},
    Gate{.reason = reasons::kGrossReturnsSharpeBelowMin,
         .metric = key<"gross_returns_sharpe">(),
         .name = key<"gross_returns_sharpe_min">(),
         .category = kQuality,
         .sense = Sense::AtLeast,
         .is_limit = false,
         .statistic = &BacktestStatistics::gross_returns_sharpe,
         .setting = &gate<&GateThresholds::min_gross_returns_sharpe>,
         .key = "gross_returns_sharpe_min",
         .option = "--min-gross-sharpe",
         .low = -kInfinity,
         .high = kInfinity,
         .meaning = "least Sharpe ratio before costs",
         .unit = kYearly,
         .option_unit = "a year",
         .help = "Annualised Sharpe ratio before costs.",
         .told = 2},
    Gate{.reason = reasons::kSharpeMin,
         .metric = key<"sharpe">(),
         .name = key<"sharpe_min">(),
         .category = kQuality,
         .sense = Sense::AtLeast,
         .is_limit = false,
         .statistic = &BacktestStatistics::sharpe,
         .setting = &least_sharpe,
         .key = "sharpe_min",
         .option = "--min-sharpe",
         .low = -kInfinity,
         .high = kInfinity,
         .meaning = "least Sharpe ratio after costs",
         .unit = kYearly,
         .option_unit = "a year",
         .help = "Annualised Sharpe ratio after costs.",
         .made_default = "2 standard errors of the days searched",
         .told = 1}};

bool passes(Sense sense, double actual, double threshold) {
  if (!std::isfinite(actual)) return false;
  const double beyond = sense == Sense::AtMost ? actual - threshold : threshold - actual;
  // An infinite threshold has no rounding: nothing passes a minimum of infinity.
  const double rounding =
      std::isfinite(threshold) ? kGateRounding * std::max(1.0, std::abs(threshold)) : 0.0;
  return beyond <= rounding;
}

std::string detail_text(const Gate& row, double actual, double threshold) {
  if (!std::isfinite(actual)) {
    return fmt::format("{} {} is not a finite number", row.metric.view(), actual);
  }
  std::string value = fmt::format("{:.4g}", actual);
  std::string bound = fmt::format("{:.4g}", threshold);
  // "1 is above 1" tells nothing.
  if (value == bound) {
    value = fmt::format("{}", actual);
    bound = fmt::format("{}", threshold);
  }
  return fmt::format("{} {} is {} {}{}", row.metric.view(), value,
                     row.sense == Sense::AtMost ? "above" : "below",
                     row.is_limit ? "the limit " : "", bound);
}

}  // namespace

double least_sharpe_on_days(double days, double periods_per_year) {
  return kLeastSharpeInErrors * std::sqrt(periods_per_year / days);
}

GateThresholds gates_on_days(const GateThresholds& thresholds, double days,
                             double periods_per_year) {
  GateThresholds made = thresholds;
  if (!made.min_sharpe) made.min_sharpe = least_sharpe_on_days(days, periods_per_year);
  return made;
}

Key Gate::comparison() const {
  return sense == Sense::AtMost ? genetic::key<">">() : genetic::key<"<">();
}

double Gate::threshold(const GateThresholds& thresholds, const HardLimits& limits) const {
  GateThresholds some_thresholds = thresholds;
  HardLimits some_limits = limits;
  return setting(some_thresholds, some_limits);
}

std::string Gate::default_text() const {
  return made_default.empty() ? fmt::format("{}", default_threshold()) : std::string(made_default);
}

std::string Gate::remedy(double threshold) const {
  const std::string what =
      is_limit ? fmt::format("{}.{} in --config", config_table(), key) : std::string(option);
  return sense == Sense::AtMost ? fmt::format("raise {} above {:.6g}", what, threshold)
                                : fmt::format("lower {} below {:.6g}", what, threshold);
}

std::vector<const Gate*> gates_as_told(bool limits) {
  std::vector<const Gate*> rows;
  for (const Gate& row : kGateTable) {
    if (row.is_limit == limits) rows.push_back(&row);
  }
  std::sort(rows.begin(), rows.end(),
            [](const Gate* left, const Gate* right) { return left->told < right->told; });
  return rows;
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
