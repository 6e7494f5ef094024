#include "hosts/embedded/market/price_file.hpp"

#include <utility>

#include "hosts/embedded/market/long_prices.hpp"
#include "hosts/embedded/market/price_rows.hpp"
#include "hosts/embedded/market/wide_prices.hpp"
#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {

MarketData read_price_text(std::string_view text, const std::string& name,
                           const InterruptCheck& check) {
  PriceRows rows(text, name, check);
  const bool is_long = rows.find("symbol") != PriceRows::kNoColumn;
  return is_long ? read_long_prices(rows, text) : read_wide_prices(rows);
}

MarketData read_price_file(const std::filesystem::path& path, const InterruptCheck& check) {
  return read_price_text(read_price_bytes(path, check), path.string(), check);
}

std::string read_price_bytes(const std::filesystem::path& path, const InterruptCheck& check) {
  FileBytes file = read_file(path, kLargestPriceBytes, kWaitForWriter, check);
  if (file.trouble == ReadTrouble::None) return std::move(file.bytes);
  const char* const remedy = file.trouble == ReadTrouble::IsFolder
                                 ? "name a CSV file of daily prices"
                                 : "check the path, and that you may read the file";
  throw PriceFileError({.file = path.string()}, file.trouble_text(), remedy);
}

}  // namespace varnholt::embedded
