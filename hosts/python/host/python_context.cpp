#include "hosts/python/host/python_context.hpp"

#include "hosts/python/errors/outgoing.hpp"
#include "hosts/python/host/python_attempts.hpp"
#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"

namespace varnholt::python {

using genetic::Callable;
using genetic::Value;

bool PythonStopEvent::is_set() {
  return is_true(call_method(event_, "is_set"));
}

bool PythonStopEvent::wait(double seconds) {
  return is_true(call_method(event_, "wait", {to_python(seconds)}));
}

std::shared_ptr<genetic::StopEvent> PythonSearchContext::stop_event() {
  nb::object event = attribute_or_none(context_, "_stop_event");
  if (event.is_none()) return nullptr;
  return std::make_shared<PythonStopEvent>(std::move(event));
}

Callable PythonSearchContext::fatal_callback() {
  const nb::object callback = attribute_or_none(context_, "_fatal_callback");
  return is_true(callback) ? any_callable(callback) : Callable();
}

Callable PythonSearchContext::record_search_run_metrics() {
  return callable_or_empty(attribute_or_none(context_, "record_search_run_metrics"));
}

std::optional<Value> PythonSearchContext::max_depth() {
  return attribute("max_depth");
}

std::optional<Value> PythonSearchContext::vocabulary() {
  return attribute("vocabulary");
}

std::optional<Value> PythonSearchContext::n_jobs() {
  return attribute("_n_jobs");
}

std::optional<Value> PythonSearchContext::worker_memory_limit_bytes() {
  return attribute("_worker_memory_limit_bytes");
}

std::optional<Value> PythonSearchContext::attribute(std::string_view name) {
  const std::optional<nb::object> found = find_attribute(context_, name);
  return found ? std::optional(to_value(*found)) : std::nullopt;
}

std::optional<Value> PythonSearchContext::opaque_attribute(std::string_view name) {
  const std::optional<nb::object> found = find_attribute(context_, name);
  return found ? std::optional(opaque_value(*found)) : std::nullopt;
}

Value PythonSearchContext::required_attribute(std::string_view name) {
  return opaque_value(python::attribute(context_, text_object(name)));
}

Callable PythonSearchContext::own_graph_validator() {
  return callable_or_empty(attribute_or_none(context_, "_graph_validator"));
}

Callable PythonSearchContext::backtester_validate_graph() {
  const nb::object backtester = attribute_or_none(context_, "_backtester");
  return callable_or_empty(attribute_or_none(backtester, "validate_graph"));
}

Callable PythonSearchContext::evaluate_for_template() {
  return callable_or_empty(attribute_or_none(context_, "_evaluate_for_template"));
}

std::optional<Value> PythonSearchContext::last_evaluation_record() {
  return attribute("_last_evaluation_record");
}

Callable PythonSearchContext::safe_record() {
  return callable_or_empty(attribute_or_none(context_, "_safe_record"));
}

Callable PythonSearchContext::required_safe_record() {
  return any_callable(python::attribute(context_, "_safe_record"));
}

void PythonSearchContext::activate_existing_attempt(const Value& source_attempt_id,
                                                    const Value& attempt_evidence) {
  call_method(context_, "_activate_existing_attempt",
              {to_python(source_attempt_id), to_python(attempt_evidence)});
}

Callable PythonSearchContext::enqueue_deferred_submission_payload() {
  return callable_or_empty(attribute_or_none(context_, "_enqueue_deferred_submission_payload"));
}

Callable PythonSearchContext::search_context_thresholds() {
  return callable_or_empty(attribute_or_none(context_, "_search_context_thresholds"));
}

Value PythonSearchContext::current_attempt_evidence() {
  return to_value(call_method(context_, "_current_attempt_evidence"));
}

Callable PythonSearchContext::derive_rejection_reason_detail() {
  return callable_or_empty(attribute_or_none(context_, "_derive_rejection_reason_detail"));
}

std::shared_ptr<genetic::AttemptTracker> PythonSearchContext::tracker() {
  return std::make_shared<PythonAttemptTracker>(python::attribute(context_, "_tracker"));
}

bool PythonSearchContext::submission_cancelled() {
  return is_true(call_method(context_, "_submission_cancelled"));
}

Callable PythonSearchContext::find_submission_cancelled() {
  return callable_unless_none(attribute_or_none(context_, "_submission_cancelled"));
}

std::exception_ptr PythonSearchContext::as_host_error(const std::exception_ptr& error) {
  return hosted_error(error);
}

Value PythonSearchContext::caught_object(const std::exception_ptr& error) {
  const nb::object exception = python_exception(error);
  return exception.is_valid() ? opaque_value(exception) : SearchContext::caught_object(error);
}

std::shared_ptr<const void> PythonSearchContext::handling(const std::exception_ptr& error) {
  return std::make_shared<HandledException>(error);
}

nb::object object_of(genetic::SearchContext& context) {
  return dynamic_cast<PythonSearchContext&>(context).object();
}

}  // namespace varnholt::python
