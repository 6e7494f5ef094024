// Functions across the instruments of one group, day by day. The rules of panel_functions.hpp hold
// for them too.
//
// n is the number of instruments of the group whose value is known that day. The others stay NaN,
// and so does an instrument that belongs to no group that day.
#pragma once

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// x less the mean of its group.
[[nodiscard]] Panel group_demean(const Panel& x, const GroupPanel& groups);

// cross_rank and cross_zscore among the group.
[[nodiscard]] Panel group_rank(const Panel& x, const GroupPanel& groups);
[[nodiscard]] Panel group_zscore(const Panel& x, const GroupPanel& groups);

}  // namespace varnholt::embedded
