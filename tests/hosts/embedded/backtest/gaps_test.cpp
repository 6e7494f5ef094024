// Books over missing closes, delays and delistings.
// Method: small books computed by hand.
#include <gtest/gtest.h>

#include "hosts/embedded/backtest/statistics.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

constexpr double kClose = 1e-12;
const BookRules kFree = {.cost_basis_points = 0.0};

TEST(Gaps, TheJumpOverAMissingDayIsBookedWhenThePriceReturns) {
  const Panel close = series({100, 110, kNan, kNan, 55, 55});
  const BacktestResult result = backtest_weights(Panel::Constant(6, 1, 1.0), close, kFree);
  EXPECT_NEAR(result.gross_returns(0), 0.1, kClose);
  EXPECT_EQ(result.gross_returns(1), 0.0);
  EXPECT_EQ(result.gross_returns(2), 0.0);
  EXPECT_NEAR(result.gross_returns(3), -0.5, kClose);
  EXPECT_EQ(result.gross_returns(4), 0.0);
  EXPECT_NEAR(result.statistics.drawdown, 0.5, kClose);
  EXPECT_EQ(result.statistics.missing_return_count, 3);
}

TEST(Gaps, AHalvingIsAsDeepWithADayMissingAsWithout) {
  const Panel whole = panel({{100, 100}, {100, 100}, {50, 100}, {50, 100}});
  Panel gap = whole;
  gap(2, 0) = kNan;
  const Panel weights = Panel::Constant(4, 2, 0.5);
  EXPECT_NEAR(backtest_weights(weights, whole, kFree).statistics.drawdown, 0.25, kClose);
  EXPECT_NEAR(backtest_weights(weights, gap, kFree).statistics.drawdown, 0.25, kClose);
}

TEST(Gaps, APositionIsCarriedWhateverTheSignalSays) {
  // Sold by the signal on the day without a close: it can be sold a day later only.
  const Panel close = series({100, kNan, 80, 40});
  const BacktestResult result =
      backtest_weights(series({1, 0, 0, 0}), close, {.cost_basis_points = 100.0});
  EXPECT_NEAR(result.gross_returns(1), -0.2, kClose);
  EXPECT_EQ(result.gross_returns(2), 0.0);
  // Bought on the first day, sold on the third: a hundred basis points each.
  EXPECT_NEAR(result.net_returns(0), -0.01, kClose);
  EXPECT_NEAR(result.net_returns(1), -0.2, kClose);
  EXPECT_NEAR(result.net_returns(2), -0.01, kClose);
  EXPECT_NEAR(result.statistics.abs_weight_sum_mean, 2.0 / 3.0, kClose);
}

TEST(Gaps, WhatIsCarriedBindsItsCapital) {
  // The signal wants all of B while the half in A cannot be sold: only a half is there for B.
  const Panel close = panel({{100, 100}, {kNan, 100}, {100, 100}, {100, 100}});
  const Panel weights = panel({{0.5, 0.5}, {0, 1}, {0, 1}, {0, 1}});
  const BacktestStatistics s = backtest_weights(weights, close, kFree).statistics;
  EXPECT_EQ(s.abs_weight_sum_mean, 1.0);
  EXPECT_EQ(s.delta_exposure, 1.0);
  // Bought: 1; nothing; A sold and B bought for it.
  EXPECT_NEAR(s.turnover, (1.0 + 0.0 + 1.0) / 3.0, kClose);
}

TEST(Gaps, NothingIsBoughtWithoutAClose) {
  const Panel close = series({kNan, kNan, 100, 110});
  const BacktestResult result = backtest_weights(series({1, 1, 1, 1}), close, kFree);
  EXPECT_EQ(result.gross_returns(0), 0.0);
  EXPECT_EQ(result.gross_returns(1), 0.0);
  EXPECT_NEAR(result.gross_returns(2), 0.1, kClose);
  EXPECT_EQ(result.statistics.active_days, 1);
  EXPECT_EQ(result.statistics.missing_return_count, 0);
}

