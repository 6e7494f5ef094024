// How good a candidate is as a parent.
#pragma once

#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The host's score of a candidate: one call, with no sibling correlations and with the correlation
// as the record holds it, also when that is absent.
[[nodiscard]] Value candidate_eliteness(Eliteness& eliteness, const Value& candidate,
                                        double diversity_weight, double parsimony_weight);

}  // namespace varnholt::genetic
