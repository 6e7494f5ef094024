// The functions of panel_functions.hpp that work over the history of one instrument.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/known_days.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolling_fold.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// A share of days that is as near to a whole number is meant to be it: 0.55 of 20 is 11.
constexpr double kShareTolerance = 1e-9;

// Applies a rolling fold to each column: lift(value) and combine(a, b) as rolling_fold says, and
// result(aggregate, its last value, known days) for the entry. What is lifted from a NaN must leave
// what it is combined with as it is.
template <typename Lift, typename Combine, typename Result>
Panel roll(const Panel& x, const Window& window, Lift lift, Combine combine, Result result) {
  require_window(window.days);
  Panel panel = Panel::Constant(x.rows(), x.cols(), kUnknown);
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  const auto known_on = [&](Eigen::Index day) { return known[static_cast<std::size_t>(day)]; };
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    double* const to = panel.data() + column * x.rows();
    count_known_days(
        window, [&](Eigen::Index day) { return !std::isnan(from[day]); }, known);
    rolling_fold(
        x.rows(), window.days, [&](Eigen::Index day) { return lift(from[day]); }, combine,
        [&](Eigen::Index day) { return known_on(day) > 0; },
        [&](Eigen::Index day, const auto& aggregate) {
          const auto known_days = static_cast<double>(known_on(day));
          to[day] = finite_or_nan(result(aggregate, from + day, known_days));
        });
  }
  return panel;
}

double value_or(double otherwise, double value) {
  return std::isnan(value) ? otherwise : value;
}

double value_or_zero(double value) {
  return value_or(0.0, value);
}

double add(double a, double b) {
  return a + b;
}

// Mean and sum of squared deviations from it, of the known values. Two sets merge without
// cancellation by the formula of Chan, Golub and LeVeque (1979), "Updating formulae and a pairwise
// algorithm for computing sample variances".
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
  const double share = b.count / std::max(count, 1.0);  // Of two empty sets it is 0.
  const double distance = b.mean - a.mean;
  return {count, a.mean + distance * share,
          a.deviations + b.deviations + distance * distance * a.count * share};
}

Moments moments_of_one(double value) {
  return std::isnan(value) ? Moments{} : Moments{1.0, value, 0.0};
}

template <typename Result>
Panel roll_moments(const Panel& x, const Window& window, Result result) {
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
  const double share = b.x.count / std::max(a.x.count + b.x.count, 1.0);
  const double distance = (b.x.mean - a.x.mean) * (b.y.mean - a.y.mean);
  return {merge(a.x, b.x), merge(a.y, b.y), a.products + b.products + distance * a.x.count * share};
}

template <typename Result>
Panel roll_pair(const Panel& x, const Panel& y, const Window& window, Result result) {
  require_same_shape(x, y);
  require_window(window.days);
  Panel panel = Panel::Constant(x.rows(), x.cols(), kUnknown);
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const left = x.data() + column * x.rows();
    const double* const right = y.data() + column * x.rows();
    double* const to = panel.data() + column * x.rows();
    const auto is_known = [&](Eigen::Index day) {
      return !std::isnan(left[day]) && !std::isnan(right[day]);
    };
    count_known_days(window, is_known, known);
    rolling_fold(
        x.rows(), window.days,
        [&](Eigen::Index day) {
          if (!is_known(day)) return PairMoments{};
          return PairMoments{{1.0, left[day], 0.0}, {1.0, right[day], 0.0}, 0.0};
        },
        [](const PairMoments& a, const PairMoments& b) { return merge(a, b); },
        [&](Eigen::Index day) { return known[static_cast<std::size_t>(day)] > 0; },
        [&](Eigen::Index day, const PairMoments& pair) { to[day] = finite_or_nan(result(pair)); });
  }
  return panel;
}

// A sum, and the sum in which the value of the i-th oldest day counts i times.
struct WeightedSum {
  double days = 0.0;
  double sum = 0.0;
  double weighted = 0.0;
};

WeightedSum weighted_sum_of_one(double value) {
  return {1.0, value_or_zero(value), value_or_zero(value)};
}

// Behind a.days older days, each value of b counts a.days times more.
WeightedSum merge(const WeightedSum& a, const WeightedSum& b) {
  return {a.days + b.days, a.sum + b.sum, a.weighted + b.weighted + a.days * b.sum};
}

