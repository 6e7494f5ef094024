// The functions of panel_functions.hpp that work entry by entry.
//
// The mathematical functions are called one entry at a time: the vectorised forms of the matrix
// library round otherwise than the scalar ones that it takes for the entries left over at the end,
// and which entries those are depends on the number of days. The hyperbolic tangent, which random
// graphs draw often, is written so that the compiler can take several entries at once, each by the
// same steps.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

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

// exp(x) - 1 for x from -50 to 0. x is k ln 2 and a rest of at most half of ln 2, whose series ends
// where it is below the last digit; ln 2 is in two parts, of which k times the first is exact.
double less_one_exponential(double x) {
  constexpr double kLn2High = 0x1.62e42feep-1;
  constexpr double kLn2Low = 0x1.a39ef35793c76p-33;
  constexpr double kLog2E = 0x1.71547652b82fep0;
  // Added to a number it rounds it, and its last bits are the whole number.
  constexpr double kRounder = 0x1.8p52;
  constexpr int kExponentBias = 1023;
  constexpr int kFractionBits = 52;
  constexpr std::array kSeries = {1.0 / 6227020800.0, 1.0 / 479001600.0, 1.0 / 39916800.0,
                                  1.0 / 3628800.0,    1.0 / 362880.0,    1.0 / 40320.0,
                                  1.0 / 5040.0,       1.0 / 720.0,       1.0 / 120.0,
                                  1.0 / 24.0,         1.0 / 6.0,         1.0 / 2.0};
  const double shifted = x * kLog2E + kRounder;
  const double k = shifted - kRounder;
  const double rest = (x - k * kLn2High) - k * kLn2Low;
  double series = 0.0;
  for (const double factor : kSeries)
    series = series * rest + factor;
  const double of_rest = rest + rest * rest * series;
  const double power = std::bit_cast<double>((std::bit_cast<std::uint64_t>(shifted) + kExponentBias)
                                             << kFractionBits);
  return power * of_rest + (power - 1.0);
}

// Within three units of the last digit.
double hyperbolic_tangent(double x) {
  constexpr double kOneFrom = 22.0;  // To the last digit.
  const double size = std::abs(x) > kOneFrom ? kOneFrom : std::abs(x);
  const double less_one = less_one_exponential(-2.0 * size);
  return std::copysign(less_one / (less_one + 2.0), x);
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
  return map(x, hyperbolic_tangent);
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
