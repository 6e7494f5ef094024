// The functions of panel_functions.hpp that work entry by entry.
//
// The mathematical functions are called one entry at a time: the vectorised forms of the matrix
// library round otherwise than the scalar ones that it takes for the entries left over at the end,
// and which entries those are depends on the number of days.
#include <algorithm>
#include <cmath>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {
namespace {

template <typename Function>
Panel map(const Panel& x, Function function) {
  Panel result(x.rows(), x.cols());
  const double* const from = x.data();
  double* const to = result.data();
  for (Eigen::Index i = 0; i < x.size(); ++i)
    to[i] = finite_or_nan(function(from[i]));
  return result;
}

template <typename Function>
Panel map(const Panel& x, const Panel& y, Function function) {
  require_same_shape(x, y);
  Panel result(x.rows(), x.cols());
  const double* const left = x.data();
  const double* const right = y.data();
  double* const to = result.data();
  for (Eigen::Index i = 0; i < x.size(); ++i)
    to[i] = finite_or_nan(function(left[i], right[i]));
  return result;
}

template <typename Function>
Panel map(const Panel& x, const Panel& y, const Panel& z, Function function) {
  require_same_shape(x, y);
  require_same_shape(x, z);
  Panel result(x.rows(), x.cols());
  for (Eigen::Index i = 0; i < x.size(); ++i)
    result.data()[i] = finite_or_nan(function(x.data()[i], y.data()[i], z.data()[i]));
  return result;
}

// For functions that would otherwise answer although an argument is not known.
template <typename Function>
Panel map_known(const Panel& x, const Panel& y, Function function) {
  return map(x, y, [function](double a, double b) {
    return std::isnan(a) || std::isnan(b) ? kUnknown : function(a, b);
  });
}

double sign(double x) {
  if (std::isnan(x)) return kUnknown;
  return static_cast<double>(x > 0.0) - static_cast<double>(x < 0.0);
}

}  // namespace

Panel arith_add(const Panel& x, const Panel& y) {
  return map(x, y, [](double a, double b) { return a + b; });
}

Panel arith_sub(const Panel& x, const Panel& y) {
  return map(x, y, [](double a, double b) { return a - b; });
}

Panel arith_mul(const Panel& x, const Panel& y) {
  return map(x, y, [](double a, double b) { return a * b; });
}

Panel arith_div(const Panel& x, const Panel& y) {
  return map(x, y, [](double a, double b) { return std::abs(b) < kNearZero ? kUnknown : a / b; });
}

Panel arith_min(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return b < a ? b : a; });
}

Panel arith_max(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return b > a ? b : a; });
}

Panel arith_neg(const Panel& x) {
  return map(x, [](double a) { return -a; });
}

Panel arith_abs(const Panel& x) {
  return map(x, [](double a) { return std::abs(a); });
}

Panel arith_sign(const Panel& x) {
  return map(x, sign);
}

Panel arith_log(const Panel& x) {
  return map(x, [](double a) { return std::copysign(std::log1p(std::abs(a)), a); });
}

Panel arith_tanh(const Panel& x) {
  return map(x, [](double a) { return std::tanh(a); });
}

Panel comparison_gt(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return is_clearly_greater(a, b) ? 1.0 : 0.0; });
}

Panel comparison_lt(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return is_clearly_greater(b, a) ? 1.0 : 0.0; });
}

Panel comparison_ge(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return is_clearly_greater(b, a) ? 0.0 : 1.0; });
}

Panel comparison_le(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return is_clearly_greater(a, b) ? 0.0 : 1.0; });
}

Panel comparison_eq(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return are_alike(a, b) ? 1.0 : 0.0; });
}

Panel comparison_ne(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return are_alike(a, b) ? 0.0 : 1.0; });
}

Panel logic_and(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return a != 0.0 && b != 0.0 ? 1.0 : 0.0; });
}

Panel logic_or(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return a != 0.0 || b != 0.0 ? 1.0 : 0.0; });
}

Panel logic_not(const Panel& x) {
  return map(x, [](double a) { return std::isnan(a) ? kUnknown : (a == 0.0 ? 1.0 : 0.0); });
}

Panel arith_power(const Panel& x, const Panel& y) {
  // The power 0 of what is not known would be 1.
  return map_known(x, y, [](double a, double b) { return std::pow(a, b); });
}

Panel arith_signed_power(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return sign(a) * std::pow(std::abs(a), b); });
}

Panel arith_ln(const Panel& x) {
  return map(x, [](double a) { return std::log(a); });
}

Panel arith_if(const Panel& x, const Panel& y, const Panel& z) {
  return map(x, y, z, [](double a, double b, double c) {
    if (std::isnan(a)) return kUnknown;
    return a != 0.0 ? b : c;
  });
}

Panel arith_clip(const Panel& x, const Panel& y, const Panel& z) {
  return map(x, y, z, [](double a, double low, double high) {
    if (std::isnan(a) || !(low <= high)) return kUnknown;
    return std::clamp(a, low, high);
  });
}

}  // namespace varnholt::embedded
