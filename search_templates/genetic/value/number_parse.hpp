// Numbers read from a text as CPython 3.11 reads them: `float(text)` and `int(text)`.
//
// Both accept white space around the number, a sign, decimal digits of any script and single
// underscores between digits. The ASCII separators 0x1C to 0x1F are not white space here, although
// `str.isspace` says so of them. The text is valid UTF-8.
//
// Anything but a number throws a ValueError with CPython's message, which shows the text's repr.
#pragma once

#include <cstddef>
#include <string_view>

#include "search_templates/genetic/value/big_integer.hpp"

namespace varnholt::genetic {

// The most digits, leading zeros among them, that integer_from_text reads: CPython's default limit
// (sys.set_int_max_str_digits), which bounds a conversion whose time grows as their square.
inline constexpr std::size_t kMaximumIntegerDigits = 4300;

// `float(text)`, correctly rounded: digits with or without a point and a power of ten, or "inf",
// "infinity" and "nan" in any case. Beyond the largest double it is an infinity, below the smallest
// a zero, of the number's sign.
// ValueError: "could not convert string to float: 'abc'".
[[nodiscard]] double float_from_text(std::string_view text);

// `int(text)`: decimal digits only; neither a point nor a power of ten.
// ValueError: "invalid literal for int() with base 10: '1.5'", where the repr is cut after its
// 200th character, and CPython's message about the limit when there are too many digits.
[[nodiscard]] Integer integer_from_text(std::string_view text);

}  // namespace varnholt::genetic
