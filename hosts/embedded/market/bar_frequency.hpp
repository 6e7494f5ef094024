// How often prices come, as their dates tell it.
#pragma once

#include <vector>

#include "hosts/embedded/market/calendar_date.hpp"

namespace varnholt::embedded {

// The periods of a year, by which the figures of one become annual ones. What the dates (ascending)
// have a year is taken for the nearest of 252 (days of an exchange), 365 (every day), 52 (weeks),
// 12 (months) and 4 (quarters) where it is within a tenth of it, and as it is, to the nearest whole
// number of at least 1, otherwise. 252 for a single day.
[[nodiscard]] double periods_per_year(const std::vector<Date>& dates);

}  // namespace varnholt::embedded
