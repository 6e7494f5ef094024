// The evaluator: from a graph over known prices to its signal, weights and statistics.
// Method: small prices with everything computed by hand, and the panel functions called directly.
#include "hosts/embedded/backtest/evaluator.hpp"

#include <array>
#include <random>

#include <gtest/gtest.h>

#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/vocabulary/mapped.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/price_text.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {
namespace {

using enum ElementFunction;

Evaluator two_instruments(double cost_basis_points) {
  return Evaluator(read_price_text("date,A,B\n"
                                   "2011-01-03,100,200\n"
                                   "2011-01-04,110,180\n"
                                   "2011-01-05,99,198\n"
                                   "2011-01-06,99,217.8\n",
                                   "p.csv"),
                   {.book = {.cost_basis_points = cost_basis_points}, .limits = {}});
}

TEST(Evaluator, EvaluatesASignalByHand) {
  // Momentum of one day: returns 0.1 and -0.1 on day 1, -0.1 and 0.1 on day 2, 0 and 0.1 on day 3.
  const Evaluation evaluation = two_instruments(10).evaluate(feature("returns"));
  EXPECT_TRUE(panels_are_near(evaluation.weights, panel({{0, 0}, {0.5, -0.5}, {-0.5, 0.5}, {0, 1}}),
                              1e-12));
  const BacktestStatistics& s = evaluation.backtest.statistics;
  // Gross: 0 on day 0, then 0.5 (-0.1) - 0.5 (0.1) = -0.1, then -0.5 * 0 + 0.5 * 0.1 = 0.05.
  EXPECT_NEAR(evaluation.backtest.gross_returns(0), 0.0, 1e-12);
  EXPECT_NEAR(evaluation.backtest.gross_returns(1), -0.1, 1e-12);
  EXPECT_NEAR(evaluation.backtest.gross_returns(2), 0.05, 1e-12);
  // Traded 0, 1 and 2, at ten basis points.
  EXPECT_NEAR(evaluation.backtest.net_returns(1), -0.101, 1e-12);
  EXPECT_NEAR(evaluation.backtest.net_returns(2), 0.048, 1e-12);
  EXPECT_NEAR(s.turnover, 1.0, 1e-12);
  EXPECT_NEAR(s.drawdown, 0.101, 1e-12);
  EXPECT_EQ(s.active_days, 2);
  EXPECT_EQ(evaluation.shape.node_count, 1u);
}

TEST(Evaluator, JudgesTheOppositeOfWhatLosesBeforeCosts) {
  const MarketData data = make_synthetic_universe({.instruments = 6, .days = 400, .seed = 4});
  EvaluatorOptions options{.book = {.cost_basis_points = 10}};
  const Evaluator as_written(data, options);
  options.judges_both_signs = true;
  const Evaluator both(data, options);
  const genetic::Value graph = rotation("ts_mean", {feature("returns"), window("5")});
  const genetic::Value negation = rotation("arith_neg", {graph});
  const bool graph_loses =
      as_written.evaluate(graph).backtest.statistics.gross_returns_sharpe < 0.0;
  const genetic::Value& good = graph_loses ? negation : graph;
  const genetic::Value& bad = graph_loses ? graph : negation;
  const Evaluation better = as_written.evaluate(good);
  ASSERT_GT(better.backtest.statistics.gross_returns_sharpe, 0.0);

  const BacktestResult as_it_stands = both.judge(good);
  EXPECT_FALSE(as_it_stands.statistics.is_of_opposite());
  const BacktestResult turned_round = both.judge(bad);
  EXPECT_TRUE(turned_round.statistics.is_of_opposite());
  for (const BacktestResult* judged : {&as_it_stands, &turned_round}) {
    EXPECT_TRUE((judged->net_returns == better.backtest.net_returns).all());
    EXPECT_EQ(judged->statistics.quality_score, better.backtest.statistics.quality_score);
  }
  EXPECT_TRUE(
      (both.evaluate(bad).backtest.net_returns == as_written.evaluate(bad).backtest.net_returns)
          .all())
      << "what is evaluated is never turned round";
  EXPECT_FALSE(as_written.judge(bad).statistics.is_of_opposite());
}

TEST(Evaluator, AMissingRowNowAndThenDoesNotEmptyTheSignal) {
  MarketData data = make_synthetic_universe({.instruments = 8, .days = 600, .seed = 3});
  std::mt19937_64 engine(5);
  for (double& close : data.close.reshaped()) {
    if (engine() % 100 == 0) close = kNan;
  }
  const auto known_share = [&](double least_known_share) {
    const Evaluator evaluator(data, {.book = {.least_known_share = least_known_share}});
    const Panel signal = evaluator.signal(
        evaluator.compile(rotation("ts_mean", {feature("returns"), window("60")})));
    return 1.0 - signal.isNaN().cast<double>().mean();
  };
  EXPECT_GT(known_share(0.8), 0.7);
  EXPECT_LT(known_share(1.0), 0.5);
}

TEST(Evaluator, AppliesFunctionsToTheirInputsInOrder) {
  const MarketData data = make_synthetic_universe({.instruments = 8, .days = 150, .seed = 3});
  const Evaluator evaluator(data);
  const FeaturePanels features(data);
  const Panel& close = *features.find("close");
  const Panel& volume = *features.find("volume");
  const auto signal = [&evaluator](const genetic::Value& graph) {
    return evaluator.signal(compile_expression(graph, evaluator.vocabulary()));
  };
  EXPECT_TRUE(begins_with(signal(rotation("arith_sub", {feature("close"), feature("volume")})),
                          mapped(Sub, close, volume)));
  EXPECT_TRUE(begins_with(
      signal(rotation("cross_rank", {rotation("ts_delta", {feature("close"), window("5")})})),
      cross_rank(ts_delta(close, 5))));
  EXPECT_TRUE(begins_with(
      signal(rotation("ts_covariance", {feature("volume"),
                                        rotation("arith_log", {feature("close")}), window("20")})),
      ts_covariance(volume, mapped(Log, close), 20)));
  // A step that two others read, once on either side.
  const genetic::Value mean = rotation("ts_mean", {feature("close"), window("10")});
  EXPECT_TRUE(
      begins_with(signal(rotation("arith_div", {rotation("arith_sub", {feature("close"), mean}),
                                                rotation("arith_add", {mean, mean})})),
                  mapped(Div, mapped(Sub, close, ts_mean(close, 10)),
                         mapped(Add, ts_mean(close, 10), ts_mean(close, 10)))));
}

// A function that works entry by entry is written over what it is the last to read, and over
// nothing else.
TEST(Evaluator, WritesOverNoPanelThatIsReadAgain) {
  const MarketData data = make_synthetic_universe({.instruments = 8, .days = 150, .seed = 3});
  const Evaluator evaluator(data);
  const auto signal = [&evaluator](const genetic::Value& graph) {
    return evaluator.signal(compile_expression(graph, evaluator.vocabulary()));
  };
  const genetic::Value mean = rotation("ts_mean", {feature("close"), window("10")});
  const genetic::Value size =
      rotation("arith_abs", {rotation("arith_sub", {feature("close"), mean})});
  const Panel mean_panel = ts_mean(data.close, 10);
  const Panel size_panel = mapped(Abs, mapped(Sub, data.close, mean_panel));
  const Panel negative = -size_panel;
  EXPECT_TRUE(begins_with(signal(rotation("arith_div", {size, mean})),
                          mapped(Div, size_panel, mean_panel)));
  EXPECT_TRUE(begins_with(signal(rotation("arith_sub", {mean, rotation("arith_neg", {mean})})),
                          mapped(Add, mean_panel, mean_panel)));
  EXPECT_TRUE(
      begins_with(signal(rotation("arith_if", {rotation("arith_sign", {size}),
                                               rotation("arith_neg", {size}), feature("close")})),
                  mapped(If, std::array{&size_panel, &negative, &data.close})));
  EXPECT_TRUE(begins_with(signal(rotation("arith_neg", {feature("close")})), -data.close));
  EXPECT_TRUE(begins_with(evaluator.close(), data.close));
}

TEST(Evaluator, OneGraphLeavesNoTraceForTheNext) {
  const MarketData data = make_synthetic_universe({.instruments = 6, .days = 200, .seed = 5});
  const Evaluator used(data);
  genetic::TwisterGenerator generator{genetic::MersenneTwister(12)};
  for (int i = 0; i < 30; ++i) {
    const genetic::Value graph = random_graph(generator, used.vocabulary());
    const Evaluation first = used.evaluate(graph);
    const Evaluation fresh = Evaluator(data).evaluate(graph);
    ASSERT_TRUE(begins_with(first.weights, fresh.weights));
    ASSERT_TRUE(same_bits(first.backtest.statistics.sharpe, fresh.backtest.statistics.sharpe));
  }
}

TEST(Evaluator, StatisticsOfRandomGraphsAreFinite) {
  const Evaluator evaluator(make_synthetic_universe(
      {.instruments = 10, .days = 130, .seed = 2, .late_start_share = 0.5, .gap_share = 0.02}));
  genetic::TwisterGenerator generator{genetic::MersenneTwister(31)};
  int active = 0;
  for (int i = 0; i < 400; ++i) {
    const Evaluation evaluation =
        evaluator.evaluate(random_graph(generator, evaluator.vocabulary()));
    const BacktestStatistics& s = evaluation.backtest.statistics;
    for (const double value :
         {s.sharpe, s.gross_returns_sharpe, s.annualized_returns, s.turnover, s.drawdown,
          s.max_weight, s.delta_exposure, s.abs_weight_sum_mean, s.quality_score}) {
      ASSERT_TRUE(std::isfinite(value));
    }
    ASSERT_GE(s.drawdown, 0.0);
    ASSERT_LE(s.drawdown, 1.0);
    ASSERT_LE(s.max_weight, 1.0 + 1e-12);
    active += s.active_days > 0;
  }
  EXPECT_GT(active, 300);
}

TEST(Evaluator, RefusesAGraphBeyondItsLimits) {
  const Evaluator evaluator(
      make_synthetic_universe({.instruments = 2, .days = 5}),
      {.book = {.cost_basis_points = 5.0}, .limits = {.max_depth = 2, .max_nodes = 9}});
  EXPECT_NO_THROW((void)evaluator.evaluate(rotation("arith_neg", {feature("close")})));
  EXPECT_THROW(
      (void)evaluator.evaluate(rotation("arith_neg", {rotation("arith_neg", {feature("close")})})),
      GraphError);
  EXPECT_THROW((void)evaluator.evaluate(feature("nothing")), GraphError);
}

}  // namespace
}  // namespace varnholt::embedded::test
