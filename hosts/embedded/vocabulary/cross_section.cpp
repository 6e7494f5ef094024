// The functions of panel_functions.hpp that work across the instruments of a day.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {
namespace {

// The known values of one day, in the order of the columns. A function replaces them in place.
using DayValues = std::vector<double>;

template <typename Function>
Panel each_day(const Panel& x, Function function) {
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  DayValues values;
  std::vector<Eigen::Index> columns;
  for (Eigen::Index day = 0; day < x.rows(); ++day) {
    values.clear();
    columns.clear();
    for (Eigen::Index column = 0; column < x.cols(); ++column) {
      if (std::isnan(x(day, column))) continue;
      values.push_back(x(day, column));
      columns.push_back(column);
    }
    if (values.empty()) continue;
    function(values);
    for (std::size_t i = 0; i < values.size(); ++i) {
      result(day, columns[i]) = finite_or_nan(values[i]);
    }
  }
  return result;
}

double mean(const DayValues& values) {
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

void demean(DayValues& values) {
  const double centre = mean(values);
  for (double& value : values)
    value -= centre;
}

void zscore(DayValues& values) {
  double squares = 0.0;
  for (const double value : values)
    squares += value * value;
  demean(values);
  double deviations = 0.0;
  for (const double value : values)
    deviations += value * value;
  const bool is_constant = values.size() < 2 || deviations <= kConstantTolerance * squares;
  const double spread =
      is_constant ? kUnknown : std::sqrt(deviations / static_cast<double>(values.size() - 1));
  for (double& value : values)
    value /= spread;
}

void scale(DayValues& values) {
  double gross = 0.0;
  for (const double value : values)
    gross += std::abs(value);
  if (gross == 0.0) return;
  // An overflow of the sum would turn the whole day into zeros that look like values.
  const double divisor = finite_or_nan(gross);
  for (double& value : values)
    value /= divisor;
}

}  // namespace

Panel cross_rank(const Panel& x) {
  std::vector<std::size_t> order;
  DayValues ranks;
  return each_day(x, [&](DayValues& values) {
    const std::size_t count = values.size();
    order.resize(count);
    ranks.assign(count, 0.5);
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&values](std::size_t a, std::size_t b) { return values[a] < values[b]; });
    for (std::size_t first = 0; count > 1 && first < count;) {
      std::size_t last = first;
      while (last + 1 < count && values[order[last + 1]] == values[order[first]])
        ++last;
      const double place = static_cast<double>(first + last) / 2.0;
      for (std::size_t i = first; i <= last; ++i) {
        ranks[order[i]] = place / static_cast<double>(count - 1);
      }
      first = last + 1;
    }
    values = ranks;
  });
}

Panel cross_zscore(const Panel& x) {
  return each_day(x, zscore);
}

Panel cross_demean(const Panel& x) {
  return each_day(x, demean);
}

Panel cross_scale(const Panel& x) {
  return each_day(x, scale);
}

}  // namespace varnholt::embedded
