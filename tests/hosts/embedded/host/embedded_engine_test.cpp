// The engine's operations on gates and pool metrics, as the search calls them.
// Method: statistics with known values; a store that is empty, locked, or whose members' PnL is
// gone.
#include "hosts/embedded/host/embedded_engine.hpp"

#include <cmath>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/host/backtester_object.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;
using ::testing::HasSubstr;

class EmbeddedEngineTest : public ContextTest {
 protected:
  static constexpr double kSharpe = 0.25;
  static constexpr double kTurnover = 1.25;

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
    const Value result = engine_.evaluate_threshold_gates(
        engine_.stats_gate_metrics(stats()), engine_.stats_gate_threshold_set(overrides, Value()));
    std::vector<Value> failures;
    const auto walk = genetic::iterate(attribute(result, "failures"));
    while (const auto failure = walk->next())
      failures.push_back(*failure);
    return failures;
  }
  // Both metrics of the statistics, mutual information first.
  std::pair<Value, Value> metrics(const Value& of) {
    const genetic::PoolMetricRequest request{.backtester = Value(),
                                             .gate_stats = of,
                                             .era_config = Value(),
                                             .signal_pool_name = "alpha"};
    const Value novelty = engine_.submission_pnl_mi_from_backtest_or_compute(request, Value());
    return {novelty, engine_.submission_correlation_from_backtest_or_compute(request)};
  }

  EmbeddedEngine engine_{{}, {.min_sharpe = 0.5}, {}, submission_, {{"client", "test"}}};
};

TEST_F(EmbeddedEngineTest, ThresholdsAreTheHostsUnlessTheyAreReplaced) {
  const Mapping own = engine_.stats_gate_threshold_set(Mapping(), Value()).mapping();
  EXPECT_EQ(own.at("sharpe_min").real(), 0.5);
  EXPECT_EQ(own.size(), gate_table().size());
  const Mapping replaced =
      engine_.stats_gate_threshold_set({{"sharpe_min", 0.125}, {"turnover_max", Value()}}, Value())
          .mapping();
  EXPECT_EQ(replaced.at("sharpe_min").real(), 0.125);
  EXPECT_FALSE(replaced.contains("turnover_max"));
  EXPECT_THROW(static_cast<void>(engine_.stats_gate_threshold_set({{"sharp_min", 1.0}}, Value())),
               genetic::ValueError);
}

TEST_F(EmbeddedEngineTest, MetricsAreTheStatisticsByName) {
  const Mapping metrics = engine_.stats_gate_metrics(stats()).mapping();
  EXPECT_EQ(metrics.at("sharpe").real(), kSharpe);
  EXPECT_EQ(metrics.at("turnover").real(), kTurnover);
  // A result record without statistics has none, and so no gate is judged.
  EXPECT_TRUE(engine_.stats_gate_metrics(Mapping{{keys::kSharpe, 0.1}}).mapping().empty());
}

TEST_F(EmbeddedEngineTest, GateFailuresAreObjectsInTheOrderOfTheGates) {
  const std::vector<Value> failed = failures(Mapping());
  ASSERT_EQ(failed.size(), 2U);
  EXPECT_EQ(engine_.threshold_gate_failure_reason(failed[0]).text(), "turnover_max");
  EXPECT_EQ(engine_.threshold_gate_failure_metric(failed[0]).text(), "turnover");
  EXPECT_EQ(engine_.threshold_gate_failure_reason(failed[1]).text(), "sharpe_min");
  EXPECT_EQ(engine_.threshold_gate_failure_metric(failed[1]).text(), "sharpe");
  EXPECT_EQ(attribute(failed[1], "actual").real(), kSharpe);
  EXPECT_EQ(attribute(failed[1], "threshold").real(), 0.5);
  EXPECT_EQ(attribute(failed[1], "gate").text(), "sharpe_min");
  EXPECT_EQ(attribute(failed[1], "operator").text(), "<");
  EXPECT_EQ(attribute(failed[1], "category").text(), "quality");
  EXPECT_FALSE(genetic::attribute(failed[1], "detail").has_value());
  EXPECT_EQ(failures({{"turnover_max", Value()}, {"sharpe_min", 0.25}}).size(), 0U);
}

TEST_F(EmbeddedEngineTest, FailureDetailsHoldTheEvidence) {
  const genetic::FailureEvidence evidence{.reason = "correlation_exceeded",
                                          .metric = "correlation",
                                          .value = 0.9,
                                          .threshold = 0.7,
                                          .gate = "is_correlation_threshold",
                                          .comparison = ">",
                                          .category = "quality"};
  const Value detail = engine_.recorded_failure_detail(evidence);
  EXPECT_EQ(genetic::repr(detail),
            "{'reason': 'correlation_exceeded', 'metric': 'correlation', 'value': 0.9, "
            "'threshold': 0.7, 'gate': 'is_correlation_threshold', 'operator': '>', "
            "'category': 'quality'}");
  EXPECT_TRUE(engine_.find_recorded_failure_detail()(evidence) == detail);
}

