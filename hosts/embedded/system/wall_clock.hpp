// The time of day, for what is stored. It is data and decides nothing.
#pragma once

#include <chrono>

namespace varnholt::embedded {

// Seconds since 1970-01-01 UTC.
[[nodiscard]] inline double wall_clock_seconds() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace varnholt::embedded
