#include "search_templates/genetic/value/big_integer.hpp"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <system_error>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/number_hash.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::size_t kDigitsOfLargestDouble = 309;

constexpr double kTwoToThe63 = 9223372036854775808.0;

// Of two texts without leading zeros the longer is the larger number.
std::strong_ordering compare_digits(std::string_view left, std::string_view right) noexcept {
  if (left.size() != right.size()) return left.size() <=> right.size();
  return left.compare(right) <=> 0;
}

std::uint64_t magnitude_of(std::int64_t value) noexcept {
  const auto bits = static_cast<std::uint64_t>(value);
  return value < 0 ? 0 - bits : bits;
}

void add(std::string& digits, std::uint64_t addend) {
  for (std::size_t i = digits.size(); i-- > 0 && addend != 0;) {
    addend += static_cast<std::uint64_t>(digits[i] - '0');
    digits[i] = static_cast<char>('0' + addend % 10);
    addend /= 10;
  }
  if (addend != 0) digits.insert(0, std::to_string(addend));
}

// The subtrahend is no greater than the number that the digits write.
void subtract(std::string& digits, std::uint64_t subtrahend) {
  for (std::size_t i = digits.size(); i-- > 0 && subtrahend != 0;) {
    const auto taken = static_cast<char>(subtrahend % 10);
    subtrahend /= 10;
    digits[i] = static_cast<char>(digits[i] - taken);
    if (digits[i] >= '0') continue;
    digits[i] = static_cast<char>(digits[i] + 10);
    ++subtrahend;
  }
}

}  // namespace

BigInteger::BigInteger(std::int64_t value)
    : negative_(value < 0), digits_(value == 0 ? "" : std::to_string(value)) {
  if (negative_) digits_.erase(0, 1);
}

BigInteger BigInteger::from_decimal_digits(std::string_view digits, bool negative) {
  BigInteger result;
  const std::size_t zeros = digits.find_first_not_of('0');
  if (zeros == std::string_view::npos) return result;
  result.digits_ = digits.substr(zeros);
  result.negative_ = negative;
  return result;
}

BigInteger BigInteger::from_double_truncated(double value) {
  if (std::isnan(value)) throw ValueError("cannot convert float NaN to integer");
  if (std::isinf(value)) throw OverflowError("cannot convert float infinity to integer");
  char digits[kDigitsOfLargestDouble];
  // Without a fraction nothing is rounded: these are all digits of the double.
  const auto [end, error] = std::to_chars(
      digits, digits + sizeof digits, std::fabs(std::trunc(value)), std::chars_format::fixed, 0);
  static_cast<void>(error);
  return from_decimal_digits({digits, static_cast<std::size_t>(end - digits)}, value < 0);
}

BigInteger BigInteger::negated() const {
  BigInteger opposite = *this;
  opposite.negative_ = !negative_ && !is_zero();
  return opposite;
}

BigInteger BigInteger::plus(std::int64_t addend) const {
  std::string digits = digits_;
  if (negative_ == (addend < 0)) {
    add(digits, magnitude_of(addend));
  } else if (const auto small = to_int64()) {
    return BigInteger(*small + addend);
  } else {
    subtract(digits, magnitude_of(addend));
  }
  return from_decimal_digits(digits, negative_);
}

std::optional<std::int64_t> BigInteger::to_int64() const noexcept {
  if (is_zero()) return 0;
  std::uint64_t magnitude = 0;
  const char* const end = digits_.data() + digits_.size();
  if (std::from_chars(digits_.data(), end, magnitude).ec != std::errc()) return std::nullopt;
  constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;
  if (magnitude > kSignBit || (magnitude == kSignBit && !negative_)) return std::nullopt;
  return static_cast<std::int64_t>(negative_ ? 0 - magnitude : magnitude);
}

double BigInteger::to_double() const {
  if (is_zero()) return 0.0;
  double magnitude = 0.0;
  const char* const end = digits_.data() + digits_.size();
  if (std::from_chars(digits_.data(), end, magnitude).ec != std::errc()) {
    throw OverflowError("int too large to convert to float");
  }
  return negative_ ? -magnitude : magnitude;
}

void BigInteger::append_decimal(std::string& out) const {
  if (negative_) out.push_back('-');
  out += is_zero() ? "0" : digits_;
}

std::string BigInteger::to_decimal() const {
  std::string out;
  append_decimal(out);
  return out;
}

std::int64_t BigInteger::hash() const noexcept {
  return hash_integer_digits(digits_, negative_);
}

std::strong_ordering operator<=>(const BigInteger& left, const BigInteger& right) noexcept {
  if (left.negative_ != right.negative_) {
    return left.negative_ ? std::strong_ordering::less : std::strong_ordering::greater;
  }
  return left.negative_ ? compare_digits(right.digits_, left.digits_)
                        : compare_digits(left.digits_, right.digits_);
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
