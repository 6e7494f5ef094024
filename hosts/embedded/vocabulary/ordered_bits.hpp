// Numbers as whole numbers in the same order, which a radix sort takes apart.
#pragma once

#include <bit>
#include <cstdint>

namespace varnholt::embedded {

// Of two numbers the greater has the greater bits: those of a negative one are turned, and the
// others come after it. The two zeros, which are equal, stand side by side, the negative one first.
[[nodiscard]] inline std::uint64_t ordered_bits(double value) {
  constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  return (bits & kSign) != 0 ? ~bits : bits | kSign;
}

}  // namespace varnholt::embedded
