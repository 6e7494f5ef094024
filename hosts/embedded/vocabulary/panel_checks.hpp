// What the panel functions share: the unknown value, and the checks of their arguments.
#pragma once

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

inline constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

inline double finite_or_nan(double value) {
  return std::isfinite(value) ? value : kUnknown;
}

inline void require_same_shape(const Panel& x, const Panel& y) {
  if (x.rows() == y.rows() && x.cols() == y.cols()) return;
  const auto shape = [](const Panel& panel) {
    return std::to_string(panel.rows()) + " x " + std::to_string(panel.cols());
  };
  throw std::invalid_argument("panels of two shapes, " + shape(x) + " and " + shape(y) +
                              "; take both from the same market data");
}

inline void require_window(Eigen::Index window) {
  if (window >= 1) return;
  throw std::invalid_argument("a window of " + std::to_string(window) +
                              " days; a window is 1 day or longer");
}

}  // namespace varnholt::embedded
