// Goal: no configuration crashes or leaks, and every one that is refused is refused with its place.
// Method: every text is read as a configuration; one that is taken holds values within range.
#include <string>

#include "hosts/embedded/config/host_config.hpp"
#include "tests/fuzz/fuzz_input.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using varnholt::fuzz::require;
  try {
    const auto config =
        varnholt::embedded::parse_host_config(varnholt::fuzz::text_of(data, size), "host.toml");
    require(config.eras.holdout >= 0.0 && config.eras.holdout < 1.0, "the hold-out is a share");
    require(config.market_id >= 1, "the market's number is positive");
    require(!config.pool.name.empty(), "the pool has a name");
  } catch (const varnholt::embedded::HostConfigError& error) {
    const std::string text = error.what();
    require(text.starts_with("host.toml: ") && text.find(';') != std::string::npos,
            "an error names the file and the remedy");
  }
  return 0;
}
