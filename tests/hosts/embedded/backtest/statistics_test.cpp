// Weights and statistics: the calendar, the costs, every formula, and that nothing is ever NaN.
// Method: small books against closed forms; random books against the formulas written naively.
#include "hosts/embedded/backtest/statistics.hpp"

#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

constexpr double kClose = 1e-12;

// Closes of one instrument that starts at 100 and has these returns.
Panel closes(std::initializer_list<double> returns) {
  Panel result(static_cast<Eigen::Index>(returns.size()) + 1, 1);
  result(0, 0) = 100.0;
  Eigen::Index day = 0;
  for (const double value : returns) {
    result(day + 1, 0) = result(day, 0) * (1.0 + value);
    ++day;
  }
  return result;
}

TEST(SignalWeights, HaveUnitGrossExposureAndKeepTheirNet) {
  EXPECT_TRUE(panels_are_near(
      signal_weights(
          panel({{1, 3, kNan}, {-2, 2, -4}, {0, 0, kNan}, {kNan, kNan, kNan}, {0, 5, 0}})),
      panel({{0.25, 0.75, 0}, {-0.25, 0.25, -0.5}, {0, 0, 0}, {0, 0, 0}, {0, 1, 0}}), kClose));
}

TEST(SignalWeights, StandExtremeSignals) {
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(panels_are_near(
      signal_weights(panel({{1.7e308, -1.7e308}, {5e-324, 5e-324}, {inf, 2}, {-inf, kNan}})),
      panel({{0.5, -0.5}, {0.5, 0.5}, {0, 1}, {0, 0}}), kClose));
}

TEST(BacktestWeights, ADaysWeightEarnsTheNextDaysReturn) {
  // Long only on day 1, so only the move from day 1 to day 2 counts.
  const BacktestResult result =
      backtest_weights(series({0, 1, 0, 0}), closes({0.5, 0.1, -0.3}), {0});
  ASSERT_EQ(result.gross_returns.size(), 3);
  EXPECT_NEAR(result.gross_returns(0), 0.0, kClose);
  EXPECT_NEAR(result.gross_returns(1), 0.1, kClose);
  EXPECT_NEAR(result.gross_returns(2), 0.0, kClose);
  EXPECT_EQ(result.statistics.holding_days, 3);
  EXPECT_EQ(result.statistics.active_days, 1);
}

TEST(BacktestWeights, TheLastDaysWeightCountsNowhere) {
  const BacktestResult result = backtest_weights(series({0, 0, 1}), closes({0.5, 0.1}), {100});
  EXPECT_EQ(result.statistics.active_days, 0);
  EXPECT_EQ(result.statistics.turnover, 0.0);
  EXPECT_EQ(result.statistics.max_weight, 0.0);
  EXPECT_EQ(result.statistics.quality_score, 0.0);
}

TEST(BacktestWeights, CostsAreBasisPointsOfWhatIsTraded) {
  // Bought: 1, turned round: 2, held: 0. 50 basis points are 0.005.
  const BacktestResult result =
      backtest_weights(series({1, -1, -1, -1}), closes({0.1, 0.1, 0.1}), {50});
  EXPECT_NEAR(result.net_returns(0), 0.1 - 0.005, kClose);
  EXPECT_NEAR(result.net_returns(1), -0.1 - 0.01, kClose);
  EXPECT_NEAR(result.net_returns(2), -0.1, kClose);
  EXPECT_NEAR(result.gross_returns(1), -0.1, kClose);
  EXPECT_NEAR(result.statistics.turnover, 1.0, kClose);
}

TEST(BacktestStatistics, SharpeOfAnAlternatingReturn) {
  // Returns 0.03 and 0.01 in turn, n days: mean 0.02, s = 0.01 sqrt(n / (n - 1)).
  const BacktestResult result =
      backtest_weights(series({1, 1, 1, 1, 1}), closes({0.03, 0.01, 0.03, 0.01}), {0});
  const double expected = std::sqrt(252.0) * 0.02 / (0.01 * std::sqrt(4.0 / 3.0));
  EXPECT_NEAR(result.statistics.sharpe, expected, 1e-9);
  EXPECT_NEAR(result.statistics.gross_returns_sharpe, expected, 1e-9);
  EXPECT_NEAR(result.statistics.annualized_returns, 252.0 * 0.02, kClose);
}

