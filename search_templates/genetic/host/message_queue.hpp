// The queues between the parent and its children.
//
// One queue leads from all children to the parent, one back to each candidate. They are made in the
// parent before the first fork, and both sides use them after it. What goes through them is a tuple
// of scalars and of the identity that the tracker gave.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The end that the parent reads.
class QueueReader {
 public:
  virtual ~QueueReader() = default;

  // Whether `get` would return at once. Never waits.
  [[nodiscard]] virtual bool poll() = 0;
};

class MessageQueue {
 public:
  virtual ~MessageQueue() = default;

  // A child puts its signal, the parent its answer. One that cannot be put is an error.
  virtual void put(const Value& message) = 0;
  // Waits until there is a message, without a limit: the parent calls it only after `poll` said
  // yes, a child waits for its answer until the worker pool ends it.
  [[nodiscard]] virtual Value get() = 0;
  // Null where the queue has none; such a queue is never read by the parent.
  [[nodiscard]] virtual std::shared_ptr<QueueReader> reader() = 0;
};

// The queues back to the candidates, by candidate index.
class AcknowledgementQueues {
 public:
  virtual ~AcknowledgementQueues() = default;

  // In the parent: KeyError with the index for a candidate that has none.
  [[nodiscard]] virtual std::shared_ptr<MessageQueue> at(const Value& candidate_index) = 0;
  // In a child: null for a candidate that has none.
  [[nodiscard]] virtual std::shared_ptr<MessageQueue> find(const Value& candidate_index) = 0;
};

// What the queues of a batch are made into: each candidate's index with its queue, in order.
using CandidateQueues = std::vector<std::pair<Value, std::shared_ptr<MessageQueue>>>;

// Whatever makes queues that work across a fork.
class ProcessContext {
 public:
  virtual ~ProcessContext() = default;

  [[nodiscard]] virtual std::shared_ptr<MessageQueue> simple_queue() = 0;
};

// Asked once a batch, in the parent, before anything is forked.
class ProcessContexts {
 public:
  virtual ~ProcessContexts() = default;

  [[nodiscard]] virtual std::shared_ptr<ProcessContext> fork_context() = 0;
};

}  // namespace varnholt::genetic
