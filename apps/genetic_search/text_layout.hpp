// Texts laid out for lines of a fixed width.
//
// Widths are in columns. Each code point of UTF-8 counts as one column, which is right for all that
// the program writes itself; wide characters in a file's name count too little.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnholt::app {

// The columns of a terminal; absent where the text goes elsewhere and nothing is wrapped.
using Width = std::optional<std::size_t>;

[[nodiscard]] std::size_t column_count(std::string_view text);

// The text as it can stand on one line of a terminal. "?" stands for what would act on it: control
// characters (C0, DEL, C1), separators of lines and paragraphs, marks that turn the direction of
// what follows, and bytes that are not UTF-8.
[[nodiscard]] std::string on_one_line(std::string_view text);

// The text if it fits into `width` columns, else its beginning and "...". Never cuts a code point.
[[nodiscard]] std::string cut_to_width(std::string_view text, std::size_t width);

// The text in lines of at most `width` columns, broken after blanks, commas and opening brackets
// where there are any, else anywhere. Blanks at a break are dropped. At least one line.
[[nodiscard]] std::vector<std::string> wrap_text(std::string_view text, std::size_t width);

// The lines of a text that begins in column `indent` of a terminal; one line without a terminal.
[[nodiscard]] std::vector<std::string> wrapped_beside(std::string_view text, Width width,
                                                      std::size_t indent);

// A name and a text beside it, whose further lines begin below its first. All lines are ended.
[[nodiscard]] std::string entry_text(std::string_view name, std::string_view text, Width width);

// "1 day", "2 days".
[[nodiscard]] std::string counted(std::int64_t count, std::string_view noun);

enum class Align { Left, Right };

// The text with blanks to `width` columns; a longer text stays as it is.
[[nodiscard]] std::string padded(std::string_view text, std::size_t width, Align align);

}  // namespace varnholt::app
