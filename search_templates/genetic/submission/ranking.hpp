// The order in which passing candidates are submitted.
#pragma once

#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The passing candidates in a new list: by the highest score, then the lowest "candidate_index" (0
// when missing), then the smallest canonical text of the graph. A NaN score comes last.
//
// The host is asked for one score a passing candidate, without the weights that breeding uses, and
// index and text are computed for each, ties or not: TypeError for a score that has no opposite,
// and what the conversion of an index throws.
[[nodiscard]] List rank_submittable_candidates(Eliteness& eliteness, const Value& candidates);

}  // namespace varnholt::genetic
