// The search context and the engine in a child process, and what is put onto them there.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/host/child_context.hpp"
#include "search_templates/genetic/host/replaceable_object.hpp"
#include "search_templates/genetic/process/child_stand_ins.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// Any object: its operations are its attributes, and its own values are those of `vars(object)`.
// Values are the very objects.
class PythonReplaceableObject : public genetic::ReplaceableObject {
 public:
  explicit PythonReplaceableObject(nb::object object) : object_(std::move(object)) {}

  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) override;
  [[nodiscard]] genetic::Value required_attribute(std::string_view name) override;
  [[nodiscard]] std::optional<genetic::Value> instance_value(std::string_view name) override;
  void set_attribute(std::string_view name, const genetic::Value& value) override;
  void delete_attribute(std::string_view name) override;

 private:
  nb::object object_;
};

// `ctx._template_evaluation_state`.
class PythonEvaluationState : public genetic::TemplateEvaluationState {
 public:
  explicit PythonEvaluationState(nb::object state) : state_(std::move(state)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return state_; }

  [[nodiscard]] std::optional<genetic::Value> attempt_id() override;
  void set_attempt_id(const genetic::Value& attempt_id) override;
  [[nodiscard]] std::optional<genetic::Value> parent_owned_attempt() override;
  void set_parent_owned_attempt(const genetic::Value& parent_owned_attempt) override;

 private:
  nb::object state_;
};

// `ctx`.
class PythonChildContext : public genetic::ChildContext {
 public:
  explicit PythonChildContext(nb::object context) : context_(std::move(context)) {}

  [[nodiscard]] std::shared_ptr<genetic::TemplateEvaluationState> template_evaluation_state()
      override;
  [[nodiscard]] std::shared_ptr<genetic::ReplaceableObject> operations() override;
  [[nodiscard]] genetic::Callable set_last_evaluation_record() override;
  void assign_last_evaluation_record(const genetic::Value& record) override;

 private:
  nb::object context_;
};

// What a child's evaluation is given, as the Python objects that they are.
struct ChildObjects {
  nb::object context;
  nb::object candidate;
  nb::object found_pnl_paths;
  nb::object boundary_queue;
  nb::object acknowledgement_queues;
};

// Python functions, which hold what they need as closures do, so that the collector sees it.
class PythonChildStandIns : public genetic::ChildStandIns {
 public:
  explicit PythonChildStandIns(ChildObjects objects) : objects_(std::move(objects)) {}

  [[nodiscard]] genetic::Value attempt_marker(
      const genetic::Value& process_attempt,
      const std::shared_ptr<genetic::TemplateEvaluationState>& evaluation_state) override;
  [[nodiscard]] genetic::Value sync_snapshot(const genetic::Value& sync_manager) override;
  [[nodiscard]] genetic::Value recorder() override;
  [[nodiscard]] genetic::Value forbidden(std::string_view operation_name) override;

 private:
  ChildObjects objects_;
};

}  // namespace varnholt::python
