// The gates: each threshold refuses what lies beyond it and nothing else, under its own reason, and
// the first one in order decides.
// Method: one case a row of the gate table, spoilt one statistic at a time; real books for each
// reason; random statistics against the rules written naively.
#include "hosts/embedded/gates/gates.hpp"

#include <cmath>
#include <limits>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/settings/reason_tables.hpp"
#include "tests/hosts/embedded/gates/gate_helpers.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAreArray;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Case {
  const char* reason;
  const char* metric;
  const char* gate;
  const char* comparison;
  const char* category;
  double BacktestStatistics::*member;
  double threshold;  // In some_gates() and some_limits().
  double value;      // Fails.
  const char* detail;
};

const std::vector<Case>& cases() {
  using S = BacktestStatistics;
  static const std::vector<Case> kCases = {
      {"turnover_exceeded", "turnover", "turnover_limit", ">", "risk", &S::turnover, 1.5, 1.75,
       "turnover 1.75 is above the limit 1.5"},
      {"max_weight_exceeded", "max_weight", "max_weight_limit", ">", "risk", &S::max_weight, 0.9,
       1.0, "max_weight 1 is above the limit 0.9"},
      {"delta_exposure_exceeded", "delta_exposure", "delta_exposure_limit", ">", "risk",
       &S::delta_exposure, 0.75, 0.8, "delta_exposure 0.8 is above the limit 0.75"},
      {"abs_weight_sum_mean_below_min", "abs_weight_sum_mean", "abs_weight_sum_mean_min", "<",
       "quality", &S::abs_weight_sum_mean, 0.5, 0.25, "abs_weight_sum_mean 0.25 is below 0.5"},
      {"turnover_max", "turnover", "turnover_max", ">", "risk", &S::turnover, 0.5, 0.75,
       "turnover 0.75 is above 0.5"},
      {"max_weight_max", "max_weight", "max_weight_max", ">", "risk", &S::max_weight, 0.6, 0.7,
       "max_weight 0.7 is above 0.6"},
      {"delta_exposure_max", "delta_exposure", "delta_exposure_max", ">", "risk",
       &S::delta_exposure, 0.3, 0.5, "delta_exposure 0.5 is above 0.3"},
      {"gross_returns_sharpe_below_min", "gross_returns_sharpe", "gross_returns_sharpe_min", "<",
       "quality", &S::gross_returns_sharpe, 1.0, -0.5, "gross_returns_sharpe -0.5 is below 1"},
      {"sharpe_min", "sharpe", "sharpe_min", "<", "quality", &S::sharpe, 0.8, 0.75,
       "sharpe 0.75 is below 0.8"}};
  return kCases;
}

std::vector<GateFailure> judge(const BacktestStatistics& statistics) {
  return failed_gates(statistics, some_gates(), some_limits());
}

BacktestStatistics spoilt(double BacktestStatistics::*member, double value) {
  BacktestStatistics statistics = good_statistics();
  statistics.*member = value;
  return statistics;
}

TEST(Gates, AGoodSignalPasses) {
  EXPECT_TRUE(judge(good_statistics()).empty());
  EXPECT_FALSE(first_failed_gate(good_statistics(), some_gates(), some_limits()).has_value());
}

TEST(Gates, TheTableHasTheReasonsThatTheSearchCanRepairAndTheseOnly) {
  std::vector<std::string_view> of_table;
  for (const Gate& gate : gate_table())
    of_table.push_back(gate.reason.view());
  std::vector<std::string_view> of_search;
  for (const genetic::Key reason : genetic::REACTION_FAILURE_REASONS)
    of_search.push_back(reason.view());
  EXPECT_THAT(of_table, UnorderedElementsAreArray(of_search));
}

TEST(Gates, TheSensesAreThoseOfTheSearch) {
  for (const Gate& gate : gate_table()) {
    SCOPED_TRACE(gate.reason.view());
    EXPECT_EQ(gate.sense == Sense::AtLeast,
              genetic::is_member(genetic::MINIMUM_FAILURE_REASONS, gate.reason));
  }
}

class EachGate : public ::testing::TestWithParam<std::size_t> {
 protected:
  [[nodiscard]] const Case& row() const { return cases()[GetParam()]; }
  [[nodiscard]] double outwards() const { return row().comparison[0] == '>' ? 1.0 : -1.0; }
  // Whether the value at this row is among the failures.
  [[nodiscard]] bool fails_at(double value) const {
    for (const GateFailure& failure : judge(spoilt(row().member, value))) {
      if (failure.reason.view() == row().reason) return true;
    }
    return false;
  }
};

TEST_P(EachGate, FailsWithItsEvidence) {
  for (const GateFailure& failure : judge(spoilt(row().member, row().value))) {
    if (failure.reason.view() != row().reason) continue;
    EXPECT_EQ(failure.metric.view(), row().metric);
    EXPECT_EQ(failure.gate.view(), row().gate);
    EXPECT_EQ(failure.comparison.view(), row().comparison);
    EXPECT_EQ(failure.category.view(), row().category);
    EXPECT_EQ(failure.actual, row().value);
    EXPECT_EQ(failure.threshold, row().threshold);
    EXPECT_EQ(failure.detail, row().detail);
    return;
  }
  ADD_FAILURE() << row().reason << " did not arise";
}

