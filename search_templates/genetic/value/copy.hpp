// Copies of values, made only where a rule says so.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// A new list or mapping of the library's own with the same items; a scalar or a tuple is returned
// as it is.
[[nodiscard]] Value shallow_copy(const Value& value);
[[nodiscard]] Mapping shallow_copy(const Mapping& mapping);

// A new mapping of the library's own from any mapping, or from a sequence of pairs.
// TypeError or ValueError for anything else.
[[nodiscard]] Mapping new_mapping(const Value& source);

// An independent copy, however deep. What is shared within the value is shared within the copy, and
// a value that contains itself is copied as such. Objects copy themselves.
// RecursionError for values nested deeper than kMaximumNesting.
[[nodiscard]] Value deep_copy(const Value& value);

}  // namespace varnholt::genetic
