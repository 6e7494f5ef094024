// JSON texts as values.
#pragma once

#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The value of a JSON text. Of equal keys the last wins; integers may be of any size. Throws
// genetic::ValueError with line, column and what was expected there.
[[nodiscard]] genetic::Value read_json(std::string_view text);

}  // namespace varnholt::embedded
