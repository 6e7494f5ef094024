// Failures by reason, in the order in which they are reported.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace varnholt::app {

using FailureCount = std::pair<std::string, std::int64_t>;

// The most frequent reason first; equally frequent ones by name.
[[nodiscard]] std::vector<FailureCount> most_frequent_first(
    const std::map<std::string, std::int64_t>& failures);

}  // namespace varnholt::app