TEST_P(EachGate, PassesAtItsThresholdAndWithinRounding) {
  EXPECT_FALSE(fails_at(row().threshold));
  EXPECT_FALSE(fails_at(row().threshold + outwards() * 0.5e-9));
  EXPECT_TRUE(fails_at(row().threshold + outwards() * 2e-9));
  EXPECT_FALSE(fails_at(row().threshold - outwards() * 2e-9));
}

TEST_P(EachGate, FailsForWhatIsNotFinite) {
  for (const double value : {kNan, kInfinity, -kInfinity}) {
    SCOPED_TRACE(value);
    EXPECT_TRUE(fails_at(value));
  }
}

TEST_P(EachGate, IsFirstWhereOnlyItAndLaterOnesFail) {
  BacktestStatistics statistics = good_statistics();
  // From the end of the table upwards, so that a limit's value outlasts its gate's.
  for (std::size_t row_index = cases().size(); row_index-- > GetParam();)
    statistics.*cases()[row_index].member = cases()[row_index].value;
  const auto first = first_failed_gate(statistics, some_gates(), some_limits());
  ASSERT_TRUE(first.has_value());
  EXPECT_EQ(first->reason.view(), row().reason);
  EXPECT_EQ(reasons_of(judge(statistics)).size(), cases().size() - GetParam());
}

INSTANTIATE_TEST_SUITE_P(Gates, EachGate, ::testing::Range<std::size_t>(0, 9),
                         [](const auto& tested) {
                           return std::string(cases()[tested.param].reason);
                         });

TEST(Gates, AllFailuresComeInTheOrderOfTheTable) {
  BacktestStatistics statistics;
  statistics.turnover = 2.0;
  statistics.max_weight = 1.0;
  statistics.delta_exposure = 1.0;
  EXPECT_THAT(reasons_of(judge(statistics)),
              ElementsAre("turnover_exceeded", "max_weight_exceeded", "delta_exposure_exceeded",
                          "abs_weight_sum_mean_below_min", "turnover_max", "max_weight_max",
                          "delta_exposure_max", "gross_returns_sharpe_below_min", "sharpe_min"));
}

TEST(Gates, WithoutLimitsOfItsOwnABookMayBeWhatABookCanBe) {
  BacktestStatistics statistics = good_statistics();
  statistics.turnover = 2.0 + 1e-15;
  statistics.max_weight = 1.0;
  statistics.delta_exposure = 1.0 + 1e-15;
  const GateThresholds no_gates{.min_abs_weight_sum_mean = -kInfinity,
                                .max_turnover = kInfinity,
                                .max_max_weight = kInfinity,
                                .max_delta_exposure = kInfinity,
                                .min_gross_returns_sharpe = -kInfinity,
                                .min_sharpe = -kInfinity};
  EXPECT_TRUE(failed_gates(statistics, no_gates).empty());
}

TEST(Gates, NothingPassesAnInfiniteMinimum) {
  GateThresholds thresholds = some_gates();
  thresholds.min_sharpe = kInfinity;
  EXPECT_THAT(reasons_of(failed_gates(good_statistics(), thresholds)), ElementsAre("sharpe_min"));
}

TEST(Gates, ADetailTellsAValueFromItsThreshold) {
  GateThresholds thresholds = some_gates();
  EXPECT_EQ(
      first_failed_gate(spoilt(&BacktestStatistics::turnover, 0.50000001), thresholds)->detail,
      "turnover 0.50000001 is above 0.5");
  EXPECT_EQ(first_failed_gate(spoilt(&BacktestStatistics::sharpe, kNan), thresholds)->detail,
            "sharpe nan is not a finite number");
}

// A book of two instruments over ten days whose weights repeat, in a market that rises or falls.
BacktestStatistics book(double first, double second, bool turns_round, double daily_return) {
  Panel weights(10, 2);
  Panel close(10, 2);
  for (Eigen::Index day = 0; day < 10; ++day) {
    const double sign = turns_round && day % 2 == 1 ? -1.0 : 1.0;
    weights(day, 0) = sign * first;
    weights(day, 1) = sign * second;
    // The second instrument moves half as much, and no two days are alike.
    const double change = daily_return * (1.0 + 0.1 * static_cast<double>(day));
    for (const Eigen::Index column : {0, 1}) {
      const double moved = column == 0 ? change : change / 2.0;
      close(day, column) = day == 0 ? 100.0 : close(day - 1, column) * (1.0 + moved);
    }
  }
  return backtest_weights(weights, close, {5.0}).statistics;
}

