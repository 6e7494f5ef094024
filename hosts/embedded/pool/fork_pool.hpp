// The worker pool: it forks one process for each work item, or for several in a row.
//
//   RealSystemCalls system;
//   ForkPool pool(system, {.jobs = 4, .timeout_seconds = 60});
//   const std::vector<PoolOutcome> outcomes =
//       pool.run(graphs.size(), [&](const WorkItem& item) { return evaluate(graphs[item.index]);
//       });
//
// The child has the parent's memory as it was at the fork, so the work needs no encoding of its
// input; its result comes back through a pipe, in a frame. Whatever happens to a child (killed,
// crashed, stopped, caught in a loop, out of memory) is that item's outcome and touches neither
// the parent nor the other items. No child outlives run(), however it is left, and none outlives
// the parent by more than the kernel needs to kill it. Processes that the work itself starts are
// killed with their worker, as long as they stay in its process group; if the parent dies by
// SIGKILL they stay, because the kernel then kills the workers only.
//
// Where a worker has several items (PoolConfig::items_per_worker), each has a limit of time and a
// result of its own. Results that are whole when the worker is lost count; the item that it was at
// is lost with it, and the items behind that go on as if they had not been given away, each with a
// worker of its own. An exception ends the worker as well, because nobody knows in which state it
// left the process; one of any item but the first is no outcome, for it may be owed to what the
// items before left behind: the item is worked on again, by a worker of its own.
//
// The pool installs no signal handler and starts no thread. It must be the only one that waits for
// its children: a handler of SIGCHLD that waits for all of them would take their exit statuses.
#pragma once

#include <cstddef>
#include <vector>

#include "hosts/embedded/pool/pool_types.hpp"  // IWYU pragma: export
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/pool/work.hpp"

namespace varnholt::embedded {

class ForkPool {
 public:
  // `system` must outlive the pool. Throws PoolError for a configuration that makes no sense.
  ForkPool(SystemCalls& system, const PoolConfig& config);

  // Works on items 0 to item_count - 1 and returns their outcomes in this order.
  //
  // Throws PoolError when the process has more than one thread (a lock that another thread holds
  // would stay locked in the child) or ignores SIGCHLD (the kernel would then reap the children).
  [[nodiscard]] std::vector<PoolOutcome> run(std::size_t item_count, const Work& work,
                                             const PoolCallbacks& callbacks = {}) const;

 private:
  SystemCalls& system_;
  PoolConfig config_;
};

}  // namespace varnholt::embedded
