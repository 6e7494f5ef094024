#include "apps/genetic_search/failure_counts.hpp"

#include <algorithm>

namespace varnholt::app {

std::vector<FailureCount> most_frequent_first(const std::map<std::string, std::int64_t>& failures) {
  std::vector<FailureCount> counts(failures.begin(), failures.end());
  std::stable_sort(counts.begin(), counts.end(), [](const FailureCount& a, const FailureCount& b) {
    return a.second > b.second;
  });
  return counts;
}

}  // namespace varnholt::app
