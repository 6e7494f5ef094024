// Goal: no price file crashes or leaks, and every one that is refused is refused with its place.
// Method: every text is read as a price file. Where it holds a line of bars (|), its parts are also
// read as several files, in both orders.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/embedded/market/panel_digest.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/market/price_table.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace {

using varnholt::embedded::MarketData;
using varnholt::embedded::PriceFileError;
using varnholt::embedded::PriceTable;

void read_as_two(std::string_view text) {
  constexpr std::string_view kBar = "\n|\n";
  const std::size_t bar = text.find(kBar);
  if (bar == std::string::npos) return;
  const std::string_view first = text.substr(0, bar + 1);
  const std::string_view second = text.substr(bar + kBar.size());
  // Whatever the files are called, their order does not matter.
  std::vector<std::string> digests;
  for (const bool is_turned : {false, true}) {
    std::vector<PriceTable> tables;
    try {
      tables.push_back(varnholt::embedded::read_price_table(std::string(first), "a.csv"));
      tables.push_back(varnholt::embedded::read_price_table(std::string(second), "b.csv"));
      if (is_turned) std::swap(tables[0], tables[1]);
      const MarketData prices = varnholt::embedded::merged_tables(std::move(tables));
      digests.push_back(varnholt::embedded::panel_digest(prices, prices.day_count()));
    } catch (const PriceFileError&) {
      digests.emplace_back("refused");
    }
  }
  varnholt::fuzz::require(digests[0] == digests[1], "the order of files does not matter");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using varnholt::fuzz::require;
  read_as_two(varnholt::fuzz::text_of(data, size));
  try {
    const auto prices = varnholt::embedded::test::read_price_text(
        varnholt::fuzz::text_of(data, size), "prices.csv");
    require(prices.day_count() > 0 && prices.instrument_count() > 0, "a price file holds prices");
    require(static_cast<std::int64_t>(prices.dates.size()) == prices.day_count(),
            "every day has a date");
  } catch (const varnholt::embedded::PriceFileError& error) {
    const std::string text = error.what();
    require(text.starts_with("prices.csv: ") && text.find(';') != std::string::npos,
            "an error names the file and the remedy");
  }
  return 0;
}
