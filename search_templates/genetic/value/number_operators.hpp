// The operators of numbers, by name: what a host's object is asked to calculate or to compare.
#pragma once

#include <cstdint>

namespace varnholt::genetic {

enum class Arithmetic : std::uint8_t { kAdd, kSubtract, kMultiply };
enum class Comparison : std::uint8_t { kLess, kAtMost, kGreater, kAtLeast };

}  // namespace varnholt::genetic
