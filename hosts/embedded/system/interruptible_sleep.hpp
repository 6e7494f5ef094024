// The pause between generations.
#pragma once

#include <algorithm>
#include <cmath>

#include <time.h>

namespace varnholt::embedded {

// Sleeps for `seconds`, or less when a signal arrives: the caller then checks which.
inline void sleep_interruptibly(double seconds) {
  const double whole = std::floor(std::max(seconds, 0.0));
  const double rest = std::max(seconds, 0.0) - whole;
  const timespec duration{static_cast<time_t>(whole), static_cast<long>(rest * 1e9)};
  nanosleep(&duration, nullptr);
}

}  // namespace varnholt::embedded
