// The functions of panel_functions.hpp that work over the history of one instrument.
#include <algorithm>
#include <cmath>
#include <vector>

#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolling_fold.hpp"

namespace varnholt::embedded {
namespace {

// Applies a rolling fold to each column: lift(value) and combine(a, b) as rolling_fold says, and
// result(aggregate, today's value) for the entry.
template <typename Lift, typename Combine, typename Result>
Panel roll(const Panel& x, Eigen::Index window, Lift lift, Combine combine, Result result) {
  require_window(window);
  Panel panel = Panel::Constant(x.rows(), x.cols(), kUnknown);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    double* const to = panel.data() + column * x.rows();
    rolling_fold(
        x.rows(), window, [&](Eigen::Index day) { return lift(from[day]); }, combine,
        [&](Eigen::Index day) { return !std::isnan(from[day]); },
        [&](Eigen::Index day, const auto& aggregate) {
          to[day] = finite_or_nan(result(aggregate, from[day]));
        });
  }
  return panel;
}

double itself(double value) {
  return value;
}

double add(double a, double b) {
  return a + b;
}

// Mean and sum of squared deviations from it. Two sets merge without cancellation by the formula of
// Chan, Golub and LeVeque (1979), "Updating formulae and a pairwise algorithm for computing sample
// variances".
struct Moments {
  double count = 0.0;
  double mean = 0.0;
  double deviations = 0.0;

  // Whether the spread is nothing but rounding.
  [[nodiscard]] bool is_constant() const {
    return deviations <= kConstantTolerance * (deviations + count * mean * mean);
  }
  [[nodiscard]] double standard_deviation() const {
    if (count < 2.0) return kUnknown;
    return is_constant() ? 0.0 : std::sqrt(deviations / (count - 1.0));
  }
};

Moments merge(const Moments& a, const Moments& b) {
  const double count = a.count + b.count;
  const double share = b.count / count;
  const double distance = b.mean - a.mean;
  return {count, a.mean + distance * share,
          a.deviations + b.deviations + distance * distance * a.count * share};
}

Moments moments_of_one(double value) {
  return {1.0, value, 0.0};
}

template <typename Result>
Panel roll_moments(const Panel& x, Eigen::Index window, Result result) {
  return roll(
      x, window, moments_of_one, [](const Moments& a, const Moments& b) { return merge(a, b); },
      result);
}

// The moments of two series and their co-moment, the sum of the products of their deviations.
struct PairMoments {
  Moments x;
  Moments y;
  double products = 0.0;
};

PairMoments merge(const PairMoments& a, const PairMoments& b) {
  const double share = b.x.count / (a.x.count + b.x.count);
  const double distance = (b.x.mean - a.x.mean) * (b.y.mean - a.y.mean);
  return {merge(a.x, b.x), merge(a.y, b.y), a.products + b.products + distance * a.x.count * share};
}

template <typename Result>
Panel roll_pair(const Panel& x, const Panel& y, Eigen::Index window, Result result) {
  require_same_shape(x, y);
  require_window(window);
  Panel panel = Panel::Constant(x.rows(), x.cols(), kUnknown);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const left = x.data() + column * x.rows();
    const double* const right = y.data() + column * x.rows();
    double* const to = panel.data() + column * x.rows();
    rolling_fold(
        x.rows(), window,
        [&](Eigen::Index day) {
          return PairMoments{{1.0, left[day], 0.0}, {1.0, right[day], 0.0}, 0.0};
        },
        [](const PairMoments& a, const PairMoments& b) { return merge(a, b); },
        [&](Eigen::Index day) { return !std::isnan(left[day]) && !std::isnan(right[day]); },
        [&](Eigen::Index day, const PairMoments& pair) { to[day] = finite_or_nan(result(pair)); });
  }
  return panel;
}

// A sum, and the sum in which the i-th oldest value counts i times.
struct WeightedSum {
  double count = 0.0;
  double sum = 0.0;
  double weighted = 0.0;
};

WeightedSum weighted_sum_of_one(double value) {
  return {1.0, value, value};
}

