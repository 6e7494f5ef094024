#include "search_templates/genetic/value/number_text.hpp"

#include <charconv>
#include <cmath>
#include <string_view>

namespace varnholt::genetic {
namespace {

// Every integer below this magnitude is a double of its own, so its plain digits are the shortest
// text that reads back as it.
constexpr double kExactIntegers = 9007199254740992.0;  // 2 to the 53rd

// The limits of positional notation.
constexpr double kSmallestPositional = 1e-4;
constexpr double kPositionalEnd = 1e16;

// Room for the longest of the texts: 20 for an integer, 24 for a double in powers of ten and 23 in
// positional notation.
constexpr std::size_t kBufferSize = 40;

void append_finite(std::string& out, double value) {
  const double magnitude = std::fabs(value);
  if (magnitude < kExactIntegers && magnitude == std::trunc(magnitude)) {
    if (std::signbit(value)) out.push_back('-');
    append_integer(out, static_cast<std::int64_t>(magnitude));
    out += ".0";
    return;
  }
  const bool positional = magnitude >= kSmallestPositional && magnitude < kPositionalEnd;
  char buffer[kBufferSize];
  const auto [end, error] =
      std::to_chars(buffer, buffer + kBufferSize, value,
                    positional ? std::chars_format::fixed : std::chars_format::scientific);
  const std::string_view text(buffer, static_cast<std::size_t>(end - buffer));
  out += text;
  if (positional && text.find('.') == std::string_view::npos) out += ".0";
}

}  // namespace

void append_float_repr(std::string& out, double value) {
  if (std::isfinite(value)) {
    append_finite(out, value);
  } else if (std::isnan(value)) {
    out += "nan";
  } else {
    out += value < 0 ? "-inf" : "inf";
  }
}

void append_float_json(std::string& out, double value) {
  if (std::isfinite(value)) {
    append_finite(out, value);
  } else if (std::isnan(value)) {
    out += "NaN";
  } else {
    out += value < 0 ? "-Infinity" : "Infinity";
  }
}

void append_integer(std::string& out, std::int64_t value) {
  if (value >= 0 && value < 10) {
    out.push_back(static_cast<char>('0' + value));
    return;
  }
  char buffer[kBufferSize];
  const auto [end, error] = std::to_chars(buffer, buffer + kBufferSize, value);
  out.append(buffer, static_cast<std::size_t>(end - buffer));
}

}  // namespace varnholt::genetic
