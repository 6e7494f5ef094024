// Equality, order and hash of numbers of different kinds, by CPython's rules.
//
// An integer and a double are compared by their exact values, never by rounding one to the other:
// 2**53 + 1 differs from 2.0**53. Numbers that are equal hash alike, whatever their kinds: the
// hash is the value modulo the prime 2**61 - 1, with a fraction taken by the inverse of its
// denominator, and -2 in place of -1 (CPython, "Hashing of numeric types").
#pragma once

#include <compare>
#include <cstdint>

namespace varnholt::genetic {

// The modulus of every numeric hash.
inline constexpr std::uint64_t kNumericHashModulus = (std::uint64_t{1} << 61) - 1;

// The hash of an infinity, with the infinity's sign.
inline constexpr std::int64_t kInfinityHash = 314159;

// Turns a remainder below the modulus into the hash of a number of the given sign.
[[nodiscard]] std::int64_t numeric_hash_of_remainder(std::uint64_t remainder,
                                                     bool negative) noexcept;

// `hash` of an integer.
[[nodiscard]] std::int64_t hash_integer(std::int64_t value) noexcept;

// `hash` of a float. CPython hashes a NaN by its identity, which a double has not: it gives 0.
[[nodiscard]] std::int64_t hash_real(double value) noexcept;

// The exact order of an integer and a double; unordered when the double is a NaN.
[[nodiscard]] std::partial_ordering compare_exactly(std::int64_t left, double right) noexcept;

// Whether an integer and a double are the same number.
[[nodiscard]] inline bool equal_exactly(std::int64_t left, double right) noexcept {
  return compare_exactly(left, right) == std::partial_ordering::equivalent;
}

}  // namespace varnholt::genetic
