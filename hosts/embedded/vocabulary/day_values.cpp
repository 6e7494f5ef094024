#include "hosts/embedded/vocabulary/day_values.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {
namespace {

double mean(const DayValues& values) {
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

}  // namespace

void demean_values(DayValues& values) {
  const double centre = mean(values);
  for (double& value : values)
    value -= centre;
}

void zscore_values(DayValues& values) {
  double squares = 0.0;
  for (const double value : values)
    squares += value * value;
  demean_values(values);
  double deviations = 0.0;
  for (const double value : values)
    deviations += value * value;
  const bool is_constant = values.size() < 2 || deviations <= kConstantTolerance * squares;
  const double spread =
      is_constant ? kUnknown : std::sqrt(deviations / static_cast<double>(values.size() - 1));
  for (double& value : values)
    value /= spread;
}

void winsorize_values(DayValues& values, double spreads) {
  if (values.size() < 2) return;
  const double centre = mean(values);
  double deviations = 0.0;
  for (const double value : values)
    deviations += (value - centre) * (value - centre);
  const double reach = spreads * std::sqrt(deviations / static_cast<double>(values.size() - 1));
  for (double& value : values)
    value = std::clamp(value, centre - reach, centre + reach);
}

void Ranking::operator()(DayValues& values) {
  const std::size_t count = values.size();
  order_.resize(count);
  ranks_.assign(count, 0.5);
  std::iota(order_.begin(), order_.end(), std::size_t{0});
  std::sort(order_.begin(), order_.end(),
            [&values](std::size_t a, std::size_t b) { return values[a] < values[b]; });
  for (std::size_t first = 0; count > 1 && first < count;) {
    std::size_t last = first;
    while (last + 1 < count && are_alike(values[order_[last + 1]], values[order_[last]]))
      ++last;
    const double place = static_cast<double>(first + last) / 2.0;
    for (std::size_t i = first; i <= last; ++i) {
      ranks_[order_[i]] = place / static_cast<double>(count - 1);
    }
    first = last + 1;
  }
  values = ranks_;
}

}  // namespace varnholt::embedded
