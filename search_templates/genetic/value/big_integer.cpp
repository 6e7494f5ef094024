#include "search_templates/genetic/value/big_integer.hpp"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/number_hash.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::size_t kLimbBits = 32;

// Decimal texts are read and written nine digits at a time: the most that a limb holds.
constexpr std::size_t kChunkDigits = 9;
constexpr std::uint32_t kChunk = 1'000'000'000;

constexpr double kTwoToThe63 = 9223372036854775808.0;

using Limbs = std::vector<std::uint32_t>;

std::uint64_t magnitude_of(std::int64_t value) noexcept {
  const auto bits = static_cast<std::uint64_t>(value);
  return value < 0 ? 0 - bits : bits;
}

void drop_leading_zeros(Limbs& limbs) {
  while (!limbs.empty() && limbs.back() == 0)
    limbs.pop_back();
}

void multiply_and_add(Limbs& limbs, std::uint32_t factor, std::uint32_t addend) {
  std::uint64_t carry = addend;
  for (std::uint32_t& limb : limbs) {
    carry += std::uint64_t{limb} * factor;
    limb = static_cast<std::uint32_t>(carry);
    carry >>= kLimbBits;
  }
  if (carry != 0) limbs.push_back(static_cast<std::uint32_t>(carry));
}

// Divides in place and returns the remainder.
std::uint32_t divide(Limbs& limbs, std::uint32_t divisor) {
  std::uint64_t remainder = 0;
  for (std::size_t i = limbs.size(); i-- > 0;) {
    const std::uint64_t dividend = (remainder << kLimbBits) | limbs[i];
    limbs[i] = static_cast<std::uint32_t>(dividend / divisor);
    remainder = dividend % divisor;
  }
  drop_leading_zeros(limbs);
  return static_cast<std::uint32_t>(remainder);
}

std::strong_ordering compare_magnitudes(const Limbs& left, const Limbs& right) noexcept {
  if (left.size() != right.size()) return left.size() <=> right.size();
  return std::lexicographical_compare_three_way(left.rbegin(), left.rend(), right.rbegin(),
                                                right.rend());
}

void add(Limbs& limbs, const Limbs& addend) {
  if (limbs.size() < addend.size()) limbs.resize(addend.size());
  std::uint64_t carry = 0;
  for (std::size_t i = 0; i < limbs.size(); ++i) {
    carry += std::uint64_t{limbs[i]} + (i < addend.size() ? addend[i] : 0);
    limbs[i] = static_cast<std::uint32_t>(carry);
    carry >>= kLimbBits;
  }
  if (carry != 0) limbs.push_back(static_cast<std::uint32_t>(carry));
}

// The subtrahend is no greater than the limbs.
void subtract(Limbs& limbs, const Limbs& subtrahend) {
  std::uint64_t borrow = 0;
  for (std::size_t i = 0; i < limbs.size(); ++i) {
    const std::uint64_t taken = borrow + (i < subtrahend.size() ? subtrahend[i] : 0);
    borrow = limbs[i] < taken ? 1 : 0;
    limbs[i] = static_cast<std::uint32_t>(limbs[i] - taken);
  }
  drop_leading_zeros(limbs);
}

// The 64 bits from `position` upwards; those over the top read as zero.
std::uint64_t bits_from(const Limbs& limbs, std::size_t position) noexcept {
  const std::size_t first = position / kLimbBits;
  const std::size_t shift = position % kLimbBits;
  const auto limb = [&limbs](std::size_t i) -> std::uint64_t {
    return i < limbs.size() ? limbs[i] : 0;
  };
  const std::uint64_t low = limb(first) | (limb(first + 1) << kLimbBits);
  return shift == 0 ? low : (low >> shift) | (limb(first + 2) << (2 * kLimbBits - shift));
}

bool has_bit_below(const Limbs& limbs, std::size_t position) noexcept {
  const std::size_t whole = position / kLimbBits;
  for (std::size_t i = 0; i < whole; ++i) {
    if (limbs[i] != 0) return true;
  }
  const std::size_t rest = position % kLimbBits;
  return rest != 0 && (limbs[whole] & ((std::uint32_t{1} << rest) - 1)) != 0;
}

}  // namespace

BigInteger::BigInteger(std::int64_t value) : negative_(value < 0) {
  set_magnitude(magnitude_of(value));
}

void BigInteger::set_magnitude(std::uint64_t magnitude) {
  for (; magnitude != 0; magnitude >>= kLimbBits) {
    limbs_.push_back(static_cast<std::uint32_t>(magnitude));
  }
}

BigInteger BigInteger::from_decimal_digits(std::string_view digits, bool negative) {
  BigInteger result;
  result.limbs_.reserve(digits.size() / kChunkDigits + 1);
  std::size_t position = 0;
  while (position < digits.size()) {
    // The first chunk takes what does not fill the later ones.
    const std::size_t rest = (digits.size() - position) % kChunkDigits;
    const std::size_t length = rest == 0 ? kChunkDigits : rest;
    std::uint32_t chunk = 0;
    for (const char digit : digits.substr(position, length)) {
      chunk = chunk * 10 + static_cast<std::uint32_t>(digit - '0');
    }
    multiply_and_add(result.limbs_, kChunk, chunk);
    position += length;
  }
  result.negative_ = negative && !result.limbs_.empty();
  return result;
}

