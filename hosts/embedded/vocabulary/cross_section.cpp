// The functions of panel_functions.hpp that work across the instruments of a day.
#include <cmath>
#include <vector>

#include "hosts/embedded/vocabulary/day_values.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {
namespace {

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
  Ranking ranking;
  return each_day(x, [&ranking](DayValues& values) { ranking(values); });
}

Panel cross_winsorize(const Panel& x, double spreads) {
  return each_day(x, [spreads](DayValues& values) { winsorize_values(values, spreads); });
}

Panel cross_zscore(const Panel& x) {
  return each_day(x, zscore_values);
}

Panel cross_demean(const Panel& x) {
  return each_day(x, demean_values);
}

Panel cross_scale(const Panel& x) {
  return each_day(x, scale);
}

}  // namespace varnholt::embedded
