// The rates at which the genetic operators are chosen.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Told where all rates are 0.0, whether settings are validated or an operator is chosen.
inline constexpr const char* kNoPositiveRate =
    "genetic operator_rates must contain at least one positive rate";

// A complete mapping of operator name to rate, a new one at each call. `operator_rates` is absent,
// which gives a copy of `defaults`, or any mapping, whose entries override those of `defaults`.
//
// Errors, in the order tested: TypeError "genetic operator_rates must be a dictionary"; ValueError
// "genetic operator_rates has unknown keys: ..." with the text forms of all keys that `defaults`
// lacks, sorted; what nonnegative_float throws for a rate, under "operator_rates.{key}"; ValueError
// "genetic operator_rates must contain at least one positive rate".
[[nodiscard]] Mapping complete_operator_rates(const Value& operator_rates, const Mapping& defaults);

// All rates, those of names that are no operators included. TypeError for one that is no number.
[[nodiscard]] double sum_of_rates(const Mapping& rates);

}  // namespace varnholt::genetic
