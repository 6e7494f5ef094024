// Equality, order and hash of numbers of different kinds, by CPython's rules.
//
// An integer and a double are compared by their exact values, never by rounding one to the other:
// 2**53 + 1 differs from 2.0**53. Numbers that are equal hash alike, whatever their kinds: the
// hash is the value modulo the prime 2**61 - 1, with a fraction taken by the inverse of its
// denominator, and -2 in place of -1 (CPython, "Hashing of numeric types").
#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

namespace varnholt::genetic {

// `hash` of an integer.
[[nodiscard]] std::int64_t hash_integer(std::int64_t value) noexcept;
// The same of an integer of any size, given by its decimal digits without the sign.
[[nodiscard]] std::int64_t hash_integer_digits(std::string_view digits, bool negative) noexcept;

// `hash` of a float. CPython hashes a NaN by its identity, which a double does not have: here it is
// 0.
[[nodiscard]] std::int64_t hash_real(double value) noexcept;

// The exact order of an integer and a double; unordered when the double is a NaN.
[[nodiscard]] std::partial_ordering compare_exactly(std::int64_t left, double right) noexcept;

}  // namespace varnholt::genetic
