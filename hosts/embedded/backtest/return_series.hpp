// Sums over the daily returns of a book, in the order of the days: the same bits on every machine.
#pragma once

#include <Eigen/Core>

namespace varnholt::embedded {

// From the first entry to the last. The matrix library adds in packets, whose width is not the same
// on every machine.
[[nodiscard]] double ordered_sum(const Eigen::ArrayXd& values);

// 0 for none.
[[nodiscard]] double mean_of(const Eigen::ArrayXd& values);

// The square root of sum (x - mean)^2 / (n - 1). 0 for fewer than two values, and where it is
// rounding beside the greatest of them.
[[nodiscard]] double sample_deviation(const Eigen::ArrayXd& values);

// sqrt(periods_per_year) mean / deviation; 0 where the deviation is.
[[nodiscard]] double annualised_sharpe(const Eigen::ArrayXd& returns, double periods_per_year);

// The worth of one unit from the first day on, compounded, and of what it has fallen from.
class Equity {
 public:
  // After one more day.
  void earn(double daily_return);

  [[nodiscard]] double value() const { return value_; }
  // 1 - value / the greatest value so far, which is at least the 1 of the beginning.
  [[nodiscard]] double fall() const { return 1.0 - value_ / peak_; }

 private:
  double value_ = 1.0;
  double peak_ = 1.0;
};

// The greatest of the falls over these days.
[[nodiscard]] double deepest_fall(const Eigen::ArrayXd& net_returns);

}  // namespace varnholt::embedded
