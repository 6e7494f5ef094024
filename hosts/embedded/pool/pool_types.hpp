// The configuration of a worker pool, its events and its outcomes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "hosts/embedded/pool/work.hpp"

namespace varnholt::embedded {

struct PoolConfig {
  // Children alive at once, at least 1.
  int jobs = 1;
  // How many items one child works on, one after the other; at least 1. An item that comes back
  // from a child, because that was lost or ended before its turn came, gets a child of its own.
  int items_per_worker = 1;
  // Of one item, from the fork, or from the result of the item before it, to its own whole result,
  // on the monotonic clock. Absent: no limit. 0 leaves a worker no time at all.
  std::optional<double> timeout_seconds = std::nullopt;
  // How often an item is tried again after its worker was lost. An exception of the work is a
  // result and never tried again; neither is a time-out, which would only take as long again.
  int max_retries = 0;
  // The nice value of a child. Absent: the parent's.
  std::optional<int> nice = std::nullopt;
  // Address space of a child, with what the parent has mapped at the fork.
  std::optional<std::uint64_t> memory_limit_bytes = std::nullopt;
  // Processor time of a child, for all its items: a second net below the time-out.
  std::optional<std::uint64_t> cpu_limit_seconds = std::nullopt;
  // The largest file that a child may write.
  std::optional<std::uint64_t> file_size_limit_bytes = std::nullopt;
  // The largest result.
  std::uint64_t result_limit_bytes = std::uint64_t{256} * 1024 * 1024;
  // How long a child may take to exit after its whole result is there. It is killed then, and the
  // result counts.
  double exit_grace_seconds = 1.0;
  // What the kernel is asked for as capacity of a result pipe. Absent: its default.
  std::optional<int> pipe_capacity_bytes = std::nullopt;
};

enum class PoolStatus {
  // The work returned; `payload` is what it returned. A bad end of the worker after the whole
  // result came does not count.
  Completed,
  // The work threw; `error_type` and `detail` hold type name and text.
  WorkRaised,
  // The worker was lost: killed, crashed, exited without a whole result, or could not be started.
  WorkerFailed,
  // No whole result within the limit. A result that is whole later does not count.
  WorkerTimedOut,
  // The worker could not be given its priority; the work was not begun. Every further worker would
  // meet the same, so it is not tried again.
  PriorityFailed,
  // The run was stopped before the item had an outcome.
  Cancelled,
};

[[nodiscard]] std::string_view to_text(PoolStatus status) noexcept;

struct PoolOutcome {
  std::size_t index = 0;
  int attempt = 0;
  // The worker's process, or 0 where none was started.
  pid_t pid = 0;
  // From the fork until the parent had seen the worker's end; where the worker had more than one
  // item, from the parent's sight of one result to that of the next.
  double elapsed_seconds = 0;
  PoolStatus status = PoolStatus::Cancelled;
  std::string payload;
  // The exception's type, of WorkRaised.
  std::string error_type;
  // Of a lost worker: it never came to the work, for want of a process, a descriptor or memory. The
  // next item would meet the same.
  bool was_not_started = false;
  // What happened, for people; for WorkerFailed one text for each manner of dying:
  // "worker killed by signal 11 (SIGSEGV)", "worker exited with status 3", "worker exited without a
  // result", "worker result was torn after ...", "worker result was damaged: ...",
  // "worker could not be started: ...", "worker could not be prepared: ...".
  std::string detail;
};

// Each may be empty. They run in the parent while children are alive; an exception that one of
// them throws kills and reaps all children and then leaves run() unchanged.
struct PoolCallbacks {
  // Asked once a turn, before anything else. True ends the run: children are killed, items without
  // an outcome are Cancelled, except those whose whole result is already there.
  std::function<bool()> stop_requested;
  // Asked before an item is worked on for the first time. True leaves it and all items after it
  // where they are: the run ends when those that were begun, retries included, have their outcome,
  // and the others are Cancelled.
  std::function<bool()> hold_requested;
  // Before each attempt at an item, whether or not its worker can then be started, and once for an
  // attempt that comes back to get a worker of its own.
  std::function<void(const WorkItem&)> dispatch_callback;
  // Before each fork and before each wait: what the parent still keeps to itself, although others
  // are to learn of it, it lets go of here.
  std::function<void()> pause_callback;
  // With the worker's process, when the item's turn comes: after the fork for the first of a
  // worker, after the result of the one before it for the others.
  std::function<void(const WorkItem&, pid_t)> started_callback;
  // Once a turn, between reading the pipes and acting upon the ends of workers: at least every 5
  // ms, and at once when there is something to read in one of `watched_descriptors`. What a worker
  // sent elsewhere before its end can so be taken before that end is reported.
  std::function<void()> poll_callback;
  // Where workers send the parent something beside their result. They are closed in the children.
  std::vector<int> watched_descriptors;
  // A worker was lost and its item will be tried again.
  std::function<void(const PoolOutcome&)> lost_callback;
  // An item has its outcome. Called once for each item, in the order in which they complete.
  std::function<void(const PoolOutcome&)> completed_callback;
};

// The pool cannot work as it was set up or in this process. The text names what and the remedy.
class PoolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace varnholt::embedded
