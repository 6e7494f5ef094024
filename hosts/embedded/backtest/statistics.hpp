// From a signal to weights, and from weights to profits and losses.
//
// The calendar. A signal for day t uses what is known at the close of day t. The weights made of it
// are taken at that close and held until the close of day t+1: they earn close(t+1) / close(t) - 1.
// T days of prices give T - 1 holding days, t = 0 .. T-2; the weights of the last day earn nothing
// yet and count nowhere. Every holding day counts in every mean, also one without a position, so
// that a signal with positions on a handful of days does not look steady.
//
// The book is rebalanced to its weights at every close; the drift in between costs nothing.
#pragma once

#include <cstdint>

#include <Eigen/Core>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// Trading days in a year, by which daily figures become annual ones.
inline constexpr double kTradingDays = 252.0;

// In the following w(t,i) is the weight and r(t,i) the return of instrument i on holding day t,
//   gross(t)     = sum_i w(t,i) r(t,i)
//   traded(t)    = sum_i |w(t,i) - w(t-1,i)|, with no weights before the first day
//   net(t)       = gross(t) - cost_basis_points / 10,000 * traded(t)
// and mean and s are the mean and the sample standard deviation (divisor n - 1) over holding days.
// Every statistic is finite. Without a holding day all of them are 0.
struct BacktestStatistics {
  // sqrt(252) mean(net) / s(net): annualised, after costs, against a risk-free rate of zero (W. F.
  // Sharpe, "The Sharpe Ratio", 1994). 0 where s is 0, or negligible beside the largest |net|, and
  // where there are fewer than two days.
  double sharpe = 0.0;
  // The same before costs, of gross(t).
  double gross_returns_sharpe = 0.0;
  // 252 mean(net): a fraction of the capital a year (0.1 is ten per cent), not compounded.
  double annualized_returns = 0.0;
  // mean(traded): fractions of the capital bought and sold a day; 2 turns the whole book over.
  double turnover = 0.0;
  // max_t (1 - E(t) / max_{s<=t} E(s)) with E(t) = prod_{s<=t} (1 + net(s)) and E = 1 before the
  // first day: the deepest fall from a peak, from 0 (none) to 1 (everything lost).
  double drawdown = 0.0;
  // max |w(t,i)|.
  double max_weight = 0.0;
  // mean_t |sum_i w(t,i)|: the mean absolute net exposure; 0 is market neutral, 1 all on one side.
  double delta_exposure = 0.0;
  // mean_t sum_i |w(t,i)|: the mean gross exposure; 1 where there is a position on every day.
  double abs_weight_sum_mean = 0.0;
  // sharpe - drawdown - kTurnoverPenalty * turnover: the figure that ranks signals. It is our own
  // choice: in units of a Sharpe ratio, a lost half of the capital weighs as 0.5, and a book turned
  // over daily as 0.2 beyond the costs that are in the net returns already.
  double quality_score = 0.0;

  std::int64_t holding_days = 0;
  // Holding days with a position.
  std::int64_t active_days = 0;
  // Holding days times instruments with a weight but without a return, because a close is missing
  // on either side, or because the return is beyond kLargestReturn. They earn nothing.
  std::int64_t missing_return_count = 0;
};

inline constexpr double kTurnoverPenalty = 0.1;

// A return of a million in one day is a mistake in the data, and sums of such returns would soon be
// infinite.
inline constexpr double kLargestReturn = 1e6;

// In basis points: all that is traded.
inline constexpr double kLargestCosts = 10'000.0;

struct BacktestResult {
  BacktestStatistics statistics;
  Eigen::ArrayXd gross_returns;  // One entry a holding day.
  Eigen::ArrayXd net_returns;
};

// w(t,i) = x(t,i) / sum_j |x(t,j)|: one unit of gross exposure a day, not demeaned. An entry that
// is not finite has no weight; a day on which no entry is finite and other than 0 has none at all.
[[nodiscard]] Panel signal_weights(const Panel& signal);

// What `weights` (finite, of the shape of `close`) would have earned at costs of
// `cost_basis_points` of what is traded. Throws std::invalid_argument for weights of another shape
// or not finite, and for costs that are not within 0 and kLargestCosts.
[[nodiscard]] BacktestResult backtest_weights(const Panel& weights, const Panel& close,
                                              double cost_basis_points);

// The same of the holding days first_day .. first_day + day_count - 1 alone: what the book earned
// while it was held from day to day, not what it would have earned had it been bought on the first
// of them. So what is traded on the first day counts from the weights that were held before, and
// the equity begins at 1 there. Nothing before the close of first_day enters but those weights, and
// nothing after the close of the day first_day + day_count. Throws std::invalid_argument as above,
// but for weights of those days only, and for days that the prices do not hold.
[[nodiscard]] BacktestResult backtest_holding_days(const Panel& weights, const Panel& close,
                                                   double cost_basis_points, Eigen::Index first_day,
                                                   Eigen::Index day_count);

}  // namespace varnholt::embedded
