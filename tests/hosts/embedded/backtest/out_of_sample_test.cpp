// In and out of sample: which holding days belong to which, and that neither sample knows of the
// other's prices.
// Method: small books written out; random books, whose samples are computed from truncated data,
// from the daily returns of the whole history, and with the other sample's prices changed.
#include "hosts/embedded/backtest/out_of_sample.hpp"

#include <cstring>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {
namespace {

constexpr double kCosts = 7.5;

// Every figure, bit for bit.
testing::AssertionResult same_statistics(const BacktestStatistics& a, const BacktestStatistics& b) {
  const auto figures = [](const BacktestStatistics& s) {
    return std::vector<double>{s.sharpe,
                               s.gross_returns_sharpe,
                               s.annualized_returns,
                               s.turnover,
                               s.drawdown,
                               s.max_weight,
                               s.delta_exposure,
                               s.abs_weight_sum_mean,
                               s.quality_score,
                               static_cast<double>(s.holding_days),
                               static_cast<double>(s.active_days),
                               static_cast<double>(s.missing_return_count)};
  };
  const std::vector<double> left = figures(a), right = figures(b);
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (!same_bits(left[i], right[i])) {
      return testing::AssertionFailure()
             << "figure " << i << ": " << left[i] << " and " << right[i];
    }
  }
  return testing::AssertionSuccess();
}

bool same_series(const Eigen::ArrayXd& a, const Eigen::ArrayXd& b) {
  if (a.size() != b.size()) return false;
  for (Eigen::Index i = 0; i < a.size(); ++i) {
    if (!same_bits(a(i), b(i))) return false;
  }
  return true;
}

// A plan for small books, which split_eras would refuse.
EraPlan small_plan(Eigen::Index first_era_end, Eigen::Index train_days, Eigen::Index days,
                   int era) {
  EraPlan plan;
  plan.train = {DaySpan{0, first_era_end, {}, {}}, DaySpan{first_era_end, train_days, {}, {}}};
  plan.holdout = DaySpan{train_days, days, {}, {}};
  plan.era = era;
  return plan;
}

TEST(HoldingDays, OfTheWholeHistoryAreTheBacktest) {
  std::mt19937_64 engine(5);
  const Panel close = random_panel(engine, 50, 3, 0.1).abs() + 1.0;
  const Panel weights = signal_weights(random_panel(engine, 50, 3, 0.2));
  const BacktestResult whole = backtest_weights(weights, close, {kCosts});
  const BacktestResult held = backtest_holding_days(weights, close, {kCosts}, 0, 49);
  EXPECT_TRUE(same_statistics(held.statistics, whole.statistics));
  EXPECT_TRUE(same_series(held.net_returns, whole.net_returns));
}

TEST(HoldingDays, RefuseDaysThatAreNotThere) {
  const Panel close = Panel::Constant(5, 1, 10.0);
  const Panel weights = Panel::Constant(5, 1, 1.0);
  const auto run = [&](Eigen::Index first, Eigen::Index count) {
    return backtest_holding_days(weights, close, {0}, first, count);
  };
  EXPECT_EQ(run(0, 4).net_returns.size(), 4);
  EXPECT_EQ(run(4, 0).net_returns.size(), 0);
  EXPECT_THROW((void)run(0, 5), std::invalid_argument);
  EXPECT_THROW((void)run(1, 4), std::invalid_argument);
  EXPECT_THROW((void)run(-1, 2), std::invalid_argument);
  EXPECT_THROW((void)run(0, -1), std::invalid_argument);
  EXPECT_THROW((void)run(5, 0), std::invalid_argument);
  EXPECT_THROW((void)run(2, std::numeric_limits<Eigen::Index>::max()), std::invalid_argument);
}

TEST(HoldingDays, RefuseWhatTheyCannotUseAndLookAtNothingElse) {
  const Panel close = Panel::Constant(6, 1, 10.0);
  Panel weights = Panel::Constant(6, 1, 1.0);
  weights(0, 0) = kNan;
  weights(5, 0) = kNan;
  EXPECT_EQ(backtest_holding_days(weights, close, {0}, 2, 3).statistics.turnover, 0.0);
  // The weights held before the first day decide what is traded on it.
  EXPECT_THROW((void)backtest_holding_days(weights, close, {0}, 1, 3), std::invalid_argument);
  EXPECT_THROW((void)backtest_holding_days(weights, close, {-1}, 2, 3), std::invalid_argument);
  EXPECT_THROW((void)backtest_holding_days(series({1, 1}), close, {0}, 2, 3),
               std::invalid_argument);
}

