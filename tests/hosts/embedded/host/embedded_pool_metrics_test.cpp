// Measuring against the pool, as the search calls it. Method: statistics with known values; a store
// that is empty, locked, or whose members' PnL is gone.
#include "hosts/embedded/host/embedded_pool_metrics.hpp"

#include <cmath>
#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/host/backtester_object.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Mapping;
using genetic::Value;

class EmbeddedPoolMetricsTest : public ContextTest {
 protected:
  static constexpr double kTurnover = 1.25;

  static Value stats() {
    BacktestStatistics statistics;
    statistics.turnover = kTurnover;
    return genetic::make_object<StatisticsObject>(statistics);
  }
  // Both metrics of the statistics, mutual information first.
  std::pair<Value, Value> metrics(const Value& of) {
    const genetic::PoolMetricRequest request{.backtester = Value(),
                                             .gate_stats = of,
                                             .era_config = Value(),
                                             .signal_pool_name = "alpha"};
    const Value novelty = pool_.submission_pnl_mi_from_backtest_or_compute(request, Value());
    return {novelty, pool_.submission_correlation_from_backtest_or_compute(request)};
  }

  EmbeddedPoolMetrics pool_{submission_, {{"client", "test"}}};
};

TEST_F(EmbeddedPoolMetricsTest, TheThresholdsOfThePoolComeWithItsName) {
  const PoolSettings defaults;
  const Value novelty = pool_.find_submission_mi_threshold_and_pool()(Value(), "alpha", Value());
  EXPECT_EQ(genetic::item(novelty, 0).real(), defaults.novelty_min);
  EXPECT_EQ(genetic::item(novelty, 1).text(), "alpha");
  const Value correlation = pool_.submission_correlation_threshold_and_pool(Value(), "alpha");
  EXPECT_EQ(genetic::item(correlation, 0).real(), defaults.correlation_max);
  EXPECT_TRUE(pool_.find_submission_correlation_threshold_and_pool()(Value(), "alpha") ==
              correlation);
}

TEST_F(EmbeddedPoolMetricsTest, InAnEmptyPoolEverythingIsNew) {
  EXPECT_TRUE(
      genetic::truth(pool_.refresh_submission_manifest_membership(Value(), "alpha", Value())));
  EXPECT_FALSE(genetic::truth(pool_.selected_pool_has_synced_found_signal_ids(Value(), "alpha")));
  const auto [novelty, correlation] = metrics(stats());
  EXPECT_EQ(genetic::repr(novelty), "(1.0, True)");
  EXPECT_EQ(genetic::repr(correlation), "(0.0, True)");
}

TEST_F(EmbeddedPoolMetricsTest, MembershipIsNotConfirmedWhileTheStoreIsBusy) {
  SqliteDatabase other(database(), 0);
  const SqliteTransaction held(other, "holding the lock");
  EXPECT_FALSE(
      genetic::truth(pool_.refresh_submission_manifest_membership(Value(), "alpha", Value())));
}

TEST_F(EmbeddedPoolMetricsTest, StatisticsWithoutAPnlAskForABacktest) {
  EXPECT_THROW(pool_.normalize_required_pool_pnl_matrix(stats(), Value(), "alpha"),
               genetic::ValueError);
  const Value graph = ranked("close");
  const Value again = pool_.call_backtester_with_transform_context(
      {.backtester = genetic::make_object<BacktesterObject>(evaluator_),
       .operation = "run_backtest",
       .graph = graph,
       .metaparameters = Mapping(),
       .named_universe = "all",
       .extra_kwargs = Mapping()});
  pool_.normalize_required_pool_pnl_matrix(again, Value(), "alpha");
  EXPECT_EQ(required_pnl(again).size(), evaluator_.close().rows() - 1);
}

TEST_F(EmbeddedPoolMetricsTest, OnlyPoolDataThatIsNotReadyIsThat) {
  const auto not_ready = pool_.as_pool_data_not_ready(
      std::make_exception_ptr(PoolDataNotReady("a member has no PnL")));
  ASSERT_TRUE(not_ready.has_value());
  EXPECT_EQ(genetic::str(*not_ready), "a member has no PnL");
  EXPECT_FALSE(
      pool_.as_pool_data_not_ready(std::make_exception_ptr(genetic::RuntimeError("other"))));
  EXPECT_FALSE(pool_.as_pool_data_not_ready(std::make_exception_ptr(std::runtime_error("other"))));
  EXPECT_FALSE(pool_.as_pool_data_not_ready(std::make_exception_ptr(5)));
}

TEST_F(EmbeddedPoolMetricsTest, PayloadsHoldAllStatisticsAndTheClient) {
  const Value pair = pool_.find_submitted_stats_payload_from_backtest()(stats(), Value());
  EXPECT_EQ(genetic::item(pair, 0).mapping().at("turnover").real(), kTurnover);
  EXPECT_EQ(genetic::item(pair, 0).mapping().size(),
            statistics_mapping(BacktestStatistics()).size());
  Mapping payload;
  pool_.annotate_submission_client_manifest(payload, Value());
  Mapping second;
  pool_.annotate_submission_client_manifest(second, Value());
  EXPECT_EQ(genetic::repr(payload), "{'client_manifest': {'client': 'test'}}");
  payload.at("client_manifest").mapping().set("client", "changed");
  EXPECT_EQ(genetic::repr(second), "{'client_manifest': {'client': 'test'}}") << "each has its own";
}

}  // namespace
}  // namespace varnholt::embedded::test
