#include "hosts/python/host/python_child.hpp"

#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {
namespace {

using genetic::Value;

std::optional<Value> opaque(const std::optional<nb::object>& found) {
  return found ? std::optional(opaque_value(*found)) : std::nullopt;
}

// vars(object), or nothing for an object that has none.
std::optional<nb::object> instance_values(const nb::object& object) {
  return genetic::catching(
      {genetic::ErrorKind::kTypeError},
      [&object] { return find_attribute(object, std::string_view("__dict__")); },
      [](const genetic::Error&) { return std::optional<nb::object>(); });
}

bool is_mapping(const nb::object& object) {
  return PyDict_Check(object.ptr()) != 0 ||
         is_instance(object, attribute(import_module("collections.abc"), "Mapping"));
}

}  // namespace

std::optional<Value> PythonReplaceableObject::attribute(std::string_view name) {
  return opaque(find_attribute(object_, name));
}

Value PythonReplaceableObject::required_attribute(std::string_view name) {
  return opaque_value(python::attribute(object_, text_object(name)));
}

std::optional<Value> PythonReplaceableObject::instance_value(std::string_view name) {
  const std::optional<nb::object> values = instance_values(object_);
  if (!values || !is_mapping(*values)) return std::nullopt;
  const nb::object key = text_object(name);
  if (checked(PySequence_Contains(values->ptr(), key.ptr())) == 0) return std::nullopt;
  return opaque_value(checked(PyObject_GetItem(values->ptr(), key.ptr())));
}

void PythonReplaceableObject::set_attribute(std::string_view name, const Value& value) {
  checked(PyObject_SetAttr(object_.ptr(), text_object(name).ptr(), to_python(value).ptr()));
}

void PythonReplaceableObject::delete_attribute(std::string_view name) {
  checked(PyObject_SetAttr(object_.ptr(), text_object(name).ptr(), nullptr));
}

std::optional<Value> PythonEvaluationState::attempt_id() {
  return opaque(find_attribute(state_, std::string_view("attempt_id")));
}

void PythonEvaluationState::set_attempt_id(const Value& attempt_id) {
  set_attribute(state_, "attempt_id", to_python(attempt_id));
}

std::optional<Value> PythonEvaluationState::parent_owned_attempt() {
  return opaque(find_attribute(state_, std::string_view("parent_owned_attempt")));
}

void PythonEvaluationState::set_parent_owned_attempt(const Value& parent_owned_attempt) {
  set_attribute(state_, "parent_owned_attempt", to_python(parent_owned_attempt));
}

std::shared_ptr<genetic::TemplateEvaluationState> PythonChildContext::template_evaluation_state() {
  return std::make_shared<PythonEvaluationState>(attribute(context_, "_template_evaluation_state"));
}

std::shared_ptr<genetic::ReplaceableObject> PythonChildContext::operations() {
  return std::make_shared<PythonReplaceableObject>(context_);
}

genetic::Callable PythonChildContext::set_last_evaluation_record() {
  return callable_or_empty(attribute_or_none(context_, "_set_last_evaluation_record"));
}

void PythonChildContext::assign_last_evaluation_record(const Value& record) {
  set_attribute(context_, "_last_evaluation_record", to_python(record));
}

Value PythonChildStandIns::attempt_marker(
    const Value& process_attempt,
    const std::shared_ptr<genetic::TemplateEvaluationState>& evaluation_state) {
  return opaque_value(
      call(callback_factory("attempt_marker"),
           {objects_.boundary_queue, objects_.acknowledgement_queues, objects_.candidate,
            to_python(process_attempt),
            dynamic_cast<const PythonEvaluationState&>(*evaluation_state).object()}));
}

Value PythonChildStandIns::sync_snapshot(const Value& sync_manager) {
  return opaque_value(
      call(callback_factory("sync_snapshot"), {to_python(sync_manager), objects_.found_pnl_paths}));
}

Value PythonChildStandIns::recorder() {
  return opaque_value(call(callback_factory("recorder"), {objects_.context}));
}

Value PythonChildStandIns::forbidden(std::string_view operation_name) {
  return opaque_value(call(callback_factory("forbidden"), {text_object(operation_name)}));
}

}  // namespace varnholt::python
