#include "hosts/embedded/market/bar_frequency.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace varnholt::embedded {
namespace {

constexpr double kDaysOfAYear = 365.25;
constexpr double kExchangeDays = 252.0;
constexpr auto kUsual = std::to_array({kExchangeDays, 365.0, 52.0, 12.0, 4.0});
constexpr double kTolerance = 0.1;

}  // namespace

double periods_per_year(const std::vector<Date>& dates) {
  if (dates.size() < 2) return kExchangeDays;
  const auto days = static_cast<double>((dates.back() - dates.front()).count());
  const double found = static_cast<double>(dates.size() - 1) / days * kDaysOfAYear;
  for (const double usual : kUsual) {
    if (std::abs(found - usual) <= kTolerance * usual) return usual;
  }
  return std::max(std::round(found), 1.0);
}

}  // namespace varnholt::embedded
