#include "hosts/embedded/market/price_file.hpp"

#include <algorithm>
#include <utility>

#include "hosts/embedded/market/long_prices.hpp"
#include "hosts/embedded/market/price_rows.hpp"
#include "hosts/embedded/market/wide_prices.hpp"
#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {

namespace {

// "open" and "low" are tickers of listed companies too; where nothing stands beside them, they are
// columns of one instrument whose close is missing.
bool is_of_one_instrument(const PriceRows& rows) {
  if (rows.find("close") != PriceRows::kNoColumn) return true;
  if (rows.find("adj_close") != PriceRows::kNoColumn) return true;
  constexpr std::size_t kFewest = 3;  // The day and two of them.
  return rows.header().size() >= kFewest &&
         std::none_of(rows.header().begin(), rows.header().end(), [](const std::string& name) {
           return usual_field(column_key(name)).empty();
         });
}

}  // namespace

MarketData read_price_text(std::string_view bytes, const std::string& name,
                           const PriceFormat& format, const InterruptCheck& check) {
  const PlainText plain(bytes, name, check);
  PriceRows rows(plain.text(), name, format, check);
  if (!rows.fields().empty()) return read_wide_prices(rows);
  const bool is_long = rows.find("symbol") != PriceRows::kNoColumn || is_of_one_instrument(rows);
  return is_long ? read_long_prices(rows, plain.text()) : read_wide_prices(rows);
}

MarketData read_price_file(const std::filesystem::path& path, const PriceFormat& format,
                           const InterruptCheck& check) {
  return read_price_text(read_price_bytes(path, check), path.string(), format, check);
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
