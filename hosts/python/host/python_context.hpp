// The search context that a Python host hands to the template.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <nanobind/nanobind.h>

#include "hosts/python/host/python_child.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/host/stop_event.hpp"

namespace varnholt::python {

namespace nb = nanobind;

class PythonStopEvent : public genetic::StopEvent {
 public:
  explicit PythonStopEvent(nb::object event) : event_(std::move(event)) {}

  [[nodiscard]] bool is_set() override;
  [[nodiscard]] bool wait(double seconds) override;

 private:
  nb::object event_;
};

// Reads attributes of `ctx` as `getattr` with a default does: only AttributeError means missing.
class PythonSearchContext : public genetic::SearchContext {
 public:
  explicit PythonSearchContext(nb::object context)
      : context_(std::move(context)), child_(context_) {}

  [[nodiscard]] const nb::object& object() const noexcept { return context_; }

  [[nodiscard]] std::shared_ptr<genetic::StopEvent> stop_event() override;
  [[nodiscard]] genetic::Callable fatal_callback() override;
  [[nodiscard]] genetic::Callable record_search_run_metrics() override;

  [[nodiscard]] std::optional<genetic::Value> max_depth() override;
  [[nodiscard]] std::optional<genetic::Value> vocabulary() override;
  [[nodiscard]] std::optional<genetic::Value> n_jobs() override;
  [[nodiscard]] std::optional<genetic::Value> worker_memory_limit_bytes() override;
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) override;
  // The very object, whatever its type.
  [[nodiscard]] std::optional<genetic::Value> opaque_attribute(std::string_view name) override;
  [[nodiscard]] genetic::Value required_attribute(std::string_view name) override;

  [[nodiscard]] genetic::Callable own_graph_validator() override;
  [[nodiscard]] genetic::Callable backtester_validate_graph() override;

  [[nodiscard]] genetic::Callable evaluate_for_template() override;
  [[nodiscard]] std::optional<genetic::Value> last_evaluation_record() override;
  [[nodiscard]] genetic::Callable safe_record() override;
  // The plain attribute, which may turn out not to be callable.
  [[nodiscard]] genetic::Callable required_safe_record() override;
  void activate_existing_attempt(const genetic::Value& source_attempt_id,
                                 const genetic::Value& attempt_evidence) override;
  [[nodiscard]] genetic::Callable enqueue_deferred_submission_payload() override;
  [[nodiscard]] genetic::Callable search_context_thresholds() override;
  [[nodiscard]] genetic::Value current_attempt_evidence() override;
  [[nodiscard]] genetic::Callable derive_rejection_reason_detail() override;

  // The plain attribute, and the call of the plain attribute.
  [[nodiscard]] std::shared_ptr<genetic::AttemptTracker> tracker() override;
  [[nodiscard]] bool submission_cancelled() override;
  // The attribute itself.
  [[nodiscard]] genetic::Callable find_submission_cancelled() override;
  [[nodiscard]] genetic::ChildContext& child() override { return child_; }

  // An error of the library's own becomes the exception that it will be raised as.
  [[nodiscard]] std::exception_ptr as_host_error(const std::exception_ptr& error) override;
  // The exception object, an interrupt's too.
  [[nodiscard]] genetic::Value caught_object(const std::exception_ptr& error) override;

  // `error` is what `sys.exc_info` tells meanwhile, and the context of what fails.
  [[nodiscard]] std::shared_ptr<const void> handling(const std::exception_ptr& error) override;

 private:
  nb::object context_;
  PythonChildContext child_;
};

// The `ctx` behind a context of this host.
[[nodiscard]] nb::object object_of(genetic::SearchContext& context);

}  // namespace varnholt::python
