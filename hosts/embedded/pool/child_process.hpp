// The child's side of the worker pool: from the fork to _exit.
//
// The prologue, in this order: own process group (so that whatever the work starts can be killed
// with it), death with the parent, a check that the parent is still the one that forked, closing of
// pipe ends that belong to others, default signals (SIGINT ignored: at a terminal it is the
// parent's to handle), priority, limits, standard input from /dev/null. Then the work and one frame
// for each item, _exit. No destructor, no atexit handler and no stdio flush of the parent's runs in
// a child.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/types.h>

#include "hosts/embedded/pool/frame.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/pool/work.hpp"

namespace varnholt::embedded {

struct ChildLimits {
  // RLIMIT_AS. It counts the whole address space, what the parent has mapped included.
  std::optional<std::uint64_t> memory_bytes = std::nullopt;
  // RLIMIT_CPU: SIGXCPU after so many seconds of processor time, SIGKILL one second later.
  std::optional<std::uint64_t> cpu_seconds = std::nullopt;
  // RLIMIT_FSIZE: how large a file the work may write.
  std::optional<std::uint64_t> file_bytes = std::nullopt;
};

// All that the child needs, made before the fork so that nothing has to be looked up after it.
struct ChildPlan {
  std::vector<WorkItem> items;  // At least one.
  pid_t parent = 0;
  int result_pipe = -1;
  std::vector<int> foreign_descriptors;
  // Signals whose action is not the default one in the parent.
  std::vector<int> changed_signals;
  ChildLimits limits;
  std::optional<int> nice;
  std::uint64_t result_limit_bytes = 0;
};

// The address under which the result of an item travels.
[[nodiscard]] FrameAddress frame_address(const WorkItem& item) noexcept;

// Called in the child right after the fork, with all signals blocked.
[[noreturn]] void run_child(SystemCalls& system, const ChildPlan& plan, const Work& work) noexcept;

// The signals whose action in this process is not the default one.
[[nodiscard]] std::vector<int> changed_signals();

// How a child ended, for people: "worker killed by signal 11 (SIGSEGV)", "worker exited with status
// 3", "worker exited without a result" (status 0).
[[nodiscard]] std::string describe_exit(const siginfo_t& info);

}  // namespace varnholt::embedded
