// Price files with one row a day and instrument.
#pragma once

#include <string_view>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/market/price_rows.hpp"

namespace varnholt::embedded {

// The prices in `rows`, of which none has been read yet, and which are those of `text`. Throws
// PriceFileError.
[[nodiscard]] MarketData read_long_prices(PriceRows& rows, std::string_view text);

}  // namespace varnholt::embedded
