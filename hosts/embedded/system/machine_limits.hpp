// The processors and the memory that this process may use, by the machine and by the control groups
// that it belongs to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace varnholt::embedded {

struct MachineLimits {
  // The processors that this process may run on.
  int processors = 1;
  // The processor time that its control groups may take, in processors: 1.5 is one and a half.
  std::optional<double> processor_quota = std::nullopt;
  // What its control groups allow in all.
  std::optional<std::uint64_t> memory_limit_bytes = std::nullopt;
  // What can be taken now: the least of what the machine and the control groups have left. File
  // pages that the kernel would give up for it count as left.
  std::optional<std::uint64_t> memory_available_bytes = std::nullopt;

  // The workers that can be busy at the same time, at least 1.
  [[nodiscard]] int busy_workers() const;
};

// Read from where the kernel shows them. Control groups of version 2 are read, and the controllers
// "cpu" and "memory" of version 1; what is not there is no limit.
[[nodiscard]] MachineLimits read_machine_limits(
    const std::string& proc = "/proc", const std::string& control_groups = "/sys/fs/cgroup");

// What this process has mapped, shared memory included: what RLIMIT_AS counts. Nothing where /proc
// does not show it.
[[nodiscard]] std::optional<std::uint64_t> mapped_bytes(const std::string& proc = "/proc");

}  // namespace varnholt::embedded
