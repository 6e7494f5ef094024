// Texts: valid UTF-8 in std::string, and the two written forms that the search gives them.
//
// A text is a sequence of Unicode code points without surrogates. Whoever makes a text validates
// it; on invalid UTF-8 the functions here still stay inside the text, and read each byte that
// belongs to no character as U+FFFD.
//
// The written forms are CPython's: `repr(str)` by the printable characters of Unicode 14.0.0, and
// the string literal of `json.dumps` with its default `ensure_ascii=True`. Both append to a buffer
// that the caller reuses, and copy runs of plain ASCII without looking at them twice. A library of
// UTF-8 would take over the decoding alone, thirty lines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace varnholt::genetic {

// Whether every byte is below 0x80.
[[nodiscard]] bool is_ascii(std::string_view text) noexcept;

// The code point at `position`, which moves to the next one. Requires position < text.size().
[[nodiscard]] char32_t next_code_point(std::string_view text, std::size_t& position) noexcept;

// The number of code points: what `len` answers.
[[nodiscard]] std::size_t code_point_count(std::string_view text) noexcept;

// The text's first `count` code points, or all of it when it has fewer.
[[nodiscard]] std::string_view first_code_points(std::string_view text, std::size_t count) noexcept;

// Appends one code point, which must be neither a surrogate nor over U+10FFFF, as UTF-8.
void append_code_point(std::string& out, char32_t code_point);

// Appends `repr(text)`: in single quotes, or in double quotes when the text has a single quote and
// no double one; \\, \n, \r, \t and the chosen quote escaped by name, other unprintable characters
// as \xhh, \uhhhh or \Uhhhhhhhh.
void append_text_repr(std::string& out, std::string_view text);
[[nodiscard]] std::string text_repr(std::string_view text);

// Appends the JSON string literal that `json.dumps(text)` writes: pure ASCII, everything outside
// 0x20 to 0x7E escaped, \b \f \n \r \t by name, other characters as \uhhhh in lower-case digits,
// those over U+FFFF as two surrogates.
void append_json_string(std::string& out, std::string_view text);

}  // namespace varnholt::genetic
