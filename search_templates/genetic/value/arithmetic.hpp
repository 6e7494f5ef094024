// Calculating with numbers that a host gives, as the host's language does.
//
// Scores, weights and rates may be numbers of any class: they are added, subtracted, multiplied and
// compared by their own operators, exactly as often and in the order in which it is written here.
// Numbers of our own kinds are calculated with directly.
#pragma once

#include "search_templates/genetic/value/number_operators.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// left + right, left - right, left * right. Integers are calculated with exactly; a product beyond
// 64 bits becomes a real. TypeError "unsupported operand type(s) for +: 'int' and 'str'".
[[nodiscard]] Value plus(const Value& left, const Value& right);
[[nodiscard]] Value minus(const Value& left, const Value& right);
[[nodiscard]] Value times(const Value& left, const Value& right);

// left < right and so on. TypeError "'<=' not supported between instances of 'int' and 'str'".
[[nodiscard]] bool compares(Comparison comparison, const Value& left, const Value& right);
[[nodiscard]] inline bool at_most(const Value& left, const Value& right) {
  return compares(Comparison::kAtMost, left, right);
}
[[nodiscard]] inline bool greater(const Value& left, const Value& right) {
  return compares(Comparison::kGreater, left, right);
}

// round(number): the nearest integer, ties to even. ValueError for a NaN, OverflowError for an
// infinity, TypeError "type str doesn't define __round__ method".
[[nodiscard]] Value rounded(const Value& number);

}  // namespace varnholt::genetic
