// The lineage of a generation's results.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Writes each result's index and improvement depth into the result itself, and, for a result with
// an improvement at its position, the improvement's plan, depth and source; a result that passes
// with an improvement is marked as rescued. Results beyond the improvements keep the plain values.
//
// Returns the very results that it was given. KeyError when an improvement lacks an entry; what the
// integer conversions throw propagates.
Value annotate_candidate_results(const Value& results, const Value& start_index,
                                 const Value& improvement_depth,
                                 const Value& improvements = Value());

// The summed seconds of the candidates. A value that is not a number counts as 0.0. The sum of none
// is the integer 0, as the host's language has it.
[[nodiscard]] Value elapsed_candidate_seconds(const Value& results);

}  // namespace varnholt::genetic
