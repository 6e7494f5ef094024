#include "hosts/embedded/host/fork_queues.hpp"

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include <unistd.h>

#include "hosts/embedded/host/message_wire.hpp"
#include "hosts/embedded/pool/mailbox.hpp"
#include "hosts/embedded/pool/message_pipe.hpp"
#include "hosts/embedded/pool/pool_types.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::embedded {

using genetic::Value;

class ForkContext : public genetic::ProcessContext,
                    public std::enable_shared_from_this<ForkContext> {
 public:
  explicit ForkContext(SystemCalls& system) : parent_(::getpid()), pipe_(system), arena_(system) {}

  [[nodiscard]] std::shared_ptr<genetic::MessageQueue> simple_queue() override;

  [[nodiscard]] bool is_parent() const { return ::getpid() == parent_; }
  [[nodiscard]] MessagePipe& pipe() { return pipe_; }
  [[nodiscard]] Mailbox& mailbox(std::uint32_t queue) { return mailboxes_[queue]; }

  void hold_messages() { is_holding_ = true; }
  void put_to_child(std::uint32_t queue, std::string bytes) {
    if (!is_holding_) return send(queue, bytes);
    held_.push_back({queue, std::move(bytes)});
  }
  void send_held() {
    for (const PipeMessage& message : std::exchange(held_, {}))
      send(message.box, message.bytes);
  }

  // Whether the parent has a message for the queue, without waiting.
  [[nodiscard]] bool has_message(std::uint32_t queue) {
    while (received_[queue].empty() && pipe_.poll())
      keep(pipe_.take());
    return !received_[queue].empty();
  }
  [[nodiscard]] std::string take_message(std::uint32_t queue) {
    while (received_[queue].empty())
      keep(pipe_.take());
    std::string message = std::move(received_[queue].front());
    received_[queue].pop_front();
    return message;
  }

 private:
  void send(std::uint32_t queue, std::string_view bytes) {
    if (mailboxes_[queue].put(bytes)) return;
    throw genetic::RuntimeError("a child has not taken the messages that were put before");
  }
  void keep(PipeMessage message) {
    if (message.box >= received_.size()) {
      throw PoolError("worker pool: a child sent a message for a queue that there is not");
    }
    received_[message.box].push_back(std::move(message.bytes));
  }

  pid_t parent_;
  MessagePipe pipe_;
  MailboxArena arena_;
  bool is_holding_ = false;
  std::vector<PipeMessage> held_;
  // Both by the number of the queue.
  std::vector<Mailbox> mailboxes_;
  std::vector<std::deque<std::string>> received_;
};

namespace {

class ForkQueue : public genetic::MessageQueue, public std::enable_shared_from_this<ForkQueue> {
 public:
  ForkQueue(std::shared_ptr<ForkContext> context, std::uint32_t number)
      : context_(std::move(context)), number_(number) {}

  void put(const Value& message) override {
    std::string bytes = encode_message(message);
    if (!context_->is_parent()) return context_->pipe().send(number_, bytes);
    context_->put_to_child(number_, std::move(bytes));
  }

  [[nodiscard]] Value get() override {
    return decode_message(context_->is_parent() ? context_->take_message(number_)
                                                : context_->mailbox(number_).take());
  }

  [[nodiscard]] std::shared_ptr<genetic::QueueReader> reader() override;

  [[nodiscard]] bool has_message() { return context_->has_message(number_); }

 private:
  std::shared_ptr<ForkContext> context_;
  std::uint32_t number_;
};

class ForkQueueReader : public genetic::QueueReader {
 public:
  explicit ForkQueueReader(std::shared_ptr<ForkQueue> queue) : queue_(std::move(queue)) {}

  [[nodiscard]] bool poll() override { return queue_->has_message(); }

 private:
  std::shared_ptr<ForkQueue> queue_;
};

std::shared_ptr<genetic::QueueReader> ForkQueue::reader() {
  return std::make_shared<ForkQueueReader>(shared_from_this());
}

}  // namespace

std::shared_ptr<genetic::MessageQueue> ForkContext::simple_queue() {
  const auto number = static_cast<std::uint32_t>(received_.size());
  mailboxes_.push_back(arena_.make());
  received_.emplace_back();
  return std::make_shared<ForkQueue>(shared_from_this(), number);
}

std::shared_ptr<genetic::ProcessContext> ForkQueues::fork_context() {
  auto context = std::make_shared<ForkContext>(system_);
  current_ = context;
  return context;
}

void ForkQueues::hold_messages() {
  if (const std::shared_ptr<ForkContext> context = current_.lock()) context->hold_messages();
}

void ForkQueues::send_held() {
  if (const std::shared_ptr<ForkContext> context = current_.lock()) context->send_held();
}

std::vector<int> ForkQueues::parent_descriptors() const {
  const std::shared_ptr<ForkContext> context = current_.lock();
  if (context == nullptr) return {};
  return {context->pipe().read_descriptor()};
}

}  // namespace varnholt::embedded
