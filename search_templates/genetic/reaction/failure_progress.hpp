// How far a failed result is from passing, and whether a repair has brought it nearer.
//
// A result is read as in failure_metrics.hpp. Anything but a number counts as 0.0 here, and no
// conversion fails the caller.
#pragma once

#include <cstdint>

#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// By how much a failure misses its threshold, as a share of the threshold: 0.0 when it does not
// miss it. A failure that is not a mapping counts as 1.0, one without usable numbers as 0.0, on
// purpose. Thresholds of up to 1e-12 are taken as they are, in units of 1.0.
[[nodiscard]] double failure_violation(JsonReader& json_reader, const Value& reason,
                                       const Value& failure);

// The smaller, the nearer to passing; fewer failures beat any violation. A result that passes, or
// that has no mapping of failures, is at zero.
struct FailureProgress {
  std::int64_t failure_count = 0;
  double total_violation = 0.0;  // Summed in the order of the failures.

  [[nodiscard]] bool is_less_than(const FailureProgress& other) const;
};
[[nodiscard]] FailureProgress failure_progress_key(JsonReader& json_reader, const Value& result);

// Whether a result is better than the source that it was derived from: it passes and the source
// does not, or it is nearer to passing, or as near and of better quality.
[[nodiscard]] bool is_improved_result(JsonReader& json_reader, const Value& result,
                                      const Value& source);

// The names of a result's failures, sorted, as a tuple. Keys that are not texts are left out.
[[nodiscard]] Tuple failure_signature(const Value& result);

}  // namespace varnholt::genetic
