// JSON texts as values.
#pragma once

#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The value of a JSON text. Of equal keys the last wins; integers may be of any size. Throws
// genetic::ValueError with line, column and what was expected there.
[[nodiscard]] genetic::Value read_json(std::string_view text);

// The same for a text that somebody has written: equal keys in one object are an error, because one
// of the two is not meant, and so is a number that nobody writes.
[[nodiscard]] genetic::Value read_written_json(std::string_view text);

}  // namespace varnholt::embedded
