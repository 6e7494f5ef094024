// The queues of a host whose evaluator announces no backtest: nothing ever goes through them.
#pragma once

#include <memory>

#include "search_templates/genetic/host/message_queue.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {

class NoSignals : public ProcessContexts {
 public:
  [[nodiscard]] std::shared_ptr<ProcessContext> fork_context() override {
    return std::make_shared<Context>();
  }

 private:
  // Without a reader it is never read in the parent.
  class Queue : public MessageQueue {
   public:
    void put(const Value& /*message*/) override { throw_no_queues(); }
    [[nodiscard]] Value get() override { throw_no_queues(); }
    [[nodiscard]] std::shared_ptr<QueueReader> reader() override { return nullptr; }

   private:
    [[noreturn]] static void throw_no_queues() {
      throw RuntimeError(
          "this host has no queues between parent and children: override Host::process_contexts");
    }
  };
  class Context : public ProcessContext {
   public:
    [[nodiscard]] std::shared_ptr<MessageQueue> simple_queue() override {
      return std::make_shared<Queue>();
    }
  };
};

}  // namespace varnholt::genetic