// The weights of the known days of a window that ends with `last`.
double decay_weights(const double* last, Eigen::Index window) {
  double weights = 0.0;
  for (Eigen::Index age = 0; age < window; ++age) {
    if (!std::isnan(*(last - age))) weights += static_cast<double>(window - age);
  }
  return weights;
}

}  // namespace

Window::Window(Eigen::Index all_days, double least_known_share)
    : days(all_days),
      least_known(std::max<Eigen::Index>(
          1, static_cast<Eigen::Index>(std::ceil(least_known_share * static_cast<double>(all_days) -
                                                 kShareTolerance)))) {}

Panel ts_sum(const Panel& x, const Window& window) {
  return roll(x, window, value_or_zero, add,
              [](double sum, const double* /*last*/, double /*known*/) { return sum; });
}

Panel ts_mean(const Panel& x, const Window& window) {
  return roll(x, window, value_or_zero, add,
              [](double sum, const double* /*last*/, double known) { return sum / known; });
}

Panel ts_min(const Panel& x, const Window& window) {
  return roll(
      x, window, [](double value) { return value_or(kInfinity, value); },
      [](double a, double b) { return b < a ? b : a; },
      [](double least, const double* /*last*/, double /*known*/) { return least; });
}

Panel ts_max(const Panel& x, const Window& window) {
  return roll(
      x, window, [](double value) { return value_or(-kInfinity, value); },
      [](double a, double b) { return b > a ? b : a; },
      [](double greatest, const double* /*last*/, double /*known*/) { return greatest; });
}

Panel ts_std(const Panel& x, const Window& window) {
  return roll_moments(x, window,
                      [](const Moments& moments, const double* /*last*/, double /*known*/) {
                        return moments.standard_deviation();
                      });
}

Panel ts_zscore(const Panel& x, const Window& window) {
  return roll_moments(x, window, [](const Moments& moments, const double* last, double /*known*/) {
    const double spread = moments.standard_deviation();
    return spread == 0.0 ? kUnknown : (*last - moments.mean) / spread;
  });
}

Panel ts_rank(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  // Today is compared with every day of its window, one distance after the other: that is window
  // comparisons a day, but in loops without branches, which is faster than keeping the window
  // sorted for any window in use. What is not known is neither less nor alike.
  std::vector<double> place(static_cast<std::size_t>(x.rows()));
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    count_known_days(
        window, [&](Eigen::Index day) { return !std::isnan(from[day]); }, known);
    std::fill(place.begin(), place.end(), 0.0);
    for (Eigen::Index distance = 1; distance < window.days; ++distance) {
      for (Eigen::Index day = distance; day < x.rows(); ++day) {
        const double today = from[day];
        const double other = from[day - distance];
        const double if_apart = other < today ? 1.0 : 0.0;
        place[static_cast<std::size_t>(day)] += are_alike(other, today) ? 0.5 : if_apart;
      }
    }
    for (std::size_t day = 0; day < known.size(); ++day) {
      if (known[day] == 0) continue;
      result(static_cast<Eigen::Index>(day), column) =
          known[day] == 1 ? 0.5 : place[day] / static_cast<double>(known[day] - 1);
    }
  }
  return result;
}

Panel ts_delta(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    for (Eigen::Index day = window.days; day < x.rows(); ++day) {
      result(day, column) = finite_or_nan(x(day, column) - x(day - window.days, column));
    }
  }
  return result;
}

Panel ts_decay(const Panel& x, const Window& window) {
  const auto days = static_cast<double>(window.days);
  const double all_weights = days * (days + 1.0) / 2.0;
  return roll(
      x, window, weighted_sum_of_one,
      [](const WeightedSum& a, const WeightedSum& b) { return merge(a, b); },
      [&](const WeightedSum& sums, const double* last, double known) {
        return sums.weighted / (known == days ? all_weights : decay_weights(last, window.days));
      });
}

Panel ts_covariance(const Panel& x, const Panel& y, const Window& window) {
  return roll_pair(x, y, window, [](const PairMoments& pair) {
    return pair.x.count < 2.0 ? kUnknown : pair.products / (pair.x.count - 1.0);
  });
}

Panel ts_correlation(const Panel& x, const Panel& y, const Window& window) {
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
