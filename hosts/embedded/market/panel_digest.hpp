// A digest of prices as they are computed with, whatever the file looked like that they came from.
#pragma once

#include <string>

#include <Eigen/Core>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// The SHA-256, in hexadecimal, of the first `days` days: dates, symbols and every price. Two
// histories have the same one exactly when first_days(days) of both are equal. The order of a
// file's rows, its form and its later days do not count. std::out_of_range for days that are not
// there.
[[nodiscard]] std::string panel_digest(const MarketData& data, Eigen::Index days);

}  // namespace varnholt::embedded
