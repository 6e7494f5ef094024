#include "search_templates/genetic/population/score_order.hpp"

#include <cstddef>
#include <utility>

#include "search_templates/genetic/value/list_order.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

void sort_highest_first(std::vector<ScoredCandidate>& candidates) {
  // A descending sort that keeps equal scores in their order sorts the list from behind.
  const std::size_t count = candidates.size();
  const std::vector<std::size_t> order =
      list_order(count, [&candidates, count](std::size_t left, std::size_t right) {
        return less(candidates[count - 1 - left].score, candidates[count - 1 - right].score);
      });
  std::vector<ScoredCandidate> sorted;
  sorted.reserve(count);
  for (auto place = order.rbegin(); place != order.rend(); ++place) {
    sorted.push_back(std::move(candidates[count - 1 - *place]));
  }
  candidates = std::move(sorted);
}

}  // namespace varnholt::genetic
