// The canonical JSON text of a value: keys sorted, no blanks, ASCII only. Byte for byte what
// Python's `json.dumps(value, sort_keys=True, separators=(",", ":"))` gives.
#pragma once

#include <string>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Keys are sorted as they are, before those that are not texts become texts. Throws TypeError for
// what JSON cannot hold and for keys without an order among them, ValueError "Circular reference
// detected" for a value that contains itself, and RecursionError for one nested deeper than
// kMaximumNesting.
[[nodiscard]] std::string json_text(const Value& value);

}  // namespace varnholt::genetic
