// What the fuzz targets share: the input as a text, and a claim that ends the run when it is false.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace varnholt::fuzz {

[[nodiscard]] inline std::string_view text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

inline void require(bool holds, std::string_view claim) {
  if (holds) return;
  std::cerr << "not so: " << claim << '\n';
  std::abort();
}

}  // namespace varnholt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
