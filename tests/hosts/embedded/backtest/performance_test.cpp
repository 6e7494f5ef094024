// Figures beside the statistics, on series so short that each is computed by hand. The same figures
// are compared with other libraries in tests/apps/test_figures.py.
#include "hosts/embedded/backtest/performance.hpp"

#include <cmath>
#include <stdexcept>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;

BacktestResult book(std::initializer_list<double> net) {
  BacktestResult backtest;
  backtest.net_returns = ArrayXd(static_cast<Eigen::Index>(net.size()));
  std::copy(net.begin(), net.end(), backtest.net_returns.begin());
  backtest.gross_returns = backtest.net_returns + 0.001;
  backtest.traded = ArrayXd::Constant(backtest.net_returns.size(), 0.5);
  backtest.net_exposure = ArrayXd::Constant(backtest.net_returns.size(), -0.2);
  backtest.gross_exposure = ArrayXd::Constant(backtest.net_returns.size(), 1.0);
  return backtest;
}

PerformanceFigures figures_of(std::initializer_list<double> net, double periods = 4.0) {
  const BacktestResult backtest = book(net);
  return performance_figures(backtest, backtest.net_returns, periods);
}

TEST(Performance, IsThatOfABookOfFourDays) {
  // Two of its years: a doubling, a halving, a day of nothing, a gain of half.
  const PerformanceFigures figures = figures_of({1.0, -0.5, 0.0, 0.5}, 2.0);
  EXPECT_NEAR(figures.volatility, std::sqrt(2.0) * std::sqrt(1.25 / 3.0), 1e-12);
  EXPECT_NEAR(figures.compound_growth, std::sqrt(1.5) - 1.0, 1e-12);
  EXPECT_NEAR(figures.sortino, std::sqrt(2.0) * 0.25 / 0.25, 1e-12);
  EXPECT_NEAR(figures.calmar, (std::sqrt(1.5) - 1.0) / 0.5, 1e-12);
  EXPECT_NEAR(figures.hit_rate, 2.0 / 3.0, 1e-12);
  // From the second day on it stands below the 2 of the first.
  EXPECT_EQ(figures.longest_drawdown_days, 3);
  EXPECT_NEAR(figures.long_exposure, 0.4, 1e-12);
  EXPECT_NEAR(figures.short_exposure, 0.6, 1e-12);
  EXPECT_NEAR(figures.break_even_cost_basis_points, 10'000.0 * 0.251 / 0.5, 1e-9);
}

TEST(Performance, TheMomentsAreCorrectedForSmallSamples) {
  // Of 0, 0, 0, 4: m2 = 3, m3 = 6, m4 = 21.
  const PerformanceFigures figures = figures_of({0.0, 0.0, 0.0, 4.0});
  EXPECT_NEAR(figures.skewness, std::sqrt(12.0) / 2.0 * 6.0 / std::pow(3.0, 1.5), 1e-12);
  EXPECT_NEAR(figures.excess_kurtosis, 3.0 / 2.0 * (5.0 * (21.0 / 9.0 - 3.0) + 6.0), 1e-12);
}

TEST(Performance, AlphaAndBetaAreThoseOfTheLine) {
  const BacktestResult backtest = book({0.03, 0.01, 0.05});
  ArrayXd market(3);
  market << 0.01, 0.0, 0.02;
  const PerformanceFigures figures = performance_figures(backtest, market, 100.0);
  EXPECT_NEAR(figures.beta, 2.0, 1e-12);
  EXPECT_NEAR(figures.alpha, 1.0, 1e-12);
  EXPECT_NEAR(figures.market_correlation, 1.0, 1e-12);
  EXPECT_THROW((void)performance_figures(backtest, ArrayXd::Zero(2), 100.0), std::invalid_argument);
}

TEST(Performance, WhatIsNotDefinedIsNoNumber) {
  const PerformanceFigures none = figures_of({});
  for (const double figure :
       {none.volatility, none.compound_growth, none.sortino, none.calmar, none.skewness,
        none.excess_kurtosis, none.hit_rate, none.beta, none.alpha, none.market_correlation,
        none.break_even_cost_basis_points}) {
    EXPECT_TRUE(std::isnan(figure));
  }
  const PerformanceFigures gains = figures_of({0.1, 0.2});
  EXPECT_TRUE(std::isnan(gains.sortino)) << "no day has a loss";
  EXPECT_TRUE(std::isnan(gains.calmar)) << "there is no drawdown";
  EXPECT_EQ(gains.longest_drawdown_days, 0);
  EXPECT_EQ(gains.hit_rate, 1.0);
  const PerformanceFigures flat = figures_of({0.0, 0.0, 0.0});
  EXPECT_EQ(flat.volatility, 0.0);
  EXPECT_TRUE(std::isnan(flat.skewness));
  EXPECT_TRUE(std::isnan(flat.beta));
}

TEST(Performance, AYearHasTheDaysThatAreBookedInIt) {
  using std::chrono::days;
  const Date last_of_1999 = *parse_date("1999-12-31");
  const std::vector<Date> dates = {last_of_1999 - days(1), last_of_1999, last_of_1999 + days(1),
                                   last_of_1999 + days(2), last_of_1999 + days(3)};
  const std::vector<YearFigures> years = yearly_figures(book({0.5, 0.1, -0.5, 1.0}), dates, 1, 9.0);
  ASSERT_EQ(years.size(), 2U);
  EXPECT_EQ(years[0].year, 1999);
  EXPECT_EQ(years[0].days, 1);
  EXPECT_NEAR(years[0].net_return, 0.5, 1e-12);
  EXPECT_EQ(years[0].sharpe, 0.0);
  EXPECT_EQ(years[1].year, 2000);
  EXPECT_EQ(years[1].days, 3);
  EXPECT_NEAR(years[1].net_return, 0.1, 1e-12);
  EXPECT_NEAR(years[1].drawdown, 0.5, 1e-12) << "the year begins at 1 again";
  EXPECT_NEAR(years[1].volatility, 3.0 * std::sqrt(1.14 / 2.0), 1e-12);
  EXPECT_NEAR(years[1].turnover, 0.5, 1e-12);
  EXPECT_THROW((void)yearly_figures(book({0.5}), dates, 5, 9.0), std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