TEST_F(EmbeddedEngineTest, VerdictsTellTheirReasonAndFigures) {
  EXPECT_EQ(genetic::repr(engine_.find_failed_gate_verdict()(
                {.passed = false, .reason = "pnl_mi", .value = 0.1, .threshold = 0.2})),
            "{'verdict': 'failed', 'reason': 'pnl_mi', 'value': 0.1, 'threshold': 0.2}");
  EXPECT_EQ(
      genetic::repr(engine_.find_gate_verdict()({.passed = true, .value = 0.1, .threshold = 0.2})),
      "{'verdict': 'passed', 'reason': None, 'value': 0.1, 'threshold': 0.2}");
  EXPECT_EQ(genetic::repr(engine_.find_gate_verdict()({.passed = false, .reason = "sharpe_min"})),
            "{'verdict': 'failed', 'reason': 'sharpe_min', 'value': None, 'threshold': None}");
}

TEST_F(EmbeddedEngineTest, TheThresholdsOfThePoolComeWithItsName) {
  const PoolSettings defaults;
  const Value novelty = engine_.find_submission_mi_threshold_and_pool()(Value(), "alpha", Value());
  EXPECT_EQ(genetic::item(novelty, 0).real(), defaults.novelty_min);
  EXPECT_EQ(genetic::item(novelty, 1).text(), "alpha");
  const Value correlation = engine_.submission_correlation_threshold_and_pool(Value(), "alpha");
  EXPECT_EQ(genetic::item(correlation, 0).real(), defaults.correlation_max);
  EXPECT_TRUE(engine_.find_submission_correlation_threshold_and_pool()(Value(), "alpha") ==
              correlation);
}

TEST_F(EmbeddedEngineTest, InAnEmptyPoolEverythingIsNew) {
  EXPECT_TRUE(
      genetic::truth(engine_.refresh_submission_manifest_membership(Value(), "alpha", Value())));
  EXPECT_FALSE(genetic::truth(engine_.selected_pool_has_synced_found_signal_ids(Value(), "alpha")));
  const auto [novelty, correlation] = metrics(stats());
  EXPECT_EQ(genetic::repr(novelty), "(1.0, True)");
  EXPECT_EQ(genetic::repr(correlation), "(0.0, True)");
}

TEST_F(EmbeddedEngineTest, MembershipIsNotConfirmedWhileTheStoreIsBusy) {
  SqliteDatabase other(database(), 0);
  const SqliteTransaction held(other, "holding the lock");
  EXPECT_FALSE(
      genetic::truth(engine_.refresh_submission_manifest_membership(Value(), "alpha", Value())));
}

TEST_F(EmbeddedEngineTest, StatisticsWithoutAPnlAskForABacktest) {
  EXPECT_THROW(engine_.normalize_required_pool_pnl_matrix(stats(), Value(), "alpha"),
               genetic::ValueError);
  const Value graph = ranked("close");
  const Value again = engine_.call_backtester_with_transform_context(
      {.backtester = genetic::make_object<BacktesterObject>(evaluator_),
       .operation = "run_backtest",
       .graph = graph,
       .metaparameters = Mapping(),
       .named_universe = "all",
       .extra_kwargs = Mapping()});
  engine_.normalize_required_pool_pnl_matrix(again, Value(), "alpha");
  EXPECT_EQ(required_pnl(again).size(), evaluator_.close().rows() - 1);
}

TEST_F(EmbeddedEngineTest, OnlyPoolDataThatIsNotReadyIsThat) {
  const auto not_ready = engine_.as_pool_data_not_ready(
      std::make_exception_ptr(PoolDataNotReady("a member has no PnL")));
  ASSERT_TRUE(not_ready.has_value());
  EXPECT_EQ(genetic::str(*not_ready), "a member has no PnL");
  EXPECT_FALSE(
      engine_.as_pool_data_not_ready(std::make_exception_ptr(genetic::RuntimeError("other"))));
  EXPECT_FALSE(
      engine_.as_pool_data_not_ready(std::make_exception_ptr(std::runtime_error("other"))));
  EXPECT_FALSE(engine_.as_pool_data_not_ready(std::make_exception_ptr(5)));
}

TEST_F(EmbeddedEngineTest, PayloadsHoldAllStatisticsAndTheClient) {
  const Value pair = engine_.find_submitted_stats_payload_from_backtest()(stats(), Value());
  EXPECT_EQ(genetic::item(pair, 0).mapping().at("turnover").real(), kTurnover);
  EXPECT_EQ(genetic::item(pair, 0).mapping().size(),
            statistics_mapping(BacktestStatistics()).size());
  Mapping payload;
  engine_.annotate_submission_client_manifest(payload, Value());
  Mapping second;
  engine_.annotate_submission_client_manifest(second, Value());
  EXPECT_EQ(genetic::repr(payload), "{'client_manifest': {'client': 'test'}}");
  payload.at("client_manifest").mapping().set("client", "changed");
  EXPECT_EQ(genetic::repr(second), "{'client_manifest': {'client': 'test'}}") << "each has its own";
}

}  // namespace
}  // namespace varnholt::embedded
