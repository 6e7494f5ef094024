#include "search_templates/genetic/value/number_parse.hpp"

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/text.hpp"
#include "search_templates/genetic/value/unicode_tables.hpp"

namespace varnholt::genetic {
namespace {

// Where CPython cuts the repr in the message about an integer.
constexpr std::size_t kShownCharacters = 200;

// So many digits always fit into a signed 64-bit integer.
constexpr std::size_t kDigitsOf64Bits = 18;

bool is_digit(char character) noexcept {
  return character >= '0' && character <= '9';
}

// What both conversions take off the ends, once the text is ASCII.
bool is_stripped(char character) noexcept {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

// The text in ASCII: every white space beyond it as a blank and every decimal digit as its ASCII
// one. Any other character makes the text no number, so that the rest does not matter and '?'
// stands for it. ASCII texts are returned as they are; others are written into `buffer`.
std::string_view to_ascii(std::string_view text, std::string& buffer) {
  if (is_ascii(text)) return text;
  for (std::size_t position = 0; position < text.size();) {
    const char32_t code_point = next_code_point(text, position);
    const int digit = unicode_decimal_value(code_point);
    if (digit >= 0) {
      buffer.push_back(static_cast<char>('0' + digit));
    } else if (code_point < 0x7F) {
      buffer.push_back(static_cast<char>(code_point));
    } else if (is_unicode_space(code_point)) {
      buffer.push_back(' ');
    } else {
      buffer.push_back('?');
      break;
    }
  }
  return buffer;
}

std::string_view strip(std::string_view text) noexcept {
  while (!text.empty() && is_stripped(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && is_stripped(text.back()))
    text.remove_suffix(1);
  return text;
}

// Takes the sign off the front of the text.
bool take_minus(std::string_view& text) noexcept {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
  return negative;
}

// Copies the text without its underscores; false if one does not stand between two digits.
bool remove_underscores(std::string_view text, std::string& buffer) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '_') {
      plain.push_back(text[i]);
    } else if (i == 0 || !is_digit(text[i - 1]) || i + 1 == text.size() || !is_digit(text[i + 1])) {
      return false;
    }
  }
  buffer = std::move(plain);
  return true;
}

bool equals_ignoring_case(std::string_view text, std::string_view lower) noexcept {
  if (text.size() != lower.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    const bool upper = character >= 'A' && character <= 'Z';
    if ((upper ? static_cast<char>(character - 'A' + 'a') : character) != lower[i]) return false;
  }
  return true;
}

// The parts of a decimal number without a sign.
struct Decimal {
  std::string_view whole;
  std::string_view fraction;
  bool power_negative = false;
  std::string_view power;  // Without leading zeros.
};

std::string_view take_digits(std::string_view& text) noexcept {
  std::size_t length = 0;
  while (length < text.size() && is_digit(text[length]))
    ++length;
  const std::string_view digits = text.substr(0, length);
  text.remove_prefix(length);
  return digits;
}

// The parts of the text, or nothing if it is no decimal number.
std::optional<Decimal> split_decimal(std::string_view text) noexcept {
  Decimal decimal;
  decimal.whole = take_digits(text);
  if (!text.empty() && text.front() == '.') {
    text.remove_prefix(1);
    decimal.fraction = take_digits(text);
  }
  if (decimal.whole.empty() && decimal.fraction.empty()) return std::nullopt;
  if (!text.empty() && (text.front() == 'e' || text.front() == 'E')) {
    text.remove_prefix(1);
    decimal.power_negative = take_minus(text);
    decimal.power = take_digits(text);
    if (decimal.power.empty()) return std::nullopt;
    while (!decimal.power.empty() && decimal.power.front() == '0')
      decimal.power.remove_prefix(1);
  }
  if (!text.empty()) return std::nullopt;
  return decimal;
}

// The value of a number that no finite double but zero is near to: its first digit other than zero
// stands far to the left of the point, or far to the right.
double read_out_of_range(const Decimal& decimal) {
  // A power too long for 64 bits outweighs every number of digits that fits into memory.
  std::int64_t power = std::numeric_limits<std::int64_t>::max() / 4;
  const char* end = decimal.power.data() + decimal.power.size();
  if (decimal.power.empty()) power = 0;
  std::from_chars(decimal.power.data(), end, power);
  if (decimal.power_negative) power = -power;
  const std::size_t whole_zeros = decimal.whole.find_first_not_of('0');
  const std::size_t zeros = whole_zeros != std::string_view::npos
                                ? whole_zeros
                                : decimal.whole.size() + decimal.fraction.find_first_not_of('0');
  const auto place =
      static_cast<std::int64_t>(decimal.whole.size()) - static_cast<std::int64_t>(zeros);
  return power + place > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

// The value of a number without sign, white space and underscores.
std::optional<double> read_magnitude(std::string_view text) {
  const auto decimal = split_decimal(text);
  if (!decimal) {
    if (equals_ignoring_case(text, "inf") || equals_ignoring_case(text, "infinity")) {
      return std::numeric_limits<double>::infinity();
    }
    if (equals_ignoring_case(text, "nan")) return std::numeric_limits<double>::quiet_NaN();
    return std::nullopt;
  }
  double value = 0.0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc::result_out_of_range ? read_out_of_range(*decimal) : value;
}

std::optional<double> read_float(std::string_view ascii, std::string& buffer) {
  if (ascii.find('_') != std::string_view::npos) {
    if (!remove_underscores(ascii, buffer)) return std::nullopt;
    ascii = buffer;
  }
  const bool negative = take_minus(ascii);
  const auto magnitude = read_magnitude(ascii);
  if (!magnitude) return std::nullopt;
  return negative ? -*magnitude : *magnitude;
}

// The digits at the front of the text and whether they are well formed.
struct DigitRun {
  std::size_t length = 0;  // With the underscores.
  std::size_t digits = 0;
  bool valid = true;
};

DigitRun scan_digits(std::string_view text) noexcept {
  DigitRun run;
  char previous = '_';  // An underscore may not come first either.
  for (; run.length < text.size(); ++run.length) {
    const char character = text[run.length];
    if (character == '_' ? previous == '_' : !is_digit(character)) break;
    if (character != '_') ++run.digits;
    previous = character;
  }
  const bool doubled = run.length < text.size() && text[run.length] == '_';
  run.valid = run.digits > 0 && previous != '_' && !doubled;
  return run;
}

[[noreturn]] void fail_integer(std::string_view text) {
  const std::string repr = text_repr(text);
  throw ValueError("invalid literal for int() with base 10: " +
                   std::string(first_code_points(repr, kShownCharacters)));
}

[[noreturn]] void fail_too_many_digits(std::size_t digits) {
  throw ValueError("Exceeds the limit (" + std::to_string(kMaximumIntegerDigits) +
                   " digits) for integer string conversion: value has " + std::to_string(digits) +
                   " digits; use sys.set_int_max_str_digits() to increase the limit");
}

}  // namespace

double float_from_text(std::string_view text) {
  std::string buffer;
  const std::string_view ascii = strip(to_ascii(text, buffer));
  const auto value = read_float(ascii, buffer);
  if (!value) throw ValueError("could not convert string to float: " + text_repr(text));
  return *value;
}

Integer integer_from_text(std::string_view text) {
  std::string buffer;
  std::string_view ascii = strip(to_ascii(text, buffer));
  const bool negative = take_minus(ascii);
  const DigitRun run = scan_digits(ascii);
  if (!run.valid) fail_integer(text);
  // The limit is looked at before what follows the digits, as in CPython 3.11.
  if (run.digits > kMaximumIntegerDigits) fail_too_many_digits(run.digits);
  if (run.length != ascii.size()) fail_integer(text);
  std::string digits;
  if (run.digits != run.length) {
    remove_underscores(ascii, digits);
    ascii = digits;
  }
  if (ascii.size() <= kDigitsOf64Bits) {
    std::int64_t value = 0;
    std::from_chars(ascii.data(), ascii.data() + ascii.size(), value);
    return negative ? -value : value;
  }
  return to_integer(BigInteger::from_decimal_digits(ascii, negative));
}

}  // namespace varnholt::genetic
