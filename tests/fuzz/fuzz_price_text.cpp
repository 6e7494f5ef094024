// Goal: no price file crashes or leaks, and every one that is refused is refused with its place.
// Method: every text is read as a price file.
#include <string>

#include "hosts/embedded/market/price_file.hpp"
#include "tests/fuzz/fuzz_input.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using varnholt::fuzz::require;
  try {
    const auto prices =
        varnholt::embedded::read_price_text(varnholt::fuzz::text_of(data, size), "prices.csv");
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