TEST(BacktestStatistics, SharpeIsNetAndItsGrossFormIsNot) {
  const BacktestResult result =
      backtest_weights(series({1, -1, 1, -1, 0}), closes({0.01, -0.02, 0.01, -0.02}), {10});
  // Gross 0.01 0.02 0.01 0.02; traded 1 2 2 2; net 0.009 0.018 0.008 0.018.
  EXPECT_NEAR(result.statistics.gross_returns_sharpe,
              std::sqrt(252.0) * 0.015 / (0.005 * std::sqrt(4.0 / 3.0)), 1e-9);
  const double mean = 0.01325;
  const double squares = 0.00425 * 0.00425 + 2 * 0.00475 * 0.00475 + 0.00525 * 0.00525;
  EXPECT_NEAR(result.statistics.sharpe, std::sqrt(252.0) * mean / std::sqrt(squares / 3.0), 1e-9);
  EXPECT_NEAR(result.statistics.annualized_returns, 252.0 * mean, kClose);
  EXPECT_NEAR(result.statistics.turnover, 1.75, kClose);
}

TEST(BacktestStatistics, NoSpreadMeansNoSharpe) {
  const Panel held = Panel::Constant(6, 1, 1.0);
  // Steady growth: returns of a tenth that differ by their rounding only.
  Panel close(60, 1);
  close(0, 0) = 100.0;
  for (Eigen::Index day = 1; day < 60; ++day)
    close(day, 0) = close(day - 1, 0) * 1.1;
  const BacktestResult steady = backtest_weights(Panel::Constant(60, 1, 1.0), close, {0});
  EXPECT_NE(steady.net_returns.minCoeff(), steady.net_returns.maxCoeff());
  EXPECT_EQ(steady.statistics.sharpe, 0.0);
  EXPECT_EQ(backtest_weights(held, Panel::Constant(6, 1, 7.0), {0}).statistics.sharpe, 0.0);
  // One holding day has no sample deviation.
  EXPECT_EQ(backtest_weights(series({1, 1}), closes({0.5}), {0}).statistics.sharpe, 0.0);
}

TEST(BacktestStatistics, DrawdownIsTheDeepestFallFromAPeak) {
  // Equity 1.1, 0.88, 1.32, 1.056: falls of 0.2 each.
  const Panel held = Panel::Constant(5, 1, 1.0);
  EXPECT_NEAR(backtest_weights(held, closes({0.1, -0.2, 0.5, -0.2}), {0}).statistics.drawdown, 0.2,
              kClose);
  // The fall counts from the start of the history too: 0.9 * 0.8 = 0.72.
  EXPECT_NEAR(backtest_weights(held, closes({-0.1, -0.2, 0.1, 0.1}), {0}).statistics.drawdown, 0.28,
              kClose);
  EXPECT_EQ(backtest_weights(held, closes({0.1, 0.1, 0.2, 0.1}), {0}).statistics.drawdown, 0.0);
  // Short of something that triples: everything is lost, and no more.
  EXPECT_EQ(backtest_weights(-held, closes({2.0, 0.5, -0.5, 0.5}), {0}).statistics.drawdown, 1.0);
}

TEST(BacktestStatistics, ExposuresOfALongShortBook) {
  const Panel weights = panel({{0.5, -0.5}, {0.25, -0.75}, {0, 0}, {1, 0}, {1, 0}});
  const Panel close = Panel::Constant(5, 2, 10.0);
  const BacktestStatistics s = backtest_weights(weights, close, {0}).statistics;
  EXPECT_NEAR(s.max_weight, 1.0, kClose);
  EXPECT_NEAR(s.delta_exposure, (0 + 0.5 + 0 + 1) / 4.0, kClose);
  EXPECT_NEAR(s.abs_weight_sum_mean, 0.75, kClose);
  EXPECT_NEAR(s.turnover, (1 + 0.5 + 1 + 1) / 4.0, kClose);
  EXPECT_EQ(s.active_days, 3);
  EXPECT_EQ(s.holding_days, 4);
}

