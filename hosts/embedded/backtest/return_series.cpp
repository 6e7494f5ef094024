#include "hosts/embedded/backtest/return_series.hpp"

#include <algorithm>
#include <cmath>

namespace varnholt::embedded {
namespace {

// A spread of daily returns this small beside the greatest of them is rounding.
constexpr double kNoSpread = 1e-12;

// Equity beyond this is not compounded further: the largest double times a few days of gains would
// be infinite, and the drawdown from there not a number.
constexpr double kMaximumEquity = 1e200;

}  // namespace

double ordered_sum(const Eigen::ArrayXd& values) {
  double total = 0.0;
  for (const double value : values)
    total += value;
  return total;
}

double mean_of(const Eigen::ArrayXd& values) {
  return values.size() == 0 ? 0.0 : ordered_sum(values) / static_cast<double>(values.size());
}

double sample_deviation(const Eigen::ArrayXd& values) {
  if (values.size() < 2) return 0.0;
  const double deviations = ordered_sum((values - mean_of(values)).square());
  const double spread = std::sqrt(deviations / static_cast<double>(values.size() - 1));
  return spread <= kNoSpread * values.abs().maxCoeff() ? 0.0 : spread;
}

double annualised_sharpe(const Eigen::ArrayXd& returns, double periods_per_year) {
  const double spread = sample_deviation(returns);
  if (spread == 0.0) return 0.0;
  const double ratio = std::sqrt(periods_per_year) * mean_of(returns) / spread;
  return std::isfinite(ratio) ? ratio : 0.0;
}

void Equity::earn(double daily_return) {
  value_ = std::clamp(value_ * (1.0 + daily_return), 0.0, kMaximumEquity);
  peak_ = std::max(peak_, value_);
}

double deepest_fall(const Eigen::ArrayXd& net_returns) {
  Equity equity;
  double deepest = 0.0;
  for (const double value : net_returns) {
    equity.earn(value);
    deepest = std::max(deepest, equity.fall());
  }
  return deepest;
}

}  // namespace varnholt::embedded