TEST(Gaps, WhatNeverReturnsIsPaidOutAtTheDelistingReturn) {
  const Panel close = panel({{100, 10}, {120, 10}, {kNan, 10}, {kNan, 10}});
  const Panel weights = Panel::Constant(4, 2, 0.5);
  const auto book = [&](double delisting_return) {
    return backtest_weights(weights, close,
                            {.cost_basis_points = 100.0, .delisting_return = delisting_return});
  };
  EXPECT_EQ(book(0.0).gross_returns(1), 0.0);
  EXPECT_NEAR(book(-1.0).gross_returns(1), -0.5, kClose);
  EXPECT_NEAR(book(-0.4).gross_returns(1), -0.2, kClose);
  // Gone: it is not held, and nothing is traded for that.
  EXPECT_EQ(book(-1.0).gross_returns(2), 0.0);
  EXPECT_EQ(book(-1.0).net_returns(2), 0.0);
  EXPECT_NEAR(book(0.0).statistics.abs_weight_sum_mean, (1 + 1 + 0.5) / 3.0, kClose);
}

TEST(Gaps, HoldingDaysBeginWithWhatWasCarriedIntoThem) {
  const Panel close = series({100, kNan, kNan, 50, 50});
  const BacktestResult result =
      backtest_holding_days(series({1, 0, 0, 0, 0}), close, {.cost_basis_points = 100.0}, 2, 2);
  EXPECT_NEAR(result.gross_returns(0), -0.5, kClose);
  EXPECT_NEAR(result.net_returns(0), -0.5, kClose);
  EXPECT_NEAR(result.net_returns(1), -0.01, kClose);
}

TEST(Gaps, DaysAfterTheLastHoldingDayAreNotLookedAt) {
  // Within the first three days the instrument does not come back, later it does.
  const Panel close = series({100, kNan, kNan, 50, 50});
  const Panel weights = Panel::Constant(5, 1, 1.0);
  const BookRules rules = {.cost_basis_points = 0.0, .delisting_return = -1.0};
  const BacktestResult part = backtest_holding_days(weights, close, rules, 0, 2);
  const BacktestResult alone = backtest_weights(weights.topRows(3), close.topRows(3), rules);
  EXPECT_EQ(part.gross_returns(0), -1.0);
  EXPECT_TRUE((part.gross_returns == alone.gross_returns).all());
}

TEST(Delay, TradesSoManyDaysAfterTheSignal) {
  const Panel close = series({100, 110, 121, 60.5, 60.5});
  const Panel weights = series({1, 0, 0, 1, 1});
  const auto gross = [&](int delay) {
    return backtest_weights(weights, close, {.cost_basis_points = 0.0, .delay_days = delay})
        .gross_returns;
  };
  EXPECT_NEAR(gross(0)(0), 0.1, kClose);
  EXPECT_EQ(gross(0)(1), 0.0);
  EXPECT_EQ(gross(1)(0), 0.0);
  EXPECT_NEAR(gross(1)(1), 0.1, kClose);
  EXPECT_EQ(gross(1)(2), 0.0);
  EXPECT_NEAR(gross(2)(2), -0.5, kClose);
  // A hold-out that begins on day 2 holds what the signal of day 1 wanted.
  EXPECT_EQ(backtest_holding_days(weights, close, {0.0, 2}, 2, 1).gross_returns(0), gross(2)(2));
}

TEST(BookRules, OutOfBoundsAreRefused) {
  const Panel close = series({100, 110});
  const auto refused = [&](const BookRules& rules) {
    try {
      (void)backtest_weights(close, close, rules);
    } catch (const std::invalid_argument& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  EXPECT_EQ(refused({.delay_days = -1}), "a delay of -1 days; give 0 to 250");
  EXPECT_EQ(refused({.delisting_return = -1.5}), "a delisting return of -1.5; give -1 to 10");
  EXPECT_EQ(refused({.delisting_return = kNan}), "a delisting return of nan; give -1 to 10");
  EXPECT_EQ(refused({.least_known_share = 0}),
            "a least share of known days of 0; give a number above 0 and at most 1");
  EXPECT_EQ(refused({.least_known_share = 1.5}),
            "a least share of known days of 1.5; give a number above 0 and at most 1");
  EXPECT_EQ(refused({.periods_per_year = 0}),
            "0 periods a year; give a number above 0 and at most 366");
  EXPECT_EQ(refused({.cost_basis_points = 20000}), "costs of 20000 basis points; give 0 to 10000");
}

}  // namespace
}  // namespace varnholt::embedded::test
