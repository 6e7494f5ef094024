// The three properties of a character that texts and numbers depend on, by Unicode 14.0.0.
//
// The answers are those of CPython 3.11 for every code point from 0 to 0x10FFFF. They are looked
// up by binary search in the ranges of unicode_ranges.hpp; ASCII is answered without a search. A
// Unicode library of the system answers by a version of its own.
#pragma once

namespace varnholt::genetic {

// `str.isspace`: white space, among it the separators 0x1C to 0x1F, which the numeric conversions
// of number_parse.hpp do not strip.
[[nodiscard]] bool is_unicode_space(char32_t code_point) noexcept;

// The value, 0 to 9, of a decimal digit of any script (general category Nd); -1 for all else.
[[nodiscard]] int unicode_decimal_value(char32_t code_point) noexcept;

// `str.isprintable` of one character: whether a repr shows it as it is.
[[nodiscard]] bool is_unicode_printable(char32_t code_point) noexcept;

}  // namespace varnholt::genetic
