// Integers of any size, as far as the search meets them: read from a text or from a double, shown,
// compared, hashed, counted on, turned into a double or into its opposite. There is no other
// arithmetic.
//
// So a BigInteger is its decimal digits: the standard library turns those into the nearest double
// and a double into those, both exactly. A library of big numbers would add arithmetic that nobody
// asks for; docs/decisions.md has the figures.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace varnholt::genetic {

// Never changes once it is made.
class BigInteger {
 public:
  // Zero.
  BigInteger() = default;

  explicit BigInteger(std::int64_t value);

  // The number written by `digits`, all of them '0' to '9'; no digit at all is zero.
  [[nodiscard]] static BigInteger from_decimal_digits(std::string_view digits, bool negative);

  // The integer part of a finite double. Throws what `int(value)` raises: ValueError for a NaN,
  // OverflowError for an infinity.
  [[nodiscard]] static BigInteger from_double_truncated(double value);

  [[nodiscard]] bool is_zero() const noexcept { return digits_.empty(); }
  [[nodiscard]] bool is_negative() const noexcept { return negative_; }

  [[nodiscard]] BigInteger negated() const;
  [[nodiscard]] BigInteger plus(std::int64_t addend) const;

  // The value where 64 bits hold it.
  [[nodiscard]] std::optional<std::int64_t> to_int64() const noexcept;

  // `float(value)`: the nearest double, of two equally near ones the even one. Throws
  // OverflowError "int too large to convert to float" where rounding leaves the doubles' range.
  [[nodiscard]] double to_double() const;

  // Appends the decimal digits, with '-' before those of a negative number.
  void append_decimal(std::string& out) const;
  [[nodiscard]] std::string to_decimal() const;

  // `hash(value)`; equal to the hash of an equal int64 or double (number_hash.hpp).
  [[nodiscard]] std::int64_t hash() const noexcept;

  friend bool operator==(const BigInteger& left, const BigInteger& right) noexcept = default;
  friend std::strong_ordering operator<=>(const BigInteger& left, const BigInteger& right) noexcept;

 private:
  bool negative_ = false;  // Zero has no sign.
  std::string digits_;     // Without leading zeros; none for zero.
};

// The exact order of an integer of any size and a number of another kind. Against a NaN there is
// no order.
[[nodiscard]] std::strong_ordering compare_exactly(const BigInteger& left, std::int64_t right);
[[nodiscard]] std::partial_ordering compare_exactly(const BigInteger& left, double right);

// An integer: 64 bits where they hold it, the large kind elsewhere and only there.
using Integer = std::variant<std::int64_t, BigInteger>;

// The smaller kind where it holds the value.
[[nodiscard]] Integer to_integer(BigInteger value);

// `int(value)` of a double: its integer part. Throws as BigInteger::from_double_truncated does.
[[nodiscard]] Integer integer_from_double(double value);

}  // namespace varnholt::genetic
