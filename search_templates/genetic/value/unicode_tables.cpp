#include "search_templates/genetic/value/unicode_tables.hpp"

#include <algorithm>
#include <iterator>

#include "search_templates/genetic/value/unicode_ranges.hpp"

namespace varnholt::genetic {
namespace {

using unicode_ranges::Range;

template <std::size_t Count>
bool is_among(const Range (&ranges)[Count], char32_t code_point) noexcept {
  const auto* after =
      std::upper_bound(std::begin(ranges), std::end(ranges), code_point,
                       [](char32_t sought, const Range& range) { return sought < range.first; });
  return after != std::begin(ranges) && code_point <= std::prev(after)->last;
}

}  // namespace

bool is_unicode_space(char32_t code_point) noexcept {
  if (code_point < 0x80) {
    return code_point == U' ' || (code_point >= 0x09 && code_point <= 0x0D) ||
           (code_point >= 0x1C && code_point <= 0x1F);
  }
  return is_among(unicode_ranges::kSpaces, code_point);
}

int unicode_decimal_value(char32_t code_point) noexcept {
  if (code_point < 0x80) {
    return code_point >= U'0' && code_point <= U'9' ? static_cast<int>(code_point - U'0') : -1;
  }
  const auto* after = std::upper_bound(std::begin(unicode_ranges::kDecimalZeros),
                                       std::end(unicode_ranges::kDecimalZeros), code_point);
  // The table starts with the ASCII zero, so every code point here has a zero at or below it.
  const char32_t distance = code_point - *std::prev(after);
  return distance <= 9 ? static_cast<int>(distance) : -1;
}

bool is_unicode_printable(char32_t code_point) noexcept {
  if (code_point < 0x80) return code_point >= 0x20 && code_point != 0x7F;
  return is_among(unicode_ranges::kPrintables, code_point);
}

}  // namespace varnholt::genetic
