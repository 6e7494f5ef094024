// The rates at which the genetic operators are chosen.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The message for rates that are all 0.0, when settings are validated and when an operator is
// chosen.
inline constexpr const char* kNoPositiveRate =
    "genetic operator_rates must contain at least one positive rate";

// A complete mapping of operator name to rate, a new one at each call. `operator_rates` is absent,
// which gives a copy of `defaults`, or any mapping, whose entries override those of `defaults`.
//
// Errors, in the order of the tests: TypeError "genetic operator_rates must be a dictionary";
// ValueError "genetic operator_rates has unknown keys: ..." with the text forms of all keys that
// `defaults` lacks, sorted; what nonnegative_float throws for a rate, under "operator_rates.{key}";
// ValueError "genetic operator_rates must contain at least one positive rate".
[[nodiscard]] Mapping complete_operator_rates(const Value& operator_rates, const Mapping& defaults);

// All rates, those of names that are not operators included. TypeError for one that is not a
// number.
[[nodiscard]] Value sum_of_rates(const Mapping& rates);

}  // namespace varnholt::genetic
