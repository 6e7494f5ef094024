// How many days of each window are known.
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {

// For each day the known days of its window, or 0 where the day has no result by the rule of
// panel_functions.hpp. `known(day)` tells whether a day has a value.
template <typename Known>
void count_known_days(const Window& window, Known known, std::vector<std::int32_t>& counts) {
  const auto days = static_cast<Eigen::Index>(counts.size());
  Eigen::Index first_known = days;
  std::int32_t in_window = 0;
  for (Eigen::Index day = 0; day < days; ++day) {
    const bool today = known(day);
    if (today && first_known == days) first_known = day;
    in_window += today ? 1 : 0;
    if (day >= window.days && known(day - window.days)) --in_window;
    const bool has_result =
        today && day - first_known + 1 >= window.days && in_window >= window.least_known;
    counts[static_cast<std::size_t>(day)] = has_result ? in_window : 0;
  }
}

}  // namespace varnholt::embedded
