// The gates' operations, as the search calls them. Method: statistics with known values.
#include "hosts/embedded/host/embedded_gates.hpp"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

class EmbeddedGatesTest : public testing::Test {
 protected:
  static constexpr double kSharpe = 0.25;
  static constexpr double kTurnover = 1.75;

  static BacktestStatistics statistics() {
    BacktestStatistics statistics;
    statistics.sharpe = kSharpe;
    statistics.gross_returns_sharpe = 1.0;
    statistics.turnover = kTurnover;
    statistics.max_weight = 0.5;
    statistics.delta_exposure = 0.5;
    statistics.abs_weight_sum_mean = 1.0;
    return statistics;
  }
  static Value stats() { return genetic::make_object<StatisticsObject>(statistics()); }
  static Value attribute(const Value& object, const char* name) {
    return genetic::attribute(object, name).value();
  }
  // What the gates say of the statistics under the thresholds, overridden by `overrides`.
  std::vector<Value> failures(const Mapping& overrides) {
    const Value result = gates_.evaluate_threshold_gates(
        gates_.stats_gate_metrics(stats()), gates_.stats_gate_threshold_set(overrides, Value()));
    std::vector<Value> failures;
    const auto walk = genetic::iterate(attribute(result, "failures"));
    while (const auto failure = walk->next())
      failures.push_back(*failure);
    return failures;
  }

  EmbeddedGates gates_{{.min_sharpe = 0.5}, {}};
};

TEST_F(EmbeddedGatesTest, ThresholdsAreTheHostsUnlessTheyAreReplaced) {
  const Mapping own = gates_.stats_gate_threshold_set(Mapping(), Value()).mapping();
  EXPECT_EQ(own.at("sharpe_min").real(), 0.5);
  EXPECT_EQ(own.size(), gate_table().size());
  const Mapping replaced =
      gates_.stats_gate_threshold_set({{"sharpe_min", 0.125}, {"turnover_max", Value()}}, Value())
          .mapping();
  EXPECT_EQ(replaced.at("sharpe_min").real(), 0.125);
  EXPECT_FALSE(replaced.contains("turnover_max"));
  EXPECT_THROW(static_cast<void>(gates_.stats_gate_threshold_set({{"sharp_min", 1.0}}, Value())),
               genetic::ValueError);
}

TEST_F(EmbeddedGatesTest, MetricsAreTheStatisticsByName) {
  const Mapping metrics = gates_.stats_gate_metrics(stats()).mapping();
  EXPECT_EQ(metrics.at("sharpe").real(), kSharpe);
  EXPECT_EQ(metrics.at("turnover").real(), kTurnover);
  // A result record without statistics has none, and so no gate is judged.
  EXPECT_TRUE(gates_.stats_gate_metrics(Mapping{{keys::kSharpe, 0.1}}).mapping().empty());
}

TEST_F(EmbeddedGatesTest, GateFailuresAreObjectsInTheOrderOfTheGates) {
  const std::vector<Value> failed = failures(Mapping());
  ASSERT_EQ(failed.size(), 2U);
  EXPECT_EQ(gates_.threshold_gate_failure_reason(failed[0]).text(), "turnover_max");
  EXPECT_EQ(gates_.threshold_gate_failure_metric(failed[0]).text(), "turnover");
  EXPECT_EQ(gates_.threshold_gate_failure_reason(failed[1]).text(), "sharpe_min");
  EXPECT_EQ(gates_.threshold_gate_failure_metric(failed[1]).text(), "sharpe");
  EXPECT_EQ(attribute(failed[1], "actual").real(), kSharpe);
  EXPECT_EQ(attribute(failed[1], "threshold").real(), 0.5);
  EXPECT_EQ(attribute(failed[1], "gate").text(), "sharpe_min");
  EXPECT_EQ(attribute(failed[1], "operator").text(), "<");
  EXPECT_EQ(attribute(failed[1], "category").text(), "quality");
  EXPECT_FALSE(genetic::attribute(failed[1], "detail").has_value());
  EXPECT_EQ(failures({{"turnover_max", Value()}, {"sharpe_min", 0.25}}).size(), 0U);
}

TEST_F(EmbeddedGatesTest, FailureDetailsHoldTheEvidence) {
  const genetic::FailureEvidence evidence{.reason = "correlation_exceeded",
                                          .metric = "correlation",
                                          .value = 0.9,
                                          .threshold = 0.7,
                                          .gate = "is_correlation_threshold",
                                          .comparison = ">",
                                          .category = "quality"};
  const Value detail = gates_.recorded_failure_detail(evidence);
  EXPECT_EQ(genetic::repr(detail),
            "{'reason': 'correlation_exceeded', 'metric': 'correlation', 'value': 0.9, "
            "'threshold': 0.7, 'gate': 'is_correlation_threshold', 'operator': '>', "
            "'category': 'quality'}");
  EXPECT_TRUE(gates_.find_recorded_failure_detail()(evidence) == detail);
}

TEST_F(EmbeddedGatesTest, VerdictsTellTheirReasonAndFigures) {
  EXPECT_EQ(genetic::repr(gates_.find_failed_gate_verdict()(
                {.passed = false, .reason = "pnl_mi", .value = 0.1, .threshold = 0.2})),
            "{'verdict': 'failed', 'reason': 'pnl_mi', 'value': 0.1, 'threshold': 0.2}");
  EXPECT_EQ(
      genetic::repr(gates_.find_gate_verdict()({.passed = true, .value = 0.1, .threshold = 0.2})),
      "{'verdict': 'passed', 'reason': None, 'value': 0.1, 'threshold': 0.2}");
  EXPECT_EQ(genetic::repr(gates_.find_gate_verdict()({.passed = false, .reason = "sharpe_min"})),
            "{'verdict': 'failed', 'reason': 'sharpe_min', 'value': None, 'threshold': None}");
}

}  // namespace
}  // namespace varnholt::embedded::test
