// What the readers of long and of wide price files have in common.
#pragma once

#include <cstddef>
#include <string>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/market/price_rows.hpp"

namespace varnholt::embedded {

// The most days times instruments that a price file may span.
inline constexpr std::size_t kMaximumPriceCells = 100'000'000;

// Throws PriceFileError where panels of this size would not fit. It is asked after each row, so
// that a file that mistakes one column for another is refused before it fills the memory.
void check_panel_size(const std::string& file, std::size_t days, std::size_t instruments);

// A panel that knows nothing yet.
[[nodiscard]] Panel empty_panel(std::size_t days, std::size_t instruments);

// The error for a header that lacks a column.
[[nodiscard]] PriceFileError missing_column(const PriceRows& rows, const std::string& name);

}  // namespace varnholt::embedded
