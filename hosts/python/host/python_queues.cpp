#include "hosts/python/host/python_queues.hpp"

#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"

namespace varnholt::python {
namespace {

using genetic::MessageQueue;
using genetic::Value;

class PythonQueueReader : public genetic::QueueReader {
 public:
  explicit PythonQueueReader(nb::object reader) : reader_(std::move(reader)) {}

  [[nodiscard]] bool poll() override { return is_true(call_method(reader_, "poll")); }

 private:
  nb::object reader_;
};

class PythonProcessContext : public genetic::ProcessContext {
 public:
  explicit PythonProcessContext(nb::object context) : context_(std::move(context)) {}

  [[nodiscard]] std::shared_ptr<MessageQueue> simple_queue() override {
    return std::make_shared<PythonMessageQueue>(call_method(context_, "SimpleQueue"));
  }

 private:
  nb::object context_;
};

}  // namespace

void PythonMessageQueue::put(const Value& message) {
  call_method(queue_, "put", {to_python(message)});
}

Value PythonMessageQueue::get() {
  return to_value(call_method(queue_, "get"));
}

std::shared_ptr<genetic::QueueReader> PythonMessageQueue::reader() {
  nb::object reader = attribute_or_none(queue_, "_reader");
  if (reader.is_none()) return nullptr;
  return std::make_shared<PythonQueueReader>(std::move(reader));
}

std::shared_ptr<MessageQueue> message_queue(const nb::object& queue) {
  if (queue.is_none()) return nullptr;
  return std::make_shared<PythonMessageQueue>(queue);
}

std::shared_ptr<MessageQueue> PythonAcknowledgementQueues::at(const Value& candidate_index) {
  return std::make_shared<PythonMessageQueue>(
      checked(PyObject_GetItem(queues_.ptr(), to_python(candidate_index).ptr())));
}

std::shared_ptr<MessageQueue> PythonAcknowledgementQueues::find(const Value& candidate_index) {
  return message_queue(call_method(queues_, "get", {to_python(candidate_index)}));
}

std::shared_ptr<genetic::AcknowledgementQueues> acknowledgement_queues(const nb::object& queues) {
  if (queues.is_none()) return nullptr;
  return std::make_shared<PythonAcknowledgementQueues>(queues);
}

std::shared_ptr<genetic::ProcessContext> PythonProcessContexts::fork_context() {
  return std::make_shared<PythonProcessContext>(
      call_method(globals_.get("_process_evaluation"), "_fork_context"));
}

nb::object object_of(const std::shared_ptr<MessageQueue>& queue) {
  return dynamic_cast<const PythonMessageQueue&>(*queue).object();
}

}  // namespace varnholt::python
