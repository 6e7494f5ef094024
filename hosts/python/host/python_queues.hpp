// Queues between the parent and its children, as Python's `multiprocessing` has them.
#pragma once

#include <memory>
#include <utility>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/host/message_queue.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// A SimpleQueue, or whatever else has `put` and `get`.
class PythonMessageQueue : public genetic::MessageQueue {
 public:
  explicit PythonMessageQueue(nb::object queue) : queue_(std::move(queue)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return queue_; }

  void put(const genetic::Value& message) override;
  [[nodiscard]] genetic::Value get() override;
  // The queue's `_reader`, which need not be there.
  [[nodiscard]] std::shared_ptr<genetic::QueueReader> reader() override;

 private:
  nb::object queue_;
};

// Null for None.
[[nodiscard]] std::shared_ptr<genetic::MessageQueue> message_queue(const nb::object& queue);

// A dict of queues, or whatever else is read by key.
class PythonAcknowledgementQueues : public genetic::AcknowledgementQueues {
 public:
  explicit PythonAcknowledgementQueues(nb::object queues) : queues_(std::move(queues)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return queues_; }

  [[nodiscard]] std::shared_ptr<genetic::MessageQueue> at(
      const genetic::Value& candidate_index) override;
  [[nodiscard]] std::shared_ptr<genetic::MessageQueue> find(
      const genetic::Value& candidate_index) override;

 private:
  nb::object queues_;
};

// Null for None.
[[nodiscard]] std::shared_ptr<genetic::AcknowledgementQueues> acknowledgement_queues(
    const nb::object& queues);

// `_process_evaluation._fork_context()`, whose `SimpleQueue()` makes the queues.
class PythonProcessContexts : public genetic::ProcessContexts {
 public:
  explicit PythonProcessContexts(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] std::shared_ptr<genetic::ProcessContext> fork_context() override;

 private:
  const ModuleGlobals& globals_;
};

// The Python object behind a queue of this host.
[[nodiscard]] nb::object object_of(const std::shared_ptr<genetic::MessageQueue>& queue);

}  // namespace varnholt::python
