// The gates: the thresholds that a signal's statistics must meet.
//
// Two kinds stand in one table. A limit holds for every book, whatever the signal is worth; a gate
// is a requirement on the signal. The limits are judged first. Each row is data: the reason
// under which a failure stands in the candidate's record, the statistic that is judged, the sense
// in which it is judged, the threshold, and how people set it and are told of it. Configuration,
// options, help and messages are made from the table, and the documents are checked against it.
//
//   reason                           metric                 fails where it is
//   turnover_exceeded                turnover               above  the limit
//   max_weight_exceeded              max_weight             above  the limit
//   delta_exposure_exceeded          delta_exposure         above  the limit
//   abs_weight_sum_mean_below_min    abs_weight_sum_mean    below  the threshold
//   turnover_max                     turnover               above  the threshold
//   max_weight_max                   max_weight             above  the threshold
//   delta_exposure_max               delta_exposure         above  the threshold
//   gross_returns_sharpe_below_min   gross_returns_sharpe   below  the threshold
//   sharpe_min                       sharpe                 below  the threshold
//
// A value at its threshold passes, and so does one that is beyond it by no more than the rounding
// of its sums (kGateRounding). A value that is not finite fails every gate that judges it.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/backtest/statistics.hpp"
#include "search_templates/genetic/value/key.hpp"

namespace varnholt::embedded {

// Meaning and unit of each are those of the statistic of that name. What passes is what the search
// breeds from, so the defaults refuse only what leads nowhere and leave the rest to the ranking:
// gates so tight that a generation passes one signal in thirty leave too few parents
// (docs/figures.md).
struct GateThresholds {
  double min_abs_weight_sum_mean = 0.5;
  // Costs are in the Sharpe ratio already. A signal that knows nothing of its day before turns over
  // sqrt(2) of its capital a day; what turns over more goes against itself.
  double max_turnover = 1.5;
  double max_max_weight = 1.0;
  double max_delta_exposure = 1.0;
  double min_gross_returns_sharpe = 0.3;
  // Absent is what the days of a search make of it: gates_on_days().
  std::optional<double> min_sharpe = {};
};

// The noise of an annualised Sharpe ratio, for a signal that earns nothing: its standard error, to
// the first order, is sqrt(periods a year / periods). A least one below it lets luck in, and what
// luck let in is what the pool's book then holds (docs/search-quality.md); so where the user says
// nothing, it is so many standard errors, which one signal in forty exceeds by luck.
inline constexpr double kLeastSharpeInErrors = 2.0;
[[nodiscard]] double least_sharpe_on_days(double days, double periods_per_year);
// Where no days are known.
inline constexpr double kLeastSharpeWithoutDays = 0.3;

// The thresholds of a search over so many days: an absent one is made of them.
[[nodiscard]] GateThresholds gates_on_days(const GateThresholds& thresholds, double days,
                                           double periods_per_year);

// The extremes of a book of unit gross exposure: turned over completely every day, all in one
// instrument, all on one side. Limits at these figures refuse nothing.
inline constexpr double kMostTurnover = 2.0;
inline constexpr double kMostWeight = 1.0;
inline constexpr double kMostDeltaExposure = 1.0;
inline constexpr double kMostAbsWeightSum = 1.0;

struct HardLimits {
  double turnover = kMostTurnover;
  double max_weight = kMostWeight;
  double delta_exposure = kMostDeltaExposure;
};

// How far a value may lie beyond its threshold: this fraction of the threshold, or of 1 where the
// threshold is smaller. The weights of a day that is all on one side sum to 1 but for rounding, and
// such a book is not above 1.
inline constexpr double kGateRounding = 1e-9;

enum class Sense { AtMost, AtLeast };

// One row of the table.
struct Gate {
  genetic::Key reason;
  genetic::Key metric;  // The name of the statistic.
  genetic::Key name;  // The name of the gate, under which its threshold stands in a threshold set.
  genetic::Key category;  // "risk": how the book is held. "quality": what the signal is worth.
  Sense sense;
  bool is_limit;
  double BacktestStatistics::*statistic;
  // The threshold among all of them, to be read or set. An absent one is set by being asked for, to
  // what holds where no days are known.
  double& (*setting)(GateThresholds&, HardLimits&);

  // How it is set: by a key of the configuration, in the table config_table(), with a number from
  // `low` to `high`, and where there is one by an option. An option takes a number above `high` as
  // well: such a threshold refuses nothing.
  std::string_view key;
  std::string_view option;  // Empty for a limit.
  double low;
  double high;
  // How it is told: what the key means and in which unit, and what the option's help says.
  std::string_view meaning;
  std::string_view unit;
  std::string_view option_unit;
  std::string_view help;
  // What is told of a default that is no number; empty where it is one.
  std::string_view made_default = {};
  // The place among those that people are told of, from 1: what is asked for most comes first.
  int told;

  // The comparison that holds where the gate fails: ">" or "<".
  [[nodiscard]] genetic::Key comparison() const;
  // "limits" or "gates".
  [[nodiscard]] std::string_view config_table() const { return is_limit ? "limits" : "gates"; }
  [[nodiscard]] double threshold(const GateThresholds& thresholds, const HardLimits& limits) const;
  [[nodiscard]] double default_threshold() const { return threshold({}, {}); }
  [[nodiscard]] std::string default_text() const;
  // What lets more signals through than this threshold does: "raise --max-turnover above 1".
  [[nodiscard]] std::string remedy(double threshold) const;
};

// The table, in the order in which gates are judged.
[[nodiscard]] std::span<const Gate> gate_table();
// The rows of gates, or of limits, in the order in which people are told of them.
[[nodiscard]] std::vector<const Gate*> gates_as_told(bool limits);

// A failed gate, with the figures behind it. The keys are those of the table's row.
struct GateFailure {
  genetic::Key reason;
  genetic::Key metric;
  genetic::Key gate;
  genetic::Key comparison;
  genetic::Key category;
  double actual = 0.0;
  double threshold = 0.0;
  std::string detail;  // For a reader: "sharpe 0.12 is below 0.3".
};

// The failure of `gate` at this value and threshold, or nothing where it passes.
[[nodiscard]] std::optional<GateFailure> judge_gate(const Gate& gate, double actual,
                                                    double threshold);

// Every gate that the statistics fail, in the order of the table.
[[nodiscard]] std::vector<GateFailure> failed_gates(const BacktestStatistics& statistics,
                                                    const GateThresholds& thresholds,
                                                    const HardLimits& limits = {});

// The first of them, or nothing: what a candidate is rejected for.
[[nodiscard]] std::optional<GateFailure> first_failed_gate(const BacktestStatistics& statistics,
                                                           const GateThresholds& thresholds,
                                                           const HardLimits& limits = {});

}  // namespace varnholt::embedded
