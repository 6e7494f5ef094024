// The prices in a text, without a file.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/market/price_table.hpp"

namespace varnholt::embedded::test {

[[nodiscard]] inline MarketData read_price_text(std::string_view bytes, const std::string& name,
                                                const PriceFormat& format = {},
                                                const InterruptCheck& check = {}) {
  std::vector<PriceTable> tables;
  tables.push_back(read_price_table(std::string(bytes), name, format, check));
  return merged_tables(std::move(tables));
}

}  // namespace varnholt::embedded::test
