// What one price file holds, and how several are put together.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// As a panel: the line of the file in which an instrument's day stands, or 0 where it has none.
using LinePanel = Eigen::Array<std::uint32_t, Eigen::Dynamic, Eigen::Dynamic>;

struct PriceTable {
  std::string file;
  MarketData data = {};
  // By group, the names of its numbers.
  std::map<std::string, std::vector<std::string>, std::less<>> group_names = {};
  LinePanel lines = {};
};

// The prices of all tables, of which there is at least one: every day and instrument of any of
// them, and every panel that any of them has. The order of the tables does not matter, but that
// mistakes are told in it. Throws PriceFileError where two of them have the same day of an
// instrument, and names both places.
[[nodiscard]] MarketData merged_tables(std::vector<PriceTable> tables);

}  // namespace varnholt::embedded
