#include "search_templates/genetic/value/number_hash.hpp"

#include <cmath>

namespace varnholt::genetic {
namespace {

constexpr unsigned kModulusBits = 61;
constexpr double kTwoToThe63 = 9223372036854775808.0;

// The remainder times two to the `shift`. Modulo 2**61 - 1 that is a rotation of its 61 bits.
std::uint64_t rotate(std::uint64_t remainder, unsigned shift) noexcept {
  shift %= kModulusBits;
  if (shift == 0) return remainder;
  return ((remainder << shift) & kNumericHashModulus) | (remainder >> (kModulusBits - shift));
}

}  // namespace

std::int64_t numeric_hash_of_remainder(std::uint64_t remainder, bool negative) noexcept {
  const auto magnitude = static_cast<std::int64_t>(remainder);
  const std::int64_t hash = negative ? -magnitude : magnitude;
  // CPython's C functions answer -1 for "failed", so that no value has this hash.
  return hash == -1 ? -2 : hash;
}

std::int64_t hash_integer(std::int64_t value) noexcept {
  const bool negative = value < 0;
  const auto bits = static_cast<std::uint64_t>(value);
  const std::uint64_t magnitude = negative ? 0 - bits : bits;
  return numeric_hash_of_remainder(magnitude % kNumericHashModulus, negative);
}

std::int64_t hash_real(double value) noexcept {
  if (std::isnan(value)) return 0;
  if (std::isinf(value)) return value < 0 ? -kInfinityHash : kInfinityHash;
  int exponent = 0;
  const double fraction = std::frexp(std::fabs(value), &exponent);
  // The value is mantissa * 2**power with the mantissa an integer of at most 53 bits.
  const auto mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
  const int power = exponent - 53;
  // Two to the 61st is one to the modulus, so that a negative power is as good as a positive one.
  const int bits = static_cast<int>(kModulusBits);
  const int shift = (power % bits + bits) % bits;
  return numeric_hash_of_remainder(rotate(mantissa, static_cast<unsigned>(shift)), value < 0);
}

std::partial_ordering compare_exactly(std::int64_t left, double right) noexcept {
  if (std::isnan(right)) return std::partial_ordering::unordered;
  if (right >= kTwoToThe63) return std::partial_ordering::less;
  if (right < -kTwoToThe63) return std::partial_ordering::greater;
  const double whole = std::trunc(right);
  const auto truncated = static_cast<std::int64_t>(whole);
  if (left != truncated) return left <=> truncated;
  return whole <=> right;
}

}  // namespace varnholt::genetic
