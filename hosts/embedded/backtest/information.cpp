#include "hosts/embedded/backtest/information.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>
#include <vector>

#include "hosts/embedded/backtest/return_series.hpp"
#include "hosts/embedded/vocabulary/alike.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;

constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

// What is known of the instruments on one day, side by side.
struct Pairs {
  std::vector<double> signal;
  std::vector<double> earned;

  void clear() {
    signal.clear();
    earned.clear();
  }
};

Eigen::Map<const ArrayXd> series(const std::vector<double>& values) {
  return {values.data(), static_cast<Eigen::Index>(values.size())};
}

// Pearson's coefficient, or NaN.
double correlation(const std::vector<double>& left, const std::vector<double>& right) {
  const ArrayXd x = series(left);
  const ArrayXd y = series(right);
  const double spreads = sample_deviation(x) * sample_deviation(y);
  if (!(spreads > 0.0)) return kUndefined;
  const double covariance =
      ordered_sum((x - mean_of(x)) * (y - mean_of(y))) / static_cast<double>(x.size() - 1);
  return covariance / spreads;
}

// From 1; values that are alike, each to the next in order, share the mean of their ranks.
std::vector<double> ranks(const std::vector<double>& values) {
  std::vector<std::size_t> order(values.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(),
            [&](std::size_t left, std::size_t right) { return values[left] < values[right]; });
  std::vector<double> found(values.size());
  for (std::size_t first = 0; first < order.size();) {
    std::size_t end = first + 1;
    while (end < order.size() && are_alike(values[order[end]], values[order[end - 1]]))
      ++end;
    const double shared = static_cast<double>(first + 1 + end) / 2.0;
    for (std::size_t i = first; i < end; ++i)
      found[order[i]] = shared;
    first = end;
  }
  return found;
}

class DailyPairs {
 public:
  // Row by row: the panels lie column by column, and every day is read once a lag.
  DailyPairs(const Panel& signal, const Panel& close)
      : signal_(signal.transpose()), close_(close.transpose()) {}

  // The pairs of a signal's day with the returns of a holding day.
  const Pairs& of(Eigen::Index signal_day, Eigen::Index held_day) {
    pairs_.clear();
    for (Eigen::Index i = 0; i < close_.rows(); ++i) {
      const double value = signal_(i, signal_day);
      const double earned = close_(i, held_day + 1) / close_(i, held_day) - 1.0;
      if (!std::isfinite(value) || !std::isfinite(earned)) continue;
      pairs_.signal.push_back(value);
      pairs_.earned.push_back(earned);
    }
    return pairs_;
  }

 private:
  Panel signal_;
  Panel close_;
  Pairs pairs_;
};

InformationCoefficient coefficient(const std::vector<double>& daily) {
  InformationCoefficient found{kUndefined, kUndefined, static_cast<std::int64_t>(daily.size())};
  if (daily.empty()) return found;
  const ArrayXd values = series(daily);
  found.mean = mean_of(values);
  const double spread = sample_deviation(values);
  if (spread > 0.0) {
    found.t_value = found.mean / (spread / std::sqrt(static_cast<double>(daily.size())));
  }
  return found;
}

}  // namespace

InformationFigures information_figures(const Panel& signal, const Panel& close, int delay_days,
                                       Eigen::Index first_day, Eigen::Index day_count) {
  if (signal.rows() != close.rows() || signal.cols() != close.cols() || delay_days < 0 ||
      first_day < 0 || first_day + day_count >= std::max<Eigen::Index>(close.rows(), 1)) {
    throw std::invalid_argument("holding days or a signal that the closes do not hold");
  }
  DailyPairs pairs(signal, close);
  InformationFigures figures;
  for (std::size_t lag = 0; lag < kInformationLags; ++lag) {
    std::vector<double> daily;
    std::vector<double> daily_ranks;
    for (Eigen::Index day = first_day; day < first_day + day_count; ++day) {
      const Eigen::Index signal_day = day - delay_days - static_cast<Eigen::Index>(lag);
      if (signal_day < 0) continue;
      const auto& [values, earned] = pairs.of(signal_day, day);
      if (std::cmp_less(values.size(), kLeastInstruments)) continue;
      const double found = correlation(values, earned);
      if (!std::isfinite(found)) continue;
      daily.push_back(found);
      if (lag == 0) daily_ranks.push_back(correlation(ranks(values), ranks(earned)));
    }
    const InformationCoefficient of_lag = coefficient(daily);
    figures.by_lag[lag] = of_lag.mean;
    if (lag > 0) continue;
    figures.pearson = of_lag;
    figures.rank = coefficient(daily_ranks);
  }
  return figures;
}

}  // namespace varnholt::embedded
