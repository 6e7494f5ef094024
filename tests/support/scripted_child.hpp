// What the hand-made context and engine are to a child. See scripted_host.hpp for how they are
// scripted.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/child_context.hpp"
#include "search_templates/genetic/host/message_queue.hpp"
#include "search_templates/genetic/host/operation_table.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

// The queues of candidates by index, as a test made them.
class ScriptedAcknowledgementQueues : public AcknowledgementQueues {
 public:
  explicit ScriptedAcknowledgementQueues(CandidateQueues queues) : queues_(std::move(queues)) {}

  [[nodiscard]] std::shared_ptr<MessageQueue> at(const Value& candidate_index) override {
    return find(candidate_index);
  }
  [[nodiscard]] std::shared_ptr<MessageQueue> find(const Value& candidate_index) override {
    for (const auto& [index, queue] : queues_)
      if (index == candidate_index) return queue;
    return nullptr;
  }

 private:
  CandidateQueues queues_;
};

// An evaluation state that writes down what is set.
class ScriptedEvaluationState : public OwnEvaluationState {
 public:
  explicit ScriptedEvaluationState(CallLog& log) : log_(log) {}

  void set_attempt_id(const Value& attempt_id) override {
    log_.add("state.attempt_id", {attempt_id});
    OwnEvaluationState::set_attempt_id(attempt_id);
  }
  void set_parent_owned_attempt(const Value& parent_owned_attempt) override {
    log_.add("state.parent_owned_attempt", {parent_owned_attempt});
    OwnEvaluationState::set_parent_owned_attempt(parent_owned_attempt);
  }

 private:
  CallLog& log_;
};

// An object with the operations that a test gives it; every change of one is written down.
class ScriptedOperations : public OperationTable {
 public:
  ScriptedOperations(CallLog& log, std::string name, const Mapping& operations)
      : OperationTable(operations), log_(log), name_(std::move(name)) {}

  // Called before an operation is replaced, and before a replacement is taken off.
  std::function<void(std::string_view)> on_set = [](std::string_view) {};
  std::function<void(std::string_view)> on_delete = [](std::string_view) {};

  void set_attribute(std::string_view name, const Value& value) override {
    log_.add(name_ + ".set", {name});
    on_set(name);
    OperationTable::set_attribute(name, value);
  }
  void delete_attribute(std::string_view name) override {
    log_.add(name_ + ".delete", {name});
    on_delete(name);
    OperationTable::delete_attribute(name);
  }
  // The operation that stands there now.
  [[nodiscard]] Callable operation(std::string_view name) {
    return callable_of(required_attribute(name));
  }

 private:
  CallLog& log_;
  std::string name_;
};

class ScriptedChild : public ChildContext {
 public:
  explicit ScriptedChild(CallLog& log)
      : state(std::make_shared<ScriptedEvaluationState>(log)),
        context_operations(
            std::make_shared<ScriptedOperations>(log, "context_operations", parent_operations())),
        log_(log) {}

  std::shared_ptr<ScriptedEvaluationState> state;
  std::shared_ptr<ScriptedOperations> context_operations;
  std::function<Callable()> on_set_last_evaluation_record = always(Callable());
  std::function<void(const Value&)> on_assign_last_evaluation_record = [](const Value&) {};

  // The four that a context of this host has; none of them can be called.
  [[nodiscard]] static Mapping parent_operations() {
    Mapping operations;
    for (const Key name : {operation_names::kSyncManager, operation_names::kSafeRecord,
                           operation_names::kEnqueueDeferredSubmissionPayload,
                           operation_names::kRecordSearchRunMetrics}) {
      operations.set(name, "the parent's");
    }
    return operations;
  }

  [[nodiscard]] std::shared_ptr<TemplateEvaluationState> template_evaluation_state() override {
    return state;
  }
  [[nodiscard]] std::shared_ptr<ReplaceableObject> operations() override {
    return context_operations;
  }
  [[nodiscard]] Callable set_last_evaluation_record() override {
    log_.add("context.set_last_evaluation_record()");
    return on_set_last_evaluation_record();
  }
  void assign_last_evaluation_record(const Value& record) override {
    log_.add("context.assign_last_evaluation_record", {record});
    on_assign_last_evaluation_record(record);
  }

 private:
  CallLog& log_;
};

}  // namespace varnholt::genetic::test
