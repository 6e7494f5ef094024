// Turns raw settings into valid values, or names the setting that is wrong.
//
// `name` is the setting's name as messages show it: every message begins "genetic {name} must".
// Conversions are the host language's own, so numeric text is a number where a real is asked for,
// while an integer must be exactly of the integer type (a boolean is not).
#pragma once

#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// TypeError "... must be an integer"; ValueError "... must be positive".
[[nodiscard]] Value positive_int(const Value& value, std::string_view name);

// Absent stays absent. TypeError "... must be an integer or None"; ValueError "... must be
// non-negative".
[[nodiscard]] Value optional_nonnegative_int(const Value& value, std::string_view name);

// TypeError "... must be a finite number"; ValueError "... must be finite", "... must be positive".
// What is given as a real is that very object, here and below.
[[nodiscard]] Value positive_float(const Value& value, std::string_view name);

// Absent stays absent. TypeError "... must be a finite number or None"; ValueError "... must be
// finite", "... must be non-negative".
[[nodiscard]] Value optional_nonnegative_float(const Value& value, std::string_view name);

// TypeError "... must be a finite number"; ValueError "... must be finite", "... must be
// non-negative". -0.0 passes and stays -0.0.
[[nodiscard]] Value nonnegative_float(const Value& value, std::string_view name);

}  // namespace varnholt::genetic
