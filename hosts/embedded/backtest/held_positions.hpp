// What a book really holds of the weights that a signal wants: traded late, carried over days
// without a price, and never more than its capital. The rules are told in statistics.hpp.
#pragma once

#include <cmath>
#include <optional>

#include <Eigen/Core>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// The weights and closes of one instrument up to the day at which the history ends. What is passed
// in must outlive it.
class WantedColumn {
 public:
  WantedColumn(const Panel& weights, const Panel& close, const BookRules& rules,
               Eigen::Index column, Eigen::Index last_day);

  [[nodiscard]] double close(Eigen::Index day) const { return close_(day, column_); }
  [[nodiscard]] bool has_close(Eigen::Index day) const { return std::isfinite(close(day)); }
  // Whether nothing but trading on that day changes what is held: there is a close on it, on the
  // day before and on the day after.
  [[nodiscard]] bool is_plain(Eigen::Index day) const {
    return day > delay_ && day < last_ && has_close(day - 1) && has_close(day) &&
           has_close(day + 1);
  }
  // The end of the plain days that begin with `day`, at most `end`.
  [[nodiscard]] Eigen::Index plain_end(Eigen::Index day, Eigen::Index end) const;
  // Day by day from that one on; what is wanted before the delay is over is not there.
  [[nodiscard]] const double* wanted_from(Eigen::Index day) const {
    return weights_.data() + column_ * weights_.rows() + day - delay_;
  }
  [[nodiscard]] const double* closes_from(Eigen::Index day) const {
    return close_.data() + column_ * close_.rows() + day;
  }
  // The last day with a close; -1 where there is none.
  [[nodiscard]] Eigen::Index last() const { return last_; }
  // Whether there is a day without a close between two with one.
  [[nodiscard]] bool has_gap() const;
  // What the signal wants to hold from the close of that day on.
  [[nodiscard]] double wanted(Eigen::Index day) const {
    return day < delay_ ? 0.0 : weights_(day - delay_, column_);
  }

 private:
  const Panel& weights_;
  const Panel& close_;
  Eigen::Index column_;
  Eigen::Index delay_;
  Eigen::Index last_;
};

// How much of what the signal wants can be held on a day beside the positions that are carried:
//   share(t) = min(1, (sum_i |x(t,i)| - carried(t)) / sum over what has a close of |x(t,i)|)
// with x(t,i) as the signal wants it and carried(t) the gross exposure that cannot be traded.
class Capital {
 public:
  Capital(const Panel& weights, const Panel& close, const BookRules& rules, Eigen::Index last_day);

  [[nodiscard]] double share(Eigen::Index day) const { return shares_(day); }
  [[nodiscard]] const double* shares_from(Eigen::Index day) const { return shares_.data() + day; }

 private:
  Eigen::ArrayXd shares_;  // All ones where nothing is ever carried.
};

struct Position {
  double weight = 0.0;
  double close = 0.0;  // The last one known.
};

// What is held into the close of `day`. std::invalid_argument for a weight that is not finite.
[[nodiscard]] Position position_before(const WantedColumn& column, const Capital& capital,
                                       Eigen::Index day);

// A return beyond this in one day is a mistake in the data, and sums of such returns would soon be
// infinite.
inline constexpr double kLargestReturn = 1e6;

// The change of a position's value from one day to the next, or nothing where none is booked.
[[nodiscard]] std::optional<double> booked_change(const WantedColumn& column, const Position& held,
                                                  Eigen::Index day, const BookRules& rules);

// Whether all of these numbers are; true for none.
[[nodiscard]] bool are_finite(const double* values, Eigen::Index count);

// For weights that are none.
[[noreturn]] void refuse_weights_that_are_not_finite();

}  // namespace varnholt::embedded