TEST(HoldOut, BeginsWithTheWeightsOfTheLastTrainDay) {
  // Train days 0..3, hold-out 4..6. Returns to day 4, 5, 6: 10 %, 20 %, -50 %.
  const Panel close = series({100, 100, 100, 100, 110, 132, 66});
  const Panel weights = series({0, 0, -1, 1, 0.5, 0.25, 77});
  const EraPlan plan = small_plan(2, 4, 7, 2);
  const BacktestResult result = holdout_backtest(weights, close, {100}, plan);
  ASSERT_EQ(result.gross_returns.size(), 3);
  EXPECT_NEAR(result.gross_returns(0), 0.1, 1e-12);
  EXPECT_NEAR(result.gross_returns(1), 0.1, 1e-12);
  EXPECT_NEAR(result.gross_returns(2), -0.125, 1e-12);
  // Traded from -1 to 1, to 0.5, to 0.25; a hundred basis points of it.
  EXPECT_NEAR(result.net_returns(0), 0.1 - 0.02, 1e-12);
  EXPECT_NEAR(result.statistics.turnover, 2.75 / 3.0, 1e-12);
  EXPECT_EQ(result.statistics.holding_days, 3);
  EXPECT_EQ(result.statistics.max_weight, 1.0);
}

TEST(InSample, EndsWithTheLastDayThatTheEraSees) {
  const Panel close = series({100, 110, 121, 60.5, 60.5, 60.5, 60.5});
  const Panel weights = series({1, 1, 1, 1, 1, 1, 1});
  const BacktestResult second = in_sample_backtest(weights, close, {0}, small_plan(3, 4, 7, 2));
  ASSERT_EQ(second.gross_returns.size(), 3);
  EXPECT_NEAR(second.gross_returns(2), -0.5, 1e-12);
  const BacktestResult first = in_sample_backtest(weights, close, {0}, small_plan(3, 4, 7, 1));
  ASSERT_EQ(first.gross_returns.size(), 2);
  EXPECT_NEAR(first.gross_returns(1), 0.1, 1e-12);
  EXPECT_EQ(first.statistics.drawdown, 0.0);
}

TEST(Samples, RefuseAPlanOfAnotherHistory) {
  const Panel close = Panel::Constant(7, 1, 10.0);
  EXPECT_THROW((void)sample_statistics(close, close, {0}, small_plan(2, 4, 8, 2)),
               std::invalid_argument);
}

struct Market {
  MarketData data;
  Panel weights;
  EraPlan plan;
};

Market random_market(std::uint64_t seed) {
  std::mt19937_64 engine(seed);
  SyntheticUniverseOptions options;
  options.instruments = static_cast<int>(2 + engine() % 6);
  options.days = static_cast<int>(160 + engine() % 300);
  options.seed = seed;
  options.gap_share = 0.02;
  Market market;
  market.data = make_synthetic_universe(options);
  market.weights = signal_weights(
      random_panel(engine, market.data.day_count(), market.data.instrument_count(), 0.2));
  const EraSettings settings{.train = static_cast<int>(1 + engine() % 3),
                             .holdout = 0.25 + 0.2 * static_cast<double>(engine() >> 11) * 0x1p-53,
                             .era = 1};
  market.plan = split_eras(market.data.dates, settings);
  market.plan.era = static_cast<int>(1 + engine() % static_cast<unsigned>(settings.train));
  return market;
}

TEST(Samples, InSampleIsWhatTheFirstDaysAloneGive) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const Market market = random_market(seed);
    const MarketData seen = market.data.first_days(market.plan.seen_days());
    const BacktestResult alone =
        backtest_weights(market.weights.topRows(seen.day_count()), seen.close, {kCosts});
    const BacktestResult in_sample =
        in_sample_backtest(market.weights, market.data.close, {kCosts}, market.plan);
    EXPECT_TRUE(same_statistics(in_sample.statistics, alone.statistics));
    EXPECT_TRUE(same_series(in_sample.net_returns, alone.net_returns));
  }
}

