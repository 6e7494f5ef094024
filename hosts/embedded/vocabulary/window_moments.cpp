// The functions of window_functions.hpp that are made of moments.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "hosts/embedded/vocabulary/known_days.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolling_fold.hpp"
#include "hosts/embedded/vocabulary/window_functions.hpp"

namespace varnholt::embedded {
namespace {

// Mean and sums of the powers of the deviations from it. Two sets merge without cancellation by the
// formulas of Pebay (2008), "Formulas for robust, one-pass parallel computation of covariances and
// arbitrary-order statistical moments".
struct FourMoments {
  double count = 0.0;
  double mean = 0.0;
  double second = 0.0;
  double third = 0.0;
  double fourth = 0.0;

  // Whether the spread is nothing but rounding.
  [[nodiscard]] bool is_constant() const {
    return second <= kConstantTolerance * (second + count * mean * mean);
  }
};

FourMoments merge(const FourMoments& a, const FourMoments& b) {
  const double n = a.count + b.count;
  const double distance = b.mean - a.mean;
  const double step = distance / std::max(n, 1.0);  // Of two empty sets it is 0.
  const double product = distance * step * a.count * b.count;
  FourMoments merged;
  merged.count = n;
  merged.mean = a.mean + step * b.count;
  merged.second = a.second + b.second + product;
  merged.third = a.third + b.third + product * step * (a.count - b.count) +
                 3.0 * step * (a.count * b.second - b.count * a.second);
  merged.fourth =
      a.fourth + b.fourth +
      product * step * step * (a.count * a.count - a.count * b.count + b.count * b.count) +
      6.0 * step * step * (a.count * a.count * b.second + b.count * b.count * a.second) +
      4.0 * step * (a.count * b.third - b.count * a.third);
  return merged;
}

template <typename Result>
Panel roll_moments(const Panel& x, const Window& window, Result result) {
  require_window(window.days);
  Panel panel = Panel::Constant(x.rows(), x.cols(), kUnknown);
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    double* const to = panel.data() + column * x.rows();
    const auto is_known = [from](Eigen::Index day) { return !std::isnan(from[day]); };
    count_known_days(window, is_known, known);
    rolling_fold(
        x.rows(), window.days,
        [&](Eigen::Index day) {
          return is_known(day) ? FourMoments{1.0, from[day]} : FourMoments{};
        },
        [](const FourMoments& a, const FourMoments& b) { return merge(a, b); },
        [&](Eigen::Index day) { return known[static_cast<std::size_t>(day)] > 0; },
        [&](Eigen::Index day, const FourMoments& moments) {
          to[day] = moments.is_constant() ? kUnknown : finite_or_nan(result(moments));
        });
  }
  return panel;
}

// The means of two series, the squared deviations of the second, and the products of both.
struct LineSums {
  double count = 0.0;
  double x_mean = 0.0;
  double y_mean = 0.0;
  double y_squares = 0.0;
  double products = 0.0;

  // NaN where y is constant: then there is no line.
  [[nodiscard]] double slope() const {
    const bool is_constant =
        y_squares <= kConstantTolerance * (y_squares + count * y_mean * y_mean);
    return is_constant ? kUnknown : products / y_squares;
  }
};

LineSums merge(const LineSums& a, const LineSums& b) {
  const double n = a.count + b.count;
  const double share = b.count / std::max(n, 1.0);
  const double x_distance = b.x_mean - a.x_mean;
  const double y_distance = b.y_mean - a.y_mean;
  const double weight = a.count * share;
  return {n, a.x_mean + x_distance * share, a.y_mean + y_distance * share,
          a.y_squares + b.y_squares + y_distance * y_distance * weight,
          a.products + b.products + x_distance * y_distance * weight};
}

// result(sums, x today, y today) for each entry.
template <typename Result>
Panel roll_lines(const Panel& x, const Panel& y, const Window& window, Result result) {
  require_same_shape(x, y);
  require_window(window.days);
  Panel panel = Panel::Constant(x.rows(), x.cols(), kUnknown);
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const left = x.data() + column * x.rows();
    const double* const right = y.data() + column * x.rows();
    double* const to = panel.data() + column * x.rows();
    const auto is_known = [left, right](Eigen::Index day) {
      return !std::isnan(left[day]) && !std::isnan(right[day]);
    };
    count_known_days(window, is_known, known);
    rolling_fold(
        x.rows(), window.days,
        [&](Eigen::Index day) {
          return is_known(day) ? LineSums{1.0, left[day], right[day], 0.0, 0.0} : LineSums{};
        },
        [](const LineSums& a, const LineSums& b) { return merge(a, b); },
        [&](Eigen::Index day) { return known[static_cast<std::size_t>(day)] > 0; },
        [&](Eigen::Index day, const LineSums& sums) {
          to[day] = finite_or_nan(result(sums, left[day], right[day]));
        });
  }
  return panel;
}

}  // namespace

Panel ts_skew(const Panel& x, const Window& window) {
  return roll_moments(x, window, [](const FourMoments& moments) {
    const double n = moments.count;
    if (n < 3.0) return kUnknown;
    const double variance = moments.second / (n - 1.0);
    return n / ((n - 1.0) * (n - 2.0)) * moments.third / (variance * std::sqrt(variance));
  });
}

Panel ts_kurtosis(const Panel& x, const Window& window) {
  return roll_moments(x, window, [](const FourMoments& moments) {
    const double n = moments.count;
    if (n < 4.0) return kUnknown;
    const double variance = moments.second / (n - 1.0);
    const double fourth = moments.fourth / (variance * variance);
    return n * (n + 1.0) / ((n - 1.0) * (n - 2.0) * (n - 3.0)) * fourth -
           3.0 * (n - 1.0) * (n - 1.0) / ((n - 2.0) * (n - 3.0));
  });
}

Panel ts_slope(const Panel& x, const Panel& y, const Window& window) {
  return roll_lines(x, y, window,
                    [](const LineSums& sums, double /*x*/, double /*y*/) { return sums.slope(); });
}

Panel ts_residual(const Panel& x, const Panel& y, const Window& window) {
  return roll_lines(x, y, window, [](const LineSums& sums, double x_today, double y_today) {
    return x_today - sums.x_mean - sums.slope() * (y_today - sums.y_mean);
  });
}

}  // namespace varnholt::embedded
