// Whether this machine can run the pool, how well, and what to change so that it does.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/pool/fork_cost.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/system/machine_limits.hpp"
#include "hosts/embedded/system/memory_advice.hpp"

namespace varnholt::embedded {

// What was found, without judgement.
struct MachineFacts {
  std::string kernel;  // "Linux 6.1.0"
  MachineLimits limits;
  LargePages pages;
  std::optional<ForkCost> fork_cost;  // Absent where the system cannot fork; then
  std::string fork_failure;           // this says why.
  // The soft limits of this process; absent is none.
  std::optional<std::uint64_t> open_files = std::nullopt;
  std::optional<std::uint64_t> processes = std::nullopt;
  std::optional<std::uint64_t> address_space_bytes = std::nullopt;
  // Memory that is promised is memory that is there: a fork of a large process may be refused.
  bool memory_is_never_overcommitted = false;
  bool ends_of_children_are_ignored = false;
  bool threads_can_be_counted = true;
  bool ends_of_children_can_be_polled = true;
};

[[nodiscard]] MachineFacts read_machine_facts(SystemCalls& system,
                                              const std::string& proc = "/proc");

struct MachineFinding {
  bool prevents_searching = false;
  std::string text;
  std::string remedy;
};

// What is worth changing, what prevents a search first.
[[nodiscard]] std::vector<MachineFinding> machine_findings(const MachineFacts& facts);

}  // namespace varnholt::embedded
