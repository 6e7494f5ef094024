// Orders by score, as the host's language orders numbers.
#pragma once

#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// A candidate with the score that it is sorted by.
struct ScoredCandidate {
  Value score;
  Value candidate;
};

// Sorts by score, highest first; equal scores keep their order. Where the scores have no order, a
// NaN among them for instance, the outcome is that of the host's own sort (list_order.hpp).
void sort_highest_first(std::vector<ScoredCandidate>& candidates);

}  // namespace varnholt::genetic
