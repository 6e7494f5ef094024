#include "hosts/embedded/luck/deflated_sharpe.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "hosts/embedded/backtest/return_series.hpp"
#include "hosts/embedded/signal_pool/normal_scores.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::ArrayXXd;
using Eigen::Index;

// The distance of the quartiles of a normal distribution, in standard deviations.
constexpr double kNormalQuartiles = 1.3489795003921634;

// Between the two nearest of sorted values.
double quantile(const std::vector<double>& sorted, double share) {
  const double place = share * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (place - static_cast<double>(below)) * (sorted[above] - sorted[below]);
}

double standard_error(std::int64_t days) {
  return 1.0 / std::sqrt(static_cast<double>(std::max<std::int64_t>(days, 2) - 1));
}

}  // namespace

double normal_share(double z) {
  return 0.5 * std::erfc(-z / std::numbers::sqrt2);
}

TrialSpread spread_without_skill(std::int64_t days) {
  TrialSpread spread;
  spread.deviation = standard_error(days);
  return spread;
}

TrialSpread spread_of_drawn(std::vector<double> sharpes) {
  TrialSpread spread;
  if (sharpes.size() < kLeastDrawn) return spread;
  std::sort(sharpes.begin(), sharpes.end());
  spread.mean = quantile(sharpes, 0.5);
  const double quartiles = quantile(sharpes, 0.75) - quantile(sharpes, 0.25);
  spread.deviation = quartiles / kNormalQuartiles;
  return spread;
}

double independent_trials(const ArrayXXd& sample, std::int64_t trials) {
  const auto count = static_cast<double>(trials);
  // Each column of mean 0 and length 1, so that products are correlations.
  std::vector<ArrayXd> columns;
  for (Index column = 0; column < sample.cols(); ++column) {
    const ArrayXd values = sample.col(column);
    if (sample_deviation(values) == 0.0) continue;
    const ArrayXd centred = values - mean_of(values);
    columns.emplace_back(centred / std::sqrt(ordered_sum(centred.square())));
  }
  if (columns.size() < 2) return count;
  double total = 0.0;
  for (std::size_t left = 1; left < columns.size(); ++left) {
    for (std::size_t right = 0; right < left; ++right)
      total += std::abs(ordered_sum(columns[left] * columns[right]));
  }
  const double pairs = static_cast<double>(columns.size() * (columns.size() - 1)) / 2.0;
  const double alike = std::min(total / pairs, 1.0);
  return alike + (1.0 - alike) * count;
}

double expected_maximum_sharpe(const TrialSpread& spread) {
  const double trials = std::max(spread.independent, 1.0);
  if (trials == 1.0) return spread.mean;
  constexpr double kEuler = std::numbers::egamma;
  const double quantiles = (1.0 - kEuler) * normal_quantile(1.0 - 1.0 / trials) +
                           kEuler * normal_quantile(1.0 - 1.0 / (trials * std::numbers::e));
  return spread.mean + spread.deviation * std::max(quantiles, 0.0);
}

SharpeEstimate sharpe_estimate(const ArrayXd& returns) {
  const double deviation = sample_deviation(returns);
  if (deviation == 0.0) return {};
  const ArrayXd scaled = (returns - mean_of(returns)) / deviation;
  const double skewness = mean_of(scaled * scaled * scaled);
  const double kurtosis = mean_of(scaled.square().square());
  const double sharpe = mean_of(returns) / deviation;
  const double variance = 1.0 - skewness * sharpe + (kurtosis - 1.0) / 4.0 * sharpe * sharpe;
  // The approximation can fail for a handful of days; then that of a normal distribution stands.
  return {sharpe, std::sqrt(variance > 0.0 ? variance : 1.0) * standard_error(returns.size())};
}

}  // namespace varnholt::embedded
