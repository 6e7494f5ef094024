// How good a result is, as repairs see it.
//
// Qualities are reals, 0.0 for anything but a number.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The result's quality score, or its sharpe where it has no such entry. One that is there and is
// not a number is 0.0, not the sharpe.
[[nodiscard]] double candidate_quality(const Value& result);
// The same as a value: what is exactly a real is that very object.
[[nodiscard]] Value candidate_quality_value(const Value& result);

}  // namespace varnholt::genetic
