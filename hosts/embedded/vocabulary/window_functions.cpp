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
#include "hosts/embedded/vocabulary/rolled.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// The place, from 1 on, of the oldest day of a window that is alike to the greatest in it.
double oldest_alike(const double* last, Eigen::Index days, double sign) {
  const double* const first = last - days + 1;
  double greatest = -kInfinity;
  for (const double* value = first; value <= last; ++value)
    greatest = sign * *value > greatest ? sign * *value : greatest;
  const double* const found =
      std::find_if(first, last, [&](double value) { return are_alike(sign * value, greatest); });
  return static_cast<double>(found - first + 1);
}

Panel place_of_greatest(const Panel& x, const Window& window, double sign) {
  Panel places =
      rolled(sign < 0.0 ? RollingFunction::FirstLeast : RollingFunction::FirstGreatest, x, window);
  for (Eigen::Index i = 0; i < places.size(); ++i) {
    double& place = places.data()[i];
    if (place == kUnsurePlace) place = oldest_alike(x.data() + i, window.days, sign);
  }
  return places;
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
  Panel result(x.rows(), x.cols());
  const Eigen::Index unknown = std::min<Eigen::Index>(window.days, x.rows());
  result.topRows(unknown).setConstant(kUnknown);
  result.bottomRows(x.rows() - unknown) = x.topRows(x.rows() - unknown);
  return result;
}

Panel ts_product(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Product, x, window);
}

Panel ts_argmax(const Panel& x, const Window& window) {
  return place_of_greatest(x, window, 1.0);
}

Panel ts_argmin(const Panel& x, const Window& window) {
  return place_of_greatest(x, window, -1.0);
}

Panel ts_ema(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Fade, x, window);
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
