// From a signal to weights, and from weights to profits and losses.
//
// The calendar. A signal for day t uses what is known at the close of day t. With a delay of d days
// the weights made of it are taken at the close of day t+d and held until the close of the day
// after, when the weights of the next signal are. Held from the close of day t they earn
// close(t+1) / close(t) - 1. T days of prices give T - 1 holding days, t = 0 .. T-2; weights that
// would be taken at the last close or later earn nothing yet and count nowhere. Every holding day
// counts in every mean, also one without a position, so that a signal with positions on a handful
// of days does not look steady.
//
// The book is rebalanced to its weights at every close; the drift in between costs nothing.
//
// Gaps. An instrument without a close cannot be traded on that day: the position of the day before
// is carried at the last close, whatever the signal says, and earns nothing until the day on which
// the price returns, which books the whole change since the last close. The capital that it binds
// is not there for the others: they get what is left, each in its proportion, so that the book is
// never larger than the signal wants. Where it never returns,
// although the history goes on, the position is paid out on the day after the last close: it earns
// the delisting return of the rules, and is gone without being traded.
#pragma once

#include <cstdint>

#include <Eigen/Core>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/day_tiles.hpp"

namespace varnholt::embedded {

// In the following w(t,i) is the weight that is held and r(t,i) the return that is booked of
// instrument i on holding day t, A the periods of a year,
//   gross(t)     = sum_i w(t,i) r(t,i)
//   traded(t)    = sum_i |w(t,i) - w(t-1,i)| over what has a close on day t, with no weights before
//                  the first day
//   net(t)       = gross(t) - cost_basis_points / 10,000 * traded(t)
// and mean and s are the mean and the sample standard deviation (divisor n - 1) over holding days.
// Every statistic is finite. Without a holding day all of them are 0.
struct BacktestStatistics {
  // sqrt(A) mean(net) / s(net): annualised, after costs, against a risk-free rate of zero (W. F.
  // Sharpe, "The Sharpe Ratio", 1994). 0 where s is 0, or negligible beside the largest |net|, and
  // where there are fewer than two days.
  double sharpe = 0.0;
  // The same before costs, of gross(t).
  double gross_returns_sharpe = 0.0;
  // A mean(net): a fraction of the capital a year (0.1 is ten per cent), not compounded.
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
  // Holding days times instruments that are held without a close on either side, or with a return
  // beyond kLargestReturn (held_positions.hpp). They earn nothing then, unless they are paid out.
  std::int64_t missing_return_count = 0;

  // -1 where these are the figures of the opposite of the signal that was tried, which trades the
  // same at the same costs (Evaluator::judge); otherwise 1.
  std::int64_t orientation = 1;

  [[nodiscard]] bool is_of_opposite() const { return orientation < 0; }
};

inline constexpr double kTurnoverPenalty = 0.1;

// The series have one entry a holding day.
struct BacktestResult {
  BacktestStatistics statistics;
  Eigen::ArrayXd gross_returns;
  Eigen::ArrayXd net_returns;
  Eigen::ArrayXd traded;
  Eigen::ArrayXd net_exposure;    // sum_i w(t,i)
  Eigen::ArrayXd gross_exposure;  // sum_i |w(t,i)|
};

// w(t,i) = x(t,i) / sum_j |x(t,j)|: one unit of gross exposure a day. What is to be taken out of
// a signal is taken out before (neutral_signal.hpp). An entry that
// is not finite has no weight; a day on which no entry is finite and other than 0 has none at all.
[[nodiscard]] Panel signal_weights(Panel signal);

// The same for some days, in the place of their signal.
void weigh_tile(const DayTile& tile, Panel& panel);

// What the book earns that takes `weights` (of the shape of `close`; row t is what the signal of
// day t wants) by these rules. Throws std::invalid_argument for weights of another shape or not
// finite, and for what check_book_rules refuses.
[[nodiscard]] BacktestResult backtest_weights(const Panel& weights, const Panel& close,
                                              const BookRules& rules);

// The same of the holding days first_day .. first_day + day_count - 1 alone: what the book earned
// while it was held from day to day, not what it would have earned had it been bought on the first
// of them. So what is traded on the first day counts from the weights that were held before, and
// the equity begins at 1 there. Nothing before the close of first_day enters but those weights and,
// where they are carried, the last close; and nothing after the close of the day first_day +
// day_count, with which the history ends here. Throws std::invalid_argument as above, but
// for weights that these days use only, and for days that the prices do not hold.
[[nodiscard]] BacktestResult backtest_holding_days(const Panel& weights, const Panel& close,
                                                   const BookRules& rules, Eigen::Index first_day,
                                                   Eigen::Index day_count);

// What the opposite of the weights would have earned whose backtest is given, by the same rules: to
// the last bit what its own backtest says, and made of the series alone.
[[nodiscard]] BacktestResult opposite_backtest(const BacktestResult& result,
                                               const BookRules& rules);

}  // namespace varnholt::embedded
