// How fast a price file is read, and in how much memory: compare_with_pandas.py runs it beside
// pandas.
//
//   bench_price_reader FILE...
//
// Writes one JSON object: the seconds of the reading, the bytes of the panels that stay, and the
// most memory that the process had at once, before the reading and in all.
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>

#include <sys/resource.h>

#include "hosts/embedded/market/price_file.hpp"

namespace varnholt::embedded {
namespace {

std::size_t most_memory_bytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

std::size_t panel_bytes(const MarketData& data) {
  const auto bytes_of = [](const auto& panel) {
    return static_cast<std::size_t>(panel.size()) * sizeof(*panel.data());
  };
  std::size_t bytes = bytes_of(data.close);
  for (const NamedPanel& named : kOptionalPanels) {
    if (const auto& panel = data.*named.panel) bytes += bytes_of(*panel);
  }
  for (const auto& [name, panel] : data.features)
    bytes += bytes_of(panel);
  for (const auto& [name, panel] : data.groups)
    bytes += bytes_of(panel);
  return bytes;
}

void measure(const PriceSource& source) {
  const std::size_t before = most_memory_bytes();
  const auto start = std::chrono::steady_clock::now();
  const MarketData data = read_price_file(source);
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  std::printf(
      "{\"seconds\": %.3f, \"instruments\": %td, \"days\": %td, \"panel_bytes\": %zu, "
      "\"bytes_before\": %zu, \"most_bytes\": %zu}\n",
      passed.count(), data.instrument_count(), data.day_count(), panel_bytes(data), before,
      most_memory_bytes());
}

}  // namespace
}  // namespace varnholt::embedded

int main(int argc, char** argv) {
  try {
    varnholt::embedded::PriceSource source;
    for (int i = 1; i < argc; ++i)
      source.add(argv[i]);
    varnholt::embedded::measure(source);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_price_reader: %s\n", error.what());
    return 2;
  }
}
