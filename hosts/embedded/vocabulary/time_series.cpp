// The functions of panel_functions.hpp that work over the history of one instrument.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "hosts/embedded/vocabulary/known_days.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolled.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {
namespace {

// A share of days that is as near to a whole number is meant to be it: 0.55 of 20 is 11.
constexpr double kShareTolerance = 1e-9;

}  // namespace

Window::Window(Eigen::Index all_days, double least_known_share)
    : days(all_days),
      least_known(std::max<Eigen::Index>(
          1, static_cast<Eigen::Index>(std::ceil(least_known_share * static_cast<double>(all_days) -
                                                 kShareTolerance)))) {}

Panel ts_sum(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Sum, x, window);
}

Panel ts_mean(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Mean, x, window);
}

Panel ts_min(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Least, x, window);
}

Panel ts_max(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Greatest, x, window);
}

Panel ts_std(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Deviation, x, window);
}

Panel ts_zscore(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Score, x, window);
}

Panel ts_rank(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  if (window.days > x.rows()) return result;
  // Today is compared with every day of its window: that is window comparisons a day, but without
  // branches and for some days at once, which is faster than keeping the window sorted for any
  // window in use. Before the history and behind it stands what is not known.
  const auto before = static_cast<std::size_t>(window.days - 1);
  const auto days = static_cast<std::size_t>(x.rows());
  std::vector<double> history(before + days + kLanes, kUnknown);
  std::vector<std::int32_t> known(days);
  const auto count_lesser = vector_kernels().count_lesser;
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    double* const to = result.data() + column * x.rows();
    std::copy(from, from + days, history.begin() + window.days - 1);
    count_known_days(
        window, [&](Eigen::Index day) { return !std::isnan(from[day]); }, known);
    for (std::size_t day = 0; day < days; day += kLanes) {
      std::array<double, kLanes> places{};
      count_lesser(history.data() + before + day, before, places.data());
      for (std::size_t i = day; i < std::min(day + kLanes, days); ++i) {
        if (known[i] == 0) continue;
        to[i] = known[i] == 1 ? 0.5 : places.at(i - day) / static_cast<double>(known[i] - 1);
      }
    }
  }
  return result;
}

Panel ts_delta(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result(x.rows(), x.cols());
  const Eigen::Index first = std::min<Eigen::Index>(window.days, x.rows());
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.col(column).data();
    double* const to = result.col(column).data();
    std::fill_n(to, first, kUnknown);
    for (Eigen::Index day = first; day < x.rows(); ++day)
      to[day] = finite_or_nan(from[day] - from[day - first]);
  }
  return result;
}

Panel ts_decay(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Decay, x, window);
}

Panel ts_covariance(const Panel& x, const Panel& y, const Window& window) {
  return rolled(RollingFunction::Covariance, x, y, window);
}

Panel ts_correlation(const Panel& x, const Panel& y, const Window& window) {
  return rolled(RollingFunction::Correlation, x, y, window);
}

}  // namespace varnholt::embedded
