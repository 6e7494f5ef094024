// Whether a text is well-formed UTF-8: no overlong form, no surrogate, nothing over U+10FFFF.
#pragma once

#include <string>
#include <string_view>

#include "search_templates/genetic/value/text.hpp"

namespace varnholt::genetic::test {

// A byte that belongs to no character is read as U+FFFD, and so is not written as it was.
inline bool is_valid_utf8(std::string_view text) {
  std::string written;
  for (std::size_t position = 0; position < text.size();)
    append_code_point(written, next_code_point(text, position));
  return written == text;
}

}  // namespace varnholt::genetic::test