TEST(Gates, EveryReasonArisesFromABook) {
  const GateThresholds gates{.min_abs_weight_sum_mean = 0.5,
                             .max_turnover = 1.0,
                             .max_max_weight = 0.7,
                             .max_delta_exposure = 0.5,
                             .min_gross_returns_sharpe = 0.3,
                             .min_sharpe = 0.3};
  const HardLimits limits{.turnover = 1.5, .max_weight = 0.9, .delta_exposure = 0.8};
  // Long of what rises, short of what rises half as much.
  EXPECT_THAT(reasons_of(failed_gates(book(0.5, -0.5, false, 0.01), gates, limits)), ElementsAre());
  EXPECT_THAT(reasons_of(failed_gates(book(0.1, -0.1, false, 0.01), gates, limits)),
              ElementsAre("abs_weight_sum_mean_below_min"));
  EXPECT_THAT(reasons_of(failed_gates(book(0.5, -0.5, false, -0.01), gates, limits)),
              ElementsAre("gross_returns_sharpe_below_min", "sharpe_min"));
  // All in one instrument is all on one side too.
  EXPECT_THAT(reasons_of(failed_gates(book(1.0, 0.0, false, 0.01), gates, limits)),
              ElementsAre("max_weight_exceeded", "delta_exposure_exceeded", "max_weight_max",
                          "delta_exposure_max"));
  EXPECT_THAT(reasons_of(failed_gates(book(0.8, -0.2, false, 0.01), gates, limits)),
              ElementsAre("max_weight_max", "delta_exposure_max"));
  // Turned round every day: it earns a little, and costs more.
  EXPECT_THAT(reasons_of(failed_gates(book(0.5, -0.5, true, 0.01), gates, limits)),
              ElementsAre("turnover_exceeded", "turnover_max", "sharpe_min"));
}

TEST(Gates, AgreeWithTheirRulesOnRandomStatistics) {
  std::mt19937_64 engine(20240611);
  SCOPED_TRACE("seed 20240611");
  const auto uniform = [&engine](double low, double high) {
    return low + (high - low) * static_cast<double>(engine() >> 11) * 0x1p-53;
  };
  for (int round = 0; round < 500; ++round) {
    const BacktestStatistics s{.sharpe = uniform(-2, 2),
                               .gross_returns_sharpe = uniform(-2, 2),
                               .turnover = uniform(0, 2),
                               .max_weight = uniform(0, 1),
                               .delta_exposure = uniform(0, 1),
                               .abs_weight_sum_mean = uniform(0, 1)};
    const GateThresholds g{uniform(0, 1), uniform(0, 2),  uniform(0, 1),
                           uniform(0, 1), uniform(-2, 2), uniform(-2, 2)};
    const HardLimits l{uniform(0, 2), uniform(0, 1), uniform(0, 1)};
    std::vector<std::string> expected;
    const auto add = [&expected](bool fails, const char* reason) {
      if (fails) expected.emplace_back(reason);
    };
    add(s.turnover > l.turnover, "turnover_exceeded");
    add(s.max_weight > l.max_weight, "max_weight_exceeded");
    add(s.delta_exposure > l.delta_exposure, "delta_exposure_exceeded");
    add(s.abs_weight_sum_mean < g.min_abs_weight_sum_mean, "abs_weight_sum_mean_below_min");
    add(s.turnover > g.max_turnover, "turnover_max");
    add(s.max_weight > g.max_max_weight, "max_weight_max");
    add(s.delta_exposure > g.max_delta_exposure, "delta_exposure_max");
    add(s.gross_returns_sharpe < g.min_gross_returns_sharpe, "gross_returns_sharpe_below_min");
    add(s.sharpe < g.min_sharpe, "sharpe_min");
    ASSERT_EQ(reasons_of(failed_gates(s, g, l)), expected);
    const auto first = first_failed_gate(s, g, l);
    ASSERT_EQ(first.has_value(), !expected.empty());
    if (first) {
      ASSERT_EQ(first->reason.view(), expected.front());
    }
  }
}

TEST(Gates, TheLeastSharpeRatioIsMadeOfTheDaysWhereNoneIsGiven) {
  // A year of days has a standard error of 1, and four years of one half.
  EXPECT_DOUBLE_EQ(least_sharpe_on_days(252.0, 252.0), 2.0);
  EXPECT_DOUBLE_EQ(least_sharpe_on_days(1008.0, 252.0), 1.0);
  EXPECT_DOUBLE_EQ(*gates_on_days({}, 1008.0, 252.0).min_sharpe, 1.0);
  EXPECT_EQ(gates_on_days({.min_sharpe = -0.5}, 1008.0, 252.0).min_sharpe, -0.5);
  EXPECT_EQ(gates_on_days({.max_turnover = 0.25}, 1008.0, 252.0).max_turnover, 0.25);

  BacktestStatistics statistics;
  statistics.sharpe = 0.5;
  statistics.gross_returns_sharpe = 0.9;
  statistics.abs_weight_sum_mean = 1.0;
  EXPECT_FALSE(first_failed_gate(statistics, {}).has_value()) << "0.3 where no days are known";
  const auto failure = first_failed_gate(statistics, gates_on_days({}, 1008.0, 252.0));
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->threshold, 1.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
