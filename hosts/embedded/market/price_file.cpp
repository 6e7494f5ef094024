#include "hosts/embedded/market/price_file.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "hosts/embedded/market/long_prices.hpp"
#include "hosts/embedded/market/price_rows.hpp"
#include "hosts/embedded/market/price_table.hpp"
#include "hosts/embedded/market/wide_prices.hpp"
#include "hosts/embedded/system/digest.hpp"
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

std::string read_bytes(const std::filesystem::path& path, const InterruptCheck& check) {
  FileBytes file = read_file(path, kLargestPriceBytes, kWaitForWriter, check);
  if (file.trouble == ReadTrouble::None) return std::move(file.bytes);
  throw UnreadablePrices(path, file.trouble_text(),
                         "check the path, and that you may read the file");
}

// An instrument may have its name from its file, which is therefore part of what the prices are.
std::string digest_of(std::vector<std::string> files) {
  std::sort(files.begin(), files.end());
  std::string text;
  for (const std::string& file : files)
    text.append(file).append("\n");
  return sha256_hex(text);
}

}  // namespace

OtherPrices::OtherPrices(std::string digest)
    : std::runtime_error("other prices than expected; their digest is " + digest),
      digest_(std::move(digest)) {}

PriceTable read_price_table(std::string bytes, const std::string& name, const PriceFormat& format,
                            const InterruptCheck& check) {
  PlainText plain(std::move(bytes), name, check);
  PriceRows rows(plain.text(), name, format, check);
  rows.tell_passed([&plain](std::size_t passed) { plain.give_back(passed); });
  if (!rows.fields().empty()) return read_wide_prices(rows);
  const bool is_long = rows.find("symbol") != PriceRows::kNoColumn || is_of_one_instrument(rows);
  return is_long ? read_long_prices(rows) : read_wide_prices(rows);
}

PricesRead read_prices(const PriceSource& source, const PriceFormat& format,
                       const InterruptCheck& check, const std::string& expected_digest) {
  std::vector<PriceTable> tables;
  std::vector<std::string> digests;
  std::vector<PriceFileError> refused;
  const std::vector<std::filesystem::path> files = price_files(source);
  for (const std::filesystem::path& path : files) {
    try {
      std::string bytes = read_bytes(path, check);
      digests.push_back(sha256_hex(bytes));
      if (files.size() > 1) digests.back() += " " + path.filename().string();
      tables.push_back(read_price_table(std::move(bytes), path.string(), format, check));
    } catch (const UnreadablePrices& error) {
      // Without its bytes there is no digest to compare.
      if (files.size() == 1 || !expected_digest.empty()) throw;
      refused.push_back(error);
    } catch (const PriceFileError& error) {
      refused.push_back(error);
    }
  }
  PricesRead read;
  read.digest = digests.size() == 1 ? digests.front() : digest_of(std::move(digests));
  if (!expected_digest.empty() && read.digest != expected_digest) throw OtherPrices(read.digest);
  MistakeList mistakes;
  for (const PriceFileError& error : refused)
    mistakes.add(error);
  mistakes.throw_if_any();
  read.data = merged_tables(std::move(tables));
  return read;
}

MarketData read_price_file(const PriceSource& source, const PriceFormat& format,
                           const InterruptCheck& check) {
  return read_prices(source, format, check).data;
}

}  // namespace varnholt::embedded