TEST(BacktestStatistics, QualityScoreTakesDrawdownAndTurnoverOff) {
  const BacktestStatistics s =
      backtest_weights(series({1, -1, 1, 1}), closes({0.02, 0.03, 0.01}), {5}).statistics;
  EXPECT_GT(s.drawdown, 0.0);
  EXPECT_NEAR(s.quality_score, s.sharpe - s.drawdown - 0.1 * s.turnover, kClose);
  EXPECT_NEAR(s.turnover, 5.0 / 3.0, kClose);
}

void expect_all_finite(const BacktestStatistics& s) {
  for (const double value :
       {s.sharpe, s.gross_returns_sharpe, s.annualized_returns, s.turnover, s.drawdown,
        s.max_weight, s.delta_exposure, s.abs_weight_sum_mean, s.quality_score}) {
    EXPECT_TRUE(std::isfinite(value));
  }
}

TEST(BacktestStatistics, AreFiniteForHistoriesOfAnyLength) {
  for (const Eigen::Index days : {0, 1, 2, 3}) {
    SCOPED_TRACE(days);
    const BacktestStatistics s =
        backtest_weights(Panel::Constant(days, 2, 0.5), Panel::Constant(days, 2, 10.0), {5})
            .statistics;
    expect_all_finite(s);
    EXPECT_EQ(s.holding_days, std::max<Eigen::Index>(days - 1, 0));
  }
}

TEST(BacktestStatistics, AreFiniteForPricesOfAnySize) {
  const Panel held = Panel::Constant(6, 1, 1.0);
  const BacktestStatistics s =
      backtest_weights(held, series({1e-300, 1e300, 1e-300, 1e300, 1e300, 1.0}), {5}).statistics;
  expect_all_finite(s);
  EXPECT_EQ(s.missing_return_count, 2);
  const BacktestStatistics t =
      backtest_weights(held, series({1e-150, 1e150, 1.0, 1.1e6, 1.0, 0.9e6}), {5}).statistics;
  expect_all_finite(t);
  EXPECT_EQ(t.missing_return_count, 2);
}

TEST(BacktestWeights, RefusesWhatItCannotUse) {
  const Panel close = closes({0.1, 0.1});
  EXPECT_THROW((void)backtest_weights(series({1, 1}), close, {0}), std::invalid_argument);
  EXPECT_THROW((void)backtest_weights(series({1, kNan, 1}), close, {0}), std::invalid_argument);
  EXPECT_THROW((void)backtest_weights(series({1, 1, 1}), close, {-1}), std::invalid_argument);
  EXPECT_THROW((void)backtest_weights(series({1, 1, 1}), close, {kNan}), std::invalid_argument);
  EXPECT_THROW((void)backtest_weights(series({1, 1, 1}), close, {10001}), std::invalid_argument);
}

// What is held from each close on, and what is booked the day after, written out as two panels.
struct NaiveBook {
  Panel held;
  Panel change;
  Panel is_traded;  // 1 where there is a close.
  std::int64_t missing = 0;
};

