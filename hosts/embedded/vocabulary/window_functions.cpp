// The functions of window_functions.hpp that ask where values stand in a window, and in what order.
#include "hosts/embedded/vocabulary/window_functions.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/known_days.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/rolling_fold.hpp"

namespace varnholt::embedded {
namespace {

// Applies a rolling fold to each column: lift(value, day) and combine(a, b) as rolling_fold says,
// and result(aggregate, day, history up to that day) for the entry. What is lifted from a NaN must
// leave what it is combined with as it is.
template <typename Lift, typename Combine, typename Result>
Panel roll_days(const Panel& x, const Window& window, Lift lift, Combine combine, Result result) {
  require_window(window.days);
  Panel panel = Panel::Constant(x.rows(), x.cols(), kUnknown);
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    double* const to = panel.data() + column * x.rows();
    count_known_days(
        window, [&](Eigen::Index day) { return !std::isnan(from[day]); }, known);
    rolling_fold(
        x.rows(), window.days, [&](Eigen::Index day) { return lift(from[day], day); }, combine,
        [&](Eigen::Index day) { return known[static_cast<std::size_t>(day)] > 0; },
        [&](Eigen::Index day, const auto& aggregate) {
          to[day] = finite_or_nan(result(aggregate, day, from + day));
        });
  }
  return panel;
}

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Place {
  double value = 0.0;
  Eigen::Index day = 0;
  // Whether the days before the one that has the value must be looked at for what is alike to it.
  bool is_unsure = false;
};

// The place, from 1 on, of the oldest day of a window that is alike to `value`, which is in it.
double oldest_alike(const double* last, Eigen::Index days, double value) {
  const double* const first = last - days + 1;
  const double* const found =
      std::find_if(first, last, [value](double other) { return are_alike(other, value); });
  return static_cast<double>(found - first + 1);
}

// `none` is before no value.
template <typename IsBefore>
Panel place_of_first(const Panel& x, const Window& window, double none, IsBefore is_before) {
  return roll_days(
      x, window,
      [none](double value, Eigen::Index day) {
        return Place{std::isnan(value) ? none : value, day};
      },
      // The days of a are older, and stay where the two are equal. Where they are only alike, a day
      // of a that is alike to its first need not be alike to that of b: the window is looked at.
      [is_before, none](const Place& a, const Place& b) {
        if (!is_before(b.value, a.value)) return a;
        const bool is_alike = a.value != none && are_alike(a.value, b.value);
        return is_alike ? Place{b.value, a.day, true} : b;
      },
      [days = window.days](const Place& first, Eigen::Index day, const double* last) {
        return first.is_unsure ? oldest_alike(last, days, first.value)
                               : static_cast<double>(first.day - (day - days));
      });
}

// A sum in which a day counts the less the older it is, relative to the last day of it.
struct FadingSum {
  double fade = 1.0;  // What a day before it would count.
  double sum = 0.0;
  double weights = 0.0;
};

FadingSum merge(const FadingSum& a, const FadingSum& b) {
  return {a.fade * b.fade, a.sum * b.fade + b.sum, a.weights * b.fade + b.weights};
}

double value_at_share(const std::vector<double>& sorted, double share) {
  const double place = share * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  const double part = place - static_cast<double>(below);
  return part == 0.0 ? sorted[below] : sorted[below] + part * (sorted[above] - sorted[below]);
}

}  // namespace

Panel ts_delay(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  const Eigen::Index days = x.rows() - window.days;
  if (days > 0) result.bottomRows(days) = x.topRows(days);
  return result;
}

Panel ts_product(const Panel& x, const Window& window) {
  return roll_days(
      x, window, [](double value, Eigen::Index /*day*/) { return std::isnan(value) ? 1.0 : value; },
      [](double a, double b) { return a * b; },
      [](double product, Eigen::Index /*day*/, const double* /*last*/) { return product; });
}

Panel ts_argmax(const Panel& x, const Window& window) {
  return place_of_first(x, window, -kInfinity, [](double a, double b) { return a > b; });
}

Panel ts_argmin(const Panel& x, const Window& window) {
  return place_of_first(x, window, kInfinity, [](double a, double b) { return a < b; });
}

Panel ts_ema(const Panel& x, const Window& window) {
  const auto days = static_cast<double>(window.days);
  const double fade = (days - 1.0) / (days + 1.0);
  return roll_days(
      x, window,
      [fade](double value, Eigen::Index /*day*/) {
        return std::isnan(value) ? FadingSum{fade, 0.0, 0.0} : FadingSum{fade, value, 1.0};
      },
      [](const FadingSum& a, const FadingSum& b) { return merge(a, b); },
      [](const FadingSum& sums, Eigen::Index /*day*/, const double* /*last*/) {
        return sums.sum / sums.weights;
      });
}

Panel ts_quantile(const Panel& x, double share, const Window& window) {
  require_window(window.days);
  if (!(share >= 0.0 && share <= 1.0)) {
    throw std::invalid_argument("the share " + std::to_string(share) +
                                " of a quantile; a share is a number from 0 to 1");
  }
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  std::vector<double> sorted;  // The known values of the window.
  sorted.reserve(static_cast<std::size_t>(std::min(window.days, x.rows())) + 1);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    sorted.clear();
    const double* const from = x.data() + column * x.rows();
    count_known_days(
        window, [&](Eigen::Index day) { return !std::isnan(from[day]); }, known);
    for (Eigen::Index day = 0; day < x.rows(); ++day) {
      const double today = from[day];
      if (!std::isnan(today)) {
        sorted.insert(std::upper_bound(sorted.begin(), sorted.end(), today), today);
      }
      const double gone = day >= window.days ? from[day - window.days] : kUnknown;
      if (!std::isnan(gone)) sorted.erase(std::lower_bound(sorted.begin(), sorted.end(), gone));
      if (known[static_cast<std::size_t>(day)] == 0) continue;
      result(day, column) = finite_or_nan(value_at_share(sorted, share));
    }
  }
  return result;
}

}  // namespace varnholt::embedded
