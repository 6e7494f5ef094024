// Price files with one row a day and instrument, or of one instrument alone.
#pragma once

#include "hosts/embedded/market/price_rows.hpp"
#include "hosts/embedded/market/price_table.hpp"

namespace varnholt::embedded {

// The prices in `rows`, of which none has been read yet. Throws PriceFileError.
[[nodiscard]] PriceTable read_long_prices(PriceRows& rows);

}  // namespace varnholt::embedded
