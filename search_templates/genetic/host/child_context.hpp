// What the evaluation of one candidate in a child process asks of the search context, beside the
// evaluator itself. Everything here is called in the child.
#pragma once

#include <memory>
#include <optional>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/operation_table.hpp"
#include "search_templates/genetic/host/replaceable_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What the evaluator is told about the attempt that it works for. It reads both whenever it makes
// evidence.
class TemplateEvaluationState {
 public:
  virtual ~TemplateEvaluationState() = default;

  // The identity of the attempt; nothing where the host has not set any.
  [[nodiscard]] virtual std::optional<Value> attempt_id() = 0;
  virtual void set_attempt_id(const Value& attempt_id) = 0;
  // True tells the evaluator that the parent owns the attempt.
  [[nodiscard]] virtual std::optional<Value> parent_owned_attempt() = 0;
  virtual void set_parent_owned_attempt(const Value& parent_owned_attempt) = 0;
};

// The state of a host in C++. The attempt is the parent's from the start of an evaluation in a
// child to its end.
class OwnEvaluationState : public TemplateEvaluationState {
 public:
  [[nodiscard]] std::optional<Value> attempt_id() override { return attempt_id_; }
  void set_attempt_id(const Value& attempt_id) override { attempt_id_ = attempt_id; }
  [[nodiscard]] std::optional<Value> parent_owned_attempt() override {
    return parent_owned_attempt_;
  }
  void set_parent_owned_attempt(const Value& parent_owned_attempt) override {
    parent_owned_attempt_ = parent_owned_attempt;
  }

 private:
  Value attempt_id_;
  Value parent_owned_attempt_ = false;
};

class ChildContext {
 public:
  virtual ~ChildContext() = default;

  // AttributeError when the context has none.
  [[nodiscard]] virtual std::shared_ptr<TemplateEvaluationState> template_evaluation_state() = 0;
  // The context itself, for its guards.
  [[nodiscard]] virtual std::shared_ptr<ReplaceableObject> operations() = 0;
  // Takes the record of the evaluation; empty when the context has no such operation, and then the
  // record is assigned.
  [[nodiscard]] virtual Callable set_last_evaluation_record() = 0;
  virtual void assign_last_evaluation_record(const Value& record) = 0;
};

// For a context that offers no operation to be replaced, and that nothing asks for its last record.
// What it gives is made when it is asked for first: most contexts are never asked.
class PlainChild : public ChildContext {
 public:
  [[nodiscard]] std::shared_ptr<TemplateEvaluationState> template_evaluation_state() override {
    if (state_ == nullptr) state_ = std::make_shared<OwnEvaluationState>();
    return state_;
  }
  [[nodiscard]] std::shared_ptr<ReplaceableObject> operations() override {
    if (operations_ == nullptr) operations_ = std::make_shared<OperationTable>(Mapping());
    return operations_;
  }
  [[nodiscard]] Callable set_last_evaluation_record() override { return {}; }
  void assign_last_evaluation_record(const Value& /*record*/) override {}

 private:
  std::shared_ptr<TemplateEvaluationState> state_;
  std::shared_ptr<ReplaceableObject> operations_;
};

}  // namespace varnholt::genetic