BigInteger BigInteger::from_double_truncated(double value) {
  if (std::isnan(value)) throw ValueError("cannot convert float NaN to integer");
  if (std::isinf(value)) throw OverflowError("cannot convert float infinity to integer");
  BigInteger result;
  int exponent = 0;
  const double fraction = std::frexp(std::fabs(std::trunc(value)), &exponent);
  const auto mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
  if (exponent <= 53) {
    result.set_magnitude(mantissa >> (53 - exponent));
  } else {
    const auto shift = static_cast<std::size_t>(exponent - 53);
    const std::size_t rest = shift % kLimbBits;
    // Shifted by less than a limb, the mantissa spreads over three of them.
    const std::uint64_t low = mantissa << rest;
    const std::uint64_t high = rest == 0 ? 0 : mantissa >> (64 - rest);
    result.limbs_.assign(shift / kLimbBits, 0);
    result.limbs_.push_back(static_cast<std::uint32_t>(low));
    result.limbs_.push_back(static_cast<std::uint32_t>(low >> kLimbBits));
    result.limbs_.push_back(static_cast<std::uint32_t>(high));
    drop_leading_zeros(result.limbs_);
  }
  result.negative_ = value < 0 && !result.limbs_.empty();
  return result;
}

BigInteger BigInteger::negated() const {
  BigInteger opposite = *this;
  opposite.negative_ = !negative_ && !is_zero();
  return opposite;
}

BigInteger BigInteger::plus(std::int64_t addend) const {
  BigInteger sum = *this;
  BigInteger other(addend);
  if (sum.negative_ == other.negative_) {
    add(sum.limbs_, other.limbs_);
    return sum;
  }
  if (compare_magnitudes(sum.limbs_, other.limbs_) < 0) std::swap(sum, other);
  subtract(sum.limbs_, other.limbs_);
  sum.negative_ = sum.negative_ && !sum.limbs_.empty();
  return sum;
}

std::optional<std::int64_t> BigInteger::to_int64() const noexcept {
  if (limbs_.size() > 2) return std::nullopt;
  const std::uint64_t magnitude = bits_from(limbs_, 0);
  constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;
  if (magnitude > kSignBit || (magnitude == kSignBit && !negative_)) return std::nullopt;
  return static_cast<std::int64_t>(negative_ ? 0 - magnitude : magnitude);
}

std::size_t BigInteger::bit_length() const noexcept {
  if (limbs_.empty()) return 0;
  return limbs_.size() * kLimbBits - static_cast<std::size_t>(std::countl_zero(limbs_.back()));
}

double BigInteger::to_double() const {
  const std::size_t length = bit_length();
  // The top 64 bits; whatever is below them is gathered in the lowest, where it can only break a
  // tie. The conversion of 64 bits to a double then rounds as is asked.
  const std::size_t dropped = length > 64 ? length - 64 : 0;
  std::uint64_t top = bits_from(limbs_, dropped);
  if (has_bit_below(limbs_, dropped)) top |= 1;
  constexpr std::size_t kTooLong = std::numeric_limits<double>::max_exponent + 1;
  const double magnitude = length >= kTooLong
                               ? std::numeric_limits<double>::infinity()
                               : std::ldexp(static_cast<double>(top), static_cast<int>(dropped));
  if (std::isinf(magnitude)) throw OverflowError("int too large to convert to float");
  return negative_ ? -magnitude : magnitude;
}

void BigInteger::append_decimal(std::string& out) const {
  if (limbs_.empty()) {
    out.push_back('0');
    return;
  }
  if (negative_) out.push_back('-');
  Limbs limbs = limbs_;
  Limbs chunks;
  while (!limbs.empty())
    chunks.push_back(divide(limbs, kChunk));
  char buffer[kChunkDigits + 1];
  for (std::size_t i = chunks.size(); i-- > 0;) {
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, chunks[i]);
    const auto length = static_cast<std::size_t>(end - buffer);
    if (i + 1 != chunks.size()) out.append(kChunkDigits - length, '0');
    out.append(buffer, length);
  }
}

std::string BigInteger::to_decimal() const {
  std::string out;
  append_decimal(out);
  return out;
}

std::int64_t BigInteger::hash() const noexcept {
  std::uint64_t remainder = 0;
  for (std::size_t i = limbs_.size(); i-- > 0;) {
    // Two to the 32nd times the remainder: its 61 bits turned by 32, since 2**61 is one here.
    remainder = ((remainder << 32) & kNumericHashModulus) | (remainder >> 29);
    remainder = (remainder + limbs_[i]) % kNumericHashModulus;
  }
  return numeric_hash_of_remainder(remainder, negative_);
}

std::strong_ordering operator<=>(const BigInteger& left, const BigInteger& right) noexcept {
  if (left.negative_ != right.negative_) {
    return left.negative_ ? std::strong_ordering::less : std::strong_ordering::greater;
  }
  return left.negative_ ? compare_magnitudes(right.limbs_, left.limbs_)
                        : compare_magnitudes(left.limbs_, right.limbs_);
}

std::strong_ordering compare_exactly(const BigInteger& left, std::int64_t right) {
  if (const auto small = left.to_int64()) return *small <=> right;
  return left.is_negative() ? std::strong_ordering::less : std::strong_ordering::greater;
}

std::partial_ordering compare_exactly(const BigInteger& left, double right) {
  if (std::isnan(right)) return std::partial_ordering::unordered;
  if (std::isinf(right)) return 0.0 <=> right;
  const double whole = std::trunc(right);
  const std::strong_ordering order = left <=> BigInteger::from_double_truncated(whole);
  if (order != std::strong_ordering::equal) return order;
  return whole <=> right;
}

Integer to_integer(BigInteger value) {
  if (const auto small = value.to_int64()) return *small;
  return value;
}

Integer integer_from_double(double value) {
  if (value >= -kTwoToThe63 && value < kTwoToThe63) return static_cast<std::int64_t>(value);
  return BigInteger::from_double_truncated(value);
}

}  // namespace varnholt::genetic