// Behind a.count older values, each value of b counts a.count times more.
WeightedSum merge(const WeightedSum& a, const WeightedSum& b) {
  return {a.count + b.count, a.sum + b.sum, a.weighted + b.weighted + a.count * b.sum};
}

}  // namespace

Panel ts_sum(const Panel& x, Eigen::Index window) {
  return roll(x, window, itself, add, [](double sum, double /*today*/) { return sum; });
}

Panel ts_mean(const Panel& x, Eigen::Index window) {
  const auto days = static_cast<double>(window);
  return roll(x, window, itself, add, [days](double sum, double /*today*/) { return sum / days; });
}

Panel ts_min(const Panel& x, Eigen::Index window) {
  return roll(
      x, window, itself, [](double a, double b) { return b < a ? b : a; },
      [](double least, double /*today*/) { return least; });
}

Panel ts_max(const Panel& x, Eigen::Index window) {
  return roll(
      x, window, itself, [](double a, double b) { return b > a ? b : a; },
      [](double greatest, double /*today*/) { return greatest; });
}

Panel ts_std(const Panel& x, Eigen::Index window) {
  return roll_moments(x, window, [](const Moments& moments, double /*today*/) {
    return moments.standard_deviation();
  });
}

Panel ts_zscore(const Panel& x, Eigen::Index window) {
  return roll_moments(x, window, [](const Moments& moments, double today) {
    const double spread = moments.standard_deviation();
    return spread == 0.0 ? kUnknown : (today - moments.mean) / spread;
  });
}

Panel ts_rank(const Panel& x, Eigen::Index window) {
  require_window(window);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  // Today is compared with every day of its window, one distance after the other: that is window
  // comparisons a day, but in loops without branches, which is faster than keeping the window
  // sorted for any window in use.
  std::vector<double> place(static_cast<std::size_t>(x.rows()));
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    std::fill(place.begin(), place.end(), 0.0);
    for (Eigen::Index distance = 1; distance < window; ++distance) {
      for (Eigen::Index day = distance; day < x.rows(); ++day) {
        const double today = from[day];
        const double other = from[day - distance];
        place[static_cast<std::size_t>(day)] +=
            (other < today ? 1.0 : 0.0) + (other == today ? 0.5 : 0.0);
      }
    }
    Eigen::Index known_run = 0;
    for (Eigen::Index day = 0; day < x.rows(); ++day) {
      known_run = std::isnan(from[day]) ? 0 : known_run + 1;
      if (known_run < window) continue;
      result(day, column) =
          window == 1 ? 0.5
                      : place[static_cast<std::size_t>(day)] / static_cast<double>(window - 1);
    }
  }
  return result;
}

Panel ts_delta(const Panel& x, Eigen::Index window) {
  require_window(window);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    for (Eigen::Index day = window; day < x.rows(); ++day) {
      result(day, column) = finite_or_nan(x(day, column) - x(day - window, column));
    }
  }
  return result;
}

Panel ts_decay(const Panel& x, Eigen::Index window) {
  const double weights = static_cast<double>(window) * static_cast<double>(window + 1) / 2.0;
  return roll(
      x, window, weighted_sum_of_one,
      [](const WeightedSum& a, const WeightedSum& b) { return merge(a, b); },
      [weights](const WeightedSum& sums, double /*today*/) { return sums.weighted / weights; });
}

Panel ts_covariance(const Panel& x, const Panel& y, Eigen::Index window) {
  return roll_pair(x, y, window, [](const PairMoments& pair) {
    return pair.x.count < 2.0 ? kUnknown : pair.products / (pair.x.count - 1.0);
  });
}

Panel ts_correlation(const Panel& x, const Panel& y, Eigen::Index window) {
  return roll_pair(x, y, window, [](const PairMoments& pair) {
    if (pair.x.is_constant() || pair.y.is_constant()) return kUnknown;
    const double correlation =
        pair.products / std::sqrt(pair.x.deviations) / std::sqrt(pair.y.deviations);
    // Rounding can carry a perfect correlation beyond one; fmin and fmax would hide a NaN here.
    if (std::isnan(correlation)) return kUnknown;
    return std::clamp(correlation, -1.0, 1.0);
  });
}

}  // namespace varnholt::embedded
