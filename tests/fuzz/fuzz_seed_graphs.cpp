// Goal: no seeds file crashes or leaks, and every one that is refused is refused with its place.
// Method: every text is read as a seeds file of the whole vocabulary.
#include <string>

#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/seed_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "tests/fuzz/fuzz_input.hpp"
#include "tests/hosts/embedded/price_text.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using varnholt::fuzz::require;
  static const varnholt::embedded::Vocabulary vocabulary =
      varnholt::embedded::make_vocabulary(varnholt::embedded::test::read_price_text(
          "date,symbol,open,high,low,close,volume\n2020-01-02,AAA,1,2,1,2,5\n", "prices.csv"));
  try {
    const auto graphs = varnholt::embedded::parse_seed_graphs(varnholt::fuzz::text_of(data, size),
                                                              "seeds.json", vocabulary, {});
    require(graphs.is_native(), "the graphs are a list of our own");
  } catch (const varnholt::embedded::SeedFileError& error) {
    require(std::string(error.what()).starts_with("seeds.json"), "an error names the file");
  }
  return 0;
}
