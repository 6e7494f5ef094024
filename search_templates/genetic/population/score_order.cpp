#include "search_templates/genetic/population/score_order.hpp"

#include <algorithm>
#include <cmath>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/stable_sort.hpp"

namespace varnholt::genetic {
namespace {

bool comes_before(const ScoredCandidate& left, const ScoredCandidate& right) {
  if (is_nan(left.score)) return false;
  if (is_nan(right.score)) return true;
  return less(right.score, left.score);
}

}  // namespace

void sort_highest_first(std::vector<ScoredCandidate>& candidates) {
  stable_sort(candidates, comes_before);
}

std::int64_t rounded_count(double value) {
  if (std::isnan(value)) throw ValueError("cannot convert float NaN to integer");
  if (std::isinf(value)) throw OverflowError("cannot convert float infinity to integer");
  constexpr double kLargest = 9.0e18;
  return static_cast<std::int64_t>(std::clamp(std::nearbyint(value), -kLargest, kLargest));
}

}  // namespace varnholt::genetic
