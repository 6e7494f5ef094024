// How good a candidate is as a parent.
#pragma once

#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The host's score of a candidate: one call, with no sibling correlations and with the correlation
// as the record holds it, also when that is absent. The weights go to the host as they are.
[[nodiscard]] Value candidate_eliteness(Eliteness& eliteness, const Value& candidate,
                                        const Value& diversity_weight,
                                        const Value& parsimony_weight);

}  // namespace varnholt::genetic