NaiveBook naive_book(const Panel& w, const Panel& close, const BookRules& rules) {
  const Panel zero = Panel::Zero(w.rows(), w.cols());
  NaiveBook book{zero, zero, zero, 0};
  std::vector<Eigen::Index> lasts;
  for (Eigen::Index i = 0; i < w.cols(); ++i) {
    lasts.push_back(-1);
    for (Eigen::Index t = 0; t < w.rows(); ++t) {
      if (!std::isnan(close(t, i))) lasts.back() = t;
    }
  }
  // Day by day: first what cannot be traded, then the others with what capital is left.
  for (Eigen::Index t = 0; t < w.rows(); ++t) {
    double wanted_sum = 0.0, tradable = 0.0, carried = 0.0;
    const auto wanted = [&](Eigen::Index i) {
      return t >= rules.delay_days ? w(t - rules.delay_days, i) : 0.0;
    };
    for (Eigen::Index i = 0; i < w.cols(); ++i) {
      wanted_sum += std::abs(wanted(i));
      if (!std::isnan(close(t, i))) {
        tradable += std::abs(wanted(i));
      } else if (t > 0 && t <= lasts[static_cast<std::size_t>(i)]) {
        book.held(t, i) = book.held(t - 1, i);
        carried += std::abs(book.held(t, i));
      }
    }
    double share = 1.0;
    if (carried > 0.0 && tradable > 0.0) {
      share = std::min(1.0, std::max(0.0, (wanted_sum - carried) / tradable));
    }
    for (Eigen::Index i = 0; i < w.cols(); ++i) {
      if (!std::isnan(close(t, i))) book.held(t, i) = share * wanted(i);
    }
  }
  for (Eigen::Index i = 0; i < w.cols(); ++i) {
    const Eigen::Index last = lasts[static_cast<std::size_t>(i)];
    double known = kNan;
    for (Eigen::Index t = 0; t < w.rows(); ++t) {
      if (!std::isnan(close(t, i))) {
        book.is_traded(t, i) = 1.0;
        known = close(t, i);
      }
      if (t + 1 == w.rows()) break;
      const bool is_back = !std::isnan(close(t + 1, i));
      if (is_back && !std::isnan(known)) book.change(t, i) = close(t + 1, i) / known - 1.0;
      if (t == last) book.change(t, i) = rules.delisting_return;
      book.missing += book.held(t, i) != 0.0 && (std::isnan(close(t, i)) || !is_back);
    }
  }
  return book;
}

// The formulas of the header, day by day over all instruments.
BacktestStatistics naive_statistics(const Panel& w, const Panel& close, const BookRules& rules) {
  const NaiveBook book = naive_book(w, close, rules);
  BacktestStatistics s;
  s.missing_return_count = book.missing;
  std::vector<double> gross;
  std::vector<double> net;
  double equity = 1.0;
  double peak = 1.0;
  const auto days = static_cast<double>(w.rows() - 1);
  for (Eigen::Index t = 0; t + 1 < w.rows(); ++t) {
    double earned = 0.0, traded = 0.0, sum = 0.0, absolute = 0.0;
    for (Eigen::Index i = 0; i < w.cols(); ++i) {
      const double held = book.held(t, i);
      earned += held * book.change(t, i);
      if (book.is_traded(t, i) == 1.0)
        traded += std::abs(held - (t == 0 ? 0.0 : book.held(t - 1, i)));
      sum += held;
      absolute += std::abs(held);
      s.max_weight = std::max(s.max_weight, std::abs(held));
    }
    gross.push_back(earned);
    net.push_back(earned - rules.cost_basis_points / 1e4 * traded);
    equity *= 1.0 + net.back();
    peak = std::max(peak, equity);
    s.drawdown = std::max(s.drawdown, 1.0 - equity / peak);
    s.turnover += traded / days;
    s.delta_exposure += std::abs(sum) / days;
    s.abs_weight_sum_mean += absolute / days;
    s.active_days += absolute > 0.0;
    s.annualized_returns += rules.periods_per_year * net.back() / days;
  }
  const auto sharpe = [&](const std::vector<double>& v) {
    double mean = 0.0, squares = 0.0;
    for (const double x : v)
      mean += x / days;
    for (const double x : v)
      squares += (x - mean) * (x - mean);
    return std::sqrt(rules.periods_per_year) * mean / std::sqrt(squares / (days - 1.0));
  };
  s.sharpe = sharpe(net);
  s.gross_returns_sharpe = sharpe(gross);
  s.quality_score = s.sharpe - s.drawdown - 0.1 * s.turnover;
  return s;
}

struct RandomBook {
  Panel weights;
  Panel close;
  BookRules rules;
};

