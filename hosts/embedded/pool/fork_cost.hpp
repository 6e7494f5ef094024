// What a fork costs on this machine: the time from a fork until a child that does nothing has been
// waited for.
#pragma once

#include <cstddef>

#include "hosts/embedded/pool/system_calls.hpp"

namespace varnholt::embedded {

// The median over so many forks, in seconds. PoolError when the system cannot fork.
[[nodiscard]] double fork_seconds(SystemCalls& system, int forks);

struct ForkCost {
  static constexpr std::size_t kTouchedBytes = std::size_t{64} * 1024 * 1024;

  double lean_seconds = 0.0;         // From this process as it is,
  double small_pages_seconds = 0.0;  // with kTouchedBytes more in small pages,
  double large_pages_seconds = 0.0;  // and with as many in large ones, where they are given.
};

[[nodiscard]] ForkCost measure_fork_cost(SystemCalls& system, int forks = 40);

}  // namespace varnholt::embedded
