// Ranks of the known values of a day.
#pragma once

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// The rank of each entry among the known values of its day, as cross_rank has it, or, where there
// are groups, among those of its group. `groups` has the shape of the panel.
[[nodiscard]] Panel day_ranks(const Panel& x, const GroupPanel* groups);

}  // namespace varnholt::embedded