RandomBook random_book(std::uint64_t seed) {
  std::mt19937_64 engine(seed);
  const auto days = static_cast<Eigen::Index>(20 + engine() % 200);
  const auto columns = static_cast<Eigen::Index>(1 + engine() % 8);
  RandomBook book;
  book.weights = signal_weights(random_panel(engine, days, columns, 0.3));
  book.close = random_panel(engine, days, columns, 0.05);
  book.close.col(0).tail(3) = kNan;  // Never back.
  for (Eigen::Index i = 0; i < columns; ++i) {
    double level = 50.0;
    for (Eigen::Index t = 0; t < days; ++t) {
      level *= 1.0 + 0.03 * (static_cast<double>(engine() >> 11) * 0x1p-53 - 0.5);
      if (!std::isnan(book.close(t, i))) book.close(t, i) = level;
    }
  }
  book.rules = {.cost_basis_points = 7.5,
                .delay_days = static_cast<int>(engine() % 4),
                .delisting_return = -0.3,
                .periods_per_year = 52.0};
  return book;
}

void expect_same_bits(const Eigen::ArrayXd& actual, const Eigen::ArrayXd& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (Eigen::Index day = 0; day < actual.size(); ++day)
    ASSERT_TRUE(same_bits(actual(day), expected(day))) << "holding day " << day;
}

TEST(OppositeBacktest, IsThatOfTheNegatedWeightsToTheLastBit) {
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomBook book = random_book(seed);
    // Days without any position have sums of nothing.
    if (seed % 3 == 0) book.weights.topRows(9) = 0.0;
    const BacktestResult made =
        opposite_backtest(backtest_weights(book.weights, book.close, book.rules), book.rules);
    const BacktestResult asked = backtest_weights(-book.weights, book.close, book.rules);
    expect_same_bits(made.gross_returns, asked.gross_returns);
    expect_same_bits(made.net_returns, asked.net_returns);
    expect_same_bits(made.traded, asked.traded);
    expect_same_bits(made.net_exposure, asked.net_exposure);
    expect_same_bits(made.gross_exposure, asked.gross_exposure);
    const BacktestStatistics& m = made.statistics;
    const BacktestStatistics& a = asked.statistics;
    for (const auto& [of_made, of_asked] : {std::pair(m.sharpe, a.sharpe),
                                            {m.gross_returns_sharpe, a.gross_returns_sharpe},
                                            {m.annualized_returns, a.annualized_returns},
                                            {m.turnover, a.turnover},
                                            {m.drawdown, a.drawdown},
                                            {m.max_weight, a.max_weight},
                                            {m.delta_exposure, a.delta_exposure},
                                            {m.abs_weight_sum_mean, a.abs_weight_sum_mean},
                                            {m.quality_score, a.quality_score}}) {
      EXPECT_TRUE(same_bits(of_made, of_asked)) << of_made << " and " << of_asked;
    }
    EXPECT_EQ(m.holding_days, a.holding_days);
    EXPECT_EQ(m.active_days, a.active_days);
    EXPECT_EQ(m.missing_return_count, a.missing_return_count);
    EXPECT_EQ(m.orientation, 1) << "which is tried is nothing that a backtest knows";
  }
}

TEST(BacktestStatistics, AgreeWithTheirFormulasOnRandomBooks) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto& [weights, close, rules] = random_book(seed);
    const BacktestStatistics s = backtest_weights(weights, close, rules).statistics;
    const BacktestStatistics n = naive_statistics(weights, close, rules);
    EXPECT_NEAR(s.sharpe, n.sharpe, 1e-8);
    EXPECT_NEAR(s.gross_returns_sharpe, n.gross_returns_sharpe, 1e-8);
    EXPECT_NEAR(s.annualized_returns, n.annualized_returns, 1e-10);
    EXPECT_NEAR(s.turnover, n.turnover, 1e-10);
    EXPECT_NEAR(s.drawdown, n.drawdown, 1e-10);
    EXPECT_NEAR(s.max_weight, n.max_weight, 1e-12);
    EXPECT_NEAR(s.delta_exposure, n.delta_exposure, 1e-10);
    EXPECT_NEAR(s.abs_weight_sum_mean, n.abs_weight_sum_mean, 1e-10);
    EXPECT_NEAR(s.quality_score, n.quality_score, 1e-8);
    EXPECT_EQ(s.active_days, n.active_days);
    EXPECT_EQ(s.missing_return_count, n.missing_return_count);
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
