// What people ask of a book beside the statistics that a search is gated by: computed for a signal
// that was submitted, not for every candidate.
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/market/calendar_date.hpp"

namespace varnholt::embedded {

// In the following net(t), gross(t), traded(t), w(t,i), A, mean and s are those of statistics.hpp,
// n is the number of holding days, and m(t) what the equal-weight market earned on them by the same
// rules. A figure that is not defined for these days is NaN.
struct PerformanceFigures {
  // sqrt(A) s(net): a fraction of the capital a year. NaN for fewer than two days.
  double volatility = 0.0;
  // (prod_t (1 + net(t)))^(A / n) - 1: what the capital grows by a year where everything earned is
  // put in again. NaN without a day.
  double compound_growth = 0.0;
  // A mean(net) / (sqrt(A) d) with d = sqrt(mean(min(net, 0)^2)): annualised, against a target of
  // zero (F. A. Sortino and L. N. Price, "Performance Measurement in a Downside Risk Framework",
  // 1994). NaN where no day has a loss.
  double sortino = 0.0;
  // compound_growth / drawdown (T. W. Young, "Calmar Ratio: A Smoother Tool", 1991), over all of
  // the days. NaN without a drawdown.
  double calmar = 0.0;
  // Skewness and excess kurtosis of net(t), each with the correction for small samples (D. N.
  // Joanes and C. A. Gill, "Comparing measures of sample skewness and kurtosis", 1998: G1 and G2);
  // both are 0 for a normal distribution. NaN for fewer than three or four days, and without
  // spread.
  double skewness = 0.0;
  double excess_kurtosis = 0.0;
  // The days with net(t) > 0 as a share of those with net(t) other than 0. NaN where there is none.
  double hit_rate = 0.0;
  // The most holding days in a row on which the equity stood below an earlier peak.
  std::int64_t longest_drawdown_days = 0;

  // cov(net, m) / var(m), and A (mean(net) - beta mean(m)), a fraction of the capital a year; the
  // intercept and slope of a least-squares line. With them the correlation of net and m. NaN for
  // fewer than two days and for a market without spread.
  double beta = 0.0;
  double alpha = 0.0;
  double market_correlation = 0.0;

  // mean_t sum_i max(w(t,i), 0), and mean_t sum_i max(-w(t,i), 0): fractions of the capital.
  double long_exposure = 0.0;
  double short_exposure = 0.0;
  // 10,000 mean(gross) / mean(traded): the costs in basis points of what is traded at which nothing
  // is left. Below 0 where nothing is earned before costs; NaN where nothing is traded.
  double break_even_cost_basis_points = 0.0;
};

// `market_returns` has an entry for each holding day of the backtest. std::invalid_argument for
// another length.
[[nodiscard]] PerformanceFigures performance_figures(const BacktestResult& backtest,
                                                     const Eigen::ArrayXd& market_returns,
                                                     double periods_per_year);

// The figures of the days of one calendar year; a year of which there are fewer has them all the
// same. Units are those of the statistics of the same names.
struct YearFigures {
  int year = 0;
  std::int64_t days = 0;
  double net_return = 0.0;  // prod_t (1 + net(t)) - 1.
  double sharpe = 0.0;
  double volatility = 0.0;
  double drawdown = 0.0;  // From the beginning of the year on.
  double turnover = 0.0;
};

// A row for each year in which there is a holding day. `first_booked` is the index in `dates` of
// the day on which the first of them is booked: the one after it is held from.
[[nodiscard]] std::vector<YearFigures> yearly_figures(const BacktestResult& backtest,
                                                      const std::vector<Date>& dates,
                                                      Eigen::Index first_booked,
                                                      double periods_per_year);

}  // namespace varnholt::embedded
