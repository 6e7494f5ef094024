// A TOML text in ASCII, as far as it means something.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace varnholt::embedded {

struct AsciiText {
  // The text with "?" for each character beyond ASCII, so that lines and columns stay as they are.
  std::string text;
  // The first byte (from 0) of such a character outside of comments, where it would be lost.
  std::optional<std::size_t> stray;
};

// Where comments and strings begin and end is told as TOML has it. In a text that is no TOML that
// may be wrong from the first mistake on.
[[nodiscard]] AsciiText ascii_text(std::string_view text);

}  // namespace varnholt::embedded
