// A TOML text in ASCII outside of its comments.
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

// Comments and strings are found by the rules of TOML. In an invalid text that may be wrong from
// the first mistake on.
[[nodiscard]] AsciiText ascii_text(std::string_view text);

}  // namespace varnholt::embedded
