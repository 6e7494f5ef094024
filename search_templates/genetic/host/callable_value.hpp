// Operations as values, and values as operations.
#pragma once

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The operation as an object that can be called; absent for an empty one.
[[nodiscard]] Value callable_value(const Callable& callable);

// The operation that the value is; empty for what cannot be called. Its parameters can be told when
// it was made by callable_value.
[[nodiscard]] Callable callable_of(const Value& value);

// The value behind an operation that callable_of made; nothing behind any other.
[[nodiscard]] std::optional<Value> value_behind(const Callable& callable);

}  // namespace varnholt::genetic
