// Panels for the tests of the embedded host: written out, drawn at random, and compared.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded::test {

inline constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// A panel written row by row, one row a day.
inline Panel panel(std::initializer_list<std::initializer_list<double>> rows) {
  const auto columns = rows.size() == 0 ? 0 : rows.begin()->size();
  Panel result(static_cast<Eigen::Index>(rows.size()), static_cast<Eigen::Index>(columns));
  Eigen::Index day = 0;
  for (const auto& row : rows) {
    Eigen::Index column = 0;
    for (const double value : row)
      result(day, column++) = value;
    ++day;
  }
  return result;
}

// The history of one instrument.
inline Panel series(std::initializer_list<double> values) {
  Panel result(static_cast<Eigen::Index>(values.size()), 1);
  Eigen::Index day = 0;
  for (const double value : values)
    result(day++, 0) = value;
  return result;
}

// Equal shapes, NaN in the same places, and elsewhere within `tolerance` of the larger of one and
// the expected value.
inline testing::AssertionResult panels_are_near(const Panel& actual, const Panel& expected,
                                                double tolerance) {
  if (actual.rows() != expected.rows() || actual.cols() != expected.cols()) {
    return testing::AssertionFailure() << "shapes " << actual.rows() << " x " << actual.cols()
                                       << " and " << expected.rows() << " x " << expected.cols();
  }
  for (Eigen::Index column = 0; column < actual.cols(); ++column) {
    for (Eigen::Index day = 0; day < actual.rows(); ++day) {
      const double a = actual(day, column);
      const double e = expected(day, column);
      const bool same =
          std::isnan(e) ? std::isnan(a) : std::abs(a - e) <= tolerance * std::max(1.0, std::abs(e));
      if (!same) {
        return testing::AssertionFailure() << "day " << day << ", column " << column << ": " << a
                                           << " where " << e << " is expected";
      }
    }
  }
  return testing::AssertionSuccess();
}

// The same bits, but for the payload of NaNs.
inline bool same_bits(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Whether the first rows of `whole` are, bit for bit, the panel that was made of less history.
inline testing::AssertionResult begins_with(const Panel& whole, const Panel& head) {
  if (whole.rows() < head.rows() || whole.cols() != head.cols()) {
    return testing::AssertionFailure() << "the shapes do not fit";
  }
  for (Eigen::Index column = 0; column < head.cols(); ++column) {
    for (Eigen::Index day = 0; day < head.rows(); ++day) {
      if (!same_bits(whole(day, column), head(day, column))) {
        return testing::AssertionFailure()
               << "day " << day << ", column " << column << ": " << head(day, column)
               << " with the history up to day " << head.rows() - 1 << ", but "
               << whole(day, column) << " with the whole of it";
      }
    }
  }
  return testing::AssertionSuccess();
}

// Random numbers of changing size, with ties and with the given share of NaN.
inline Panel random_panel(std::mt19937_64& engine, Eigen::Index days, Eigen::Index columns,
                          double nan_share) {
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  Panel result(days, columns);
  for (Eigen::Index column = 0; column < columns; ++column) {
    const double size = std::pow(10.0, std::floor(uniform(engine) * 7.0) - 3.0);
    const bool has_ties = uniform(engine) < 0.3;
    for (Eigen::Index day = 0; day < days; ++day) {
      const double value = uniform(engine) * 2.0 - 1.0;
      result(day, column) = size * (has_ties ? std::round(value * 3.0) : value);
      if (uniform(engine) < nan_share) result(day, column) = kNan;
    }
  }
  return result;
}

}  // namespace varnholt::embedded::test
