// The gates: each threshold refuses what lies beyond it and nothing else, under its own reason, and
// the first one in order decides.
#include "hosts/embedded/gates/gates.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded {
namespace {

BacktestStatistics good() {
  BacktestStatistics statistics;
  statistics.sharpe = 1.5;
  statistics.gross_returns_sharpe = 1.6;
  statistics.turnover = 0.2;
  statistics.max_weight = 0.5;
  statistics.delta_exposure = 0.1;
  statistics.abs_weight_sum_mean = 1.0;
  return statistics;
}

GateThresholds thresholds() {
  return {.min_abs_weight_sum_mean = 0.5,
          .max_turnover = 0.5,
          .max_max_weight = 0.6,
          .max_delta_exposure = 0.3,
          .min_gross_returns_sharpe = 1.0,
          .min_sharpe = 0.8};
}

TEST(Gates, AGoodSignalPasses) {
  EXPECT_FALSE(first_failed_gate(good(), thresholds()).has_value());
}

TEST(Gates, AValueAtItsThresholdPasses) {
  BacktestStatistics statistics = good();
  statistics.sharpe = 0.8;
  statistics.gross_returns_sharpe = 1.0;
  statistics.turnover = 0.5;
  statistics.max_weight = 0.6;
  statistics.delta_exposure = 0.3;
  statistics.abs_weight_sum_mean = 0.5;
  EXPECT_FALSE(first_failed_gate(statistics, thresholds()).has_value());
}

struct Case {
  const char* reason;
  double BacktestStatistics::*member;
  double value;
  const char* detail;
};

class FailedGate : public ::testing::TestWithParam<Case> {};

TEST_P(FailedGate, HasItsReasonAndDetail) {
  BacktestStatistics statistics = good();
  statistics.*GetParam().member = GetParam().value;
  const auto failure = first_failed_gate(statistics, thresholds());
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->reason.view(), GetParam().reason);
  EXPECT_EQ(failure->detail, GetParam().detail);
}

INSTANTIATE_TEST_SUITE_P(
    Gates, FailedGate,
    ::testing::Values(
        Case{"abs_weight_sum_mean_below_min", &BacktestStatistics::abs_weight_sum_mean, 0.25,
             "abs_weight_sum_mean 0.25 is below 0.5"},
        Case{"turnover_max", &BacktestStatistics::turnover, 0.75, "turnover 0.75 is above 0.5"},
        Case{"max_weight_max", &BacktestStatistics::max_weight, 1.0, "max_weight 1 is above 0.6"},
        Case{"delta_exposure_max", &BacktestStatistics::delta_exposure, 0.5,
             "delta_exposure 0.5 is above 0.3"},
        Case{"gross_returns_sharpe_below_min", &BacktestStatistics::gross_returns_sharpe, -0.5,
             "gross_returns_sharpe -0.5 is below 1"},
        Case{"sharpe_min", &BacktestStatistics::sharpe, 0.75, "sharpe 0.75 is below 0.8"}));

TEST(Gates, TheFirstGateInOrderDecides) {
  BacktestStatistics statistics;  // All zero: too little weight, and a bad sharpe.
  EXPECT_EQ(first_failed_gate(statistics, thresholds())->reason.view(),
            "abs_weight_sum_mean_below_min");
  statistics.abs_weight_sum_mean = 1.0;
  EXPECT_EQ(first_failed_gate(statistics, thresholds())->reason.view(),
            "gross_returns_sharpe_below_min");
}

}  // namespace
}  // namespace varnholt::embedded
