// The queues between the parent of a batch and its children.
//
// What a child puts goes through one pipe to the parent, whatever queue it puts it into: each
// message says which. What the parent puts goes through memory that it shares with the child, a
// mailbox a queue. Neither has a lock, so a process that is killed at any moment blocks nobody.
#pragma once

#include <memory>
#include <vector>

#include "hosts/embedded/pool/system_calls.hpp"
#include "search_templates/genetic/host/message_queue.hpp"

namespace varnholt::embedded {

// The queues of one batch. They live as long as the last of them.
class ForkContext;

class ForkQueues : public genetic::ProcessContexts {
 public:
  // `system` must outlive the object and all queues.
  explicit ForkQueues(SystemCalls& system) : system_(system) {}

  // The process that calls it is the parent; the processes that it forks are the children.
  // PoolError when the queues cannot be made.
  [[nodiscard]] std::shared_ptr<genetic::ProcessContext> fork_context() override;

  // From here on what the parent puts into the queues of the batch under way is held back until the
  // next send_held(): a child is to be told nothing that is not on record yet.
  void hold_messages();
  // RuntimeError where a child has not taken earlier messages, and there is no room for more.
  void send_held();

  // The descriptors at which messages of the children of the batch under way arrive. They are the
  // parent's alone.
  [[nodiscard]] std::vector<int> parent_descriptors() const;

 private:
  SystemCalls& system_;
  std::weak_ptr<ForkContext> current_;
};

}  // namespace varnholt::embedded
