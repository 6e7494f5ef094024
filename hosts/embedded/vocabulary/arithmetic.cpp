// The functions of panel_functions.hpp that work entry by entry.
//
// The mathematical functions are called one entry at a time: the vectorised forms of the matrix
// library round otherwise than the scalar ones that it takes for the entries left over at the end,
// and which entries those are depends on the number of days.
#include <cmath>

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
  return map_known(x, y, [](double a, double b) { return a > b ? 1.0 : 0.0; });
}

Panel comparison_lt(const Panel& x, const Panel& y) {
  return map_known(x, y, [](double a, double b) { return a < b ? 1.0 : 0.0; });
}

}  // namespace varnholt::embedded
