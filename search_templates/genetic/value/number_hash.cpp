#include "search_templates/genetic/value/number_hash.hpp"

#include <cmath>

namespace varnholt::genetic {
namespace {

constexpr unsigned kModulusBits = 61;
constexpr std::uint64_t kModulus = (std::uint64_t{1} << kModulusBits) - 1;
// The hash of an infinity, with the infinity's sign.
constexpr std::int64_t kInfinityHash = 314159;
constexpr double kTwoToThe63 = 9223372036854775808.0;

// The remainder times two to the `shift`. Modulo 2**61 - 1 that is a rotation of its 61 bits.
std::uint64_t rotate(std::uint64_t remainder, unsigned shift) noexcept {
  shift %= kModulusBits;
  if (shift == 0) return remainder;
  return ((remainder << shift) & kModulus) | (remainder >> (kModulusBits - shift));
}

// The hash of a number of the given sign whose magnitude leaves this remainder.
std::int64_t hash_of(std::uint64_t remainder, bool negative) noexcept {
  const auto magnitude = static_cast<std::int64_t>(remainder);
  const std::int64_t hash = negative ? -magnitude : magnitude;
  // CPython's C functions answer -1 for "failed", so that no value has this hash.
  return hash == -1 ? -2 : hash;
}

}  // namespace

std::int64_t hash_integer(std::int64_t value) noexcept {
  const bool negative = value < 0;
  const auto bits = static_cast<std::uint64_t>(value);
  const std::uint64_t magnitude = negative ? 0 - bits : bits;
  return hash_of(magnitude % kModulus, negative);
}

std::int64_t hash_integer_digits(std::string_view digits, bool negative) noexcept {
  std::uint64_t remainder = 0;
  for (const char digit : digits) {
    // Ten times the remainder, as eight times and two times it: the product may not fit 64 bits.
    const std::uint64_t tenfold = rotate(remainder, 3) + rotate(remainder, 1);
    remainder = (tenfold + static_cast<std::uint64_t>(digit - '0')) % kModulus;
  }
  return hash_of(remainder, negative);
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
  return hash_of(rotate(mantissa, static_cast<unsigned>(shift)), value < 0);
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