TEST(Samples, TogetherAreTheHoldingDaysOfTheWholeHistory) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Market market = random_market(seed);
    market.plan.era = static_cast<int>(market.plan.train.size());
    const BacktestResult whole = backtest_weights(market.weights, market.data.close, {kCosts});
    const BacktestResult in_sample =
        in_sample_backtest(market.weights, market.data.close, {kCosts}, market.plan);
    const BacktestResult holdout =
        holdout_backtest(market.weights, market.data.close, {kCosts}, market.plan);
    Eigen::ArrayXd joined(whole.net_returns.size());
    joined << in_sample.net_returns, holdout.net_returns;
    EXPECT_TRUE(same_series(joined, whole.net_returns));
    joined << in_sample.gross_returns, holdout.gross_returns;
    EXPECT_TRUE(same_series(joined, whole.gross_returns));
    EXPECT_EQ(holdout.statistics.holding_days, market.plan.holdout.day_count());
    EXPECT_EQ(in_sample.statistics.missing_return_count + holdout.statistics.missing_return_count,
              whole.statistics.missing_return_count);
  }
}

TEST(Samples, PricesOfTheHoldOutChangeNothingInSample) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const Market market = random_market(seed);
    std::mt19937_64 engine(seed + 1000);
    Panel close = market.data.close;
    const Eigen::Index held_out = market.plan.holdout.day_count();
    close.bottomRows(held_out) = random_panel(engine, held_out, close.cols(), 0.1).abs() + 1e-3;
    const SampleStatistics before =
        sample_statistics(market.weights, market.data.close, {kCosts}, market.plan);
    const SampleStatistics after = sample_statistics(market.weights, close, {kCosts}, market.plan);
    EXPECT_TRUE(same_statistics(before.in_sample, after.in_sample));
    EXPECT_FALSE(same_statistics(before.holdout, after.holdout));
    // The market too.
    const BacktestStatistics market_before =
        in_sample_backtest(equal_weights(market.data.close), market.data.close, {kCosts},
                           market.plan)
            .statistics;
    const BacktestStatistics market_after =
        in_sample_backtest(equal_weights(close), close, {kCosts}, market.plan).statistics;
    EXPECT_TRUE(same_statistics(market_before, market_after));
  }
}

TEST(Samples, PricesBeforeTheLastTrainDayChangeNothingInTheHoldOut) {
  const Market market = random_market(3);
  Panel close = market.data.close;
  const Eigen::Index before = market.plan.train_days() - 1;
  close.topRows(before) *= 2.0;
  EXPECT_TRUE(same_statistics(
      holdout_backtest(market.weights, close, {kCosts}, market.plan).statistics,
      holdout_backtest(market.weights, market.data.close, {kCosts}, market.plan).statistics));
}

TEST(EqualWeights, ShareEachDayAmongWhatHasAPrice) {
  EXPECT_TRUE(panels_are_near(
      equal_weights(
          panel({{1, 2, 3, 4}, {1, kNan, 3, kNan}, {kNan, kNan, kNan, 2}, {1, 2, kNan, 4}})),
      panel({{0.25, 0.25, 0.25, 0.25},
             {0.5, 0, 0.5, 0},
             {0, 0, 0, 1},
             {1.0 / 3, 1.0 / 3, 0, 1.0 / 3}}),
      1e-15));
  EXPECT_TRUE(panels_are_near(equal_weights(panel({{kNan, kNan}})), panel({{0, 0}}), 0.0));
}

TEST(EqualWeights, EarnTheMeanReturnLessTheSameCosts) {
  const Panel close = panel({{100, 50}, {110, 45}, {110, 54}});
  const BacktestResult result = backtest_weights(equal_weights(close), close, {100});
  EXPECT_NEAR(result.gross_returns(0), 0.0, 1e-12);
  EXPECT_NEAR(result.gross_returns(1), 0.1, 1e-12);
  EXPECT_NEAR(result.net_returns(0), -0.01, 1e-12);  // Bought once, then held.
  EXPECT_NEAR(result.net_returns(1), 0.1, 1e-12);
  EXPECT_EQ(result.statistics.delta_exposure, 1.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
