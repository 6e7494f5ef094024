// What the end of a generation's improvement means for the search.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Whether the reason ends the whole search.
[[nodiscard]] bool improvement_terminal_ends_search(const Value& reason);

// Whether the near misses are exhausted and no longer worth breeding from. The limits on candidates
// and rounds exhaust them only in a generation that has really improved something.
[[nodiscard]] bool improvement_terminal_exhausts_near_misses(
    const Value& reason, const Value& generation_improvement_count,
    const Value& generation_round_count);

}  // namespace varnholt::genetic
