// Orders by score, as the host's language orders numbers.
#pragma once

#include <cstdint>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// A candidate with the score that it is sorted by.
struct ScoredCandidate {
  Value score;
  Value candidate;
};

// Sorts by score, highest first; equal scores keep their order. A NaN comes last, so that the order
// is total.
void sort_highest_first(std::vector<ScoredCandidate>& candidates);

// `value` rounded to an integer, ties to even, and clamped to the range of counts. ValueError for a
// NaN, OverflowError for an infinity.
[[nodiscard]] std::int64_t rounded_count(double value);

}  // namespace varnholt::genetic
