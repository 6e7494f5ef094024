// The hand-made search context and its stop event. See scripted_host.hpp for how they are scripted.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/host/stop_event.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_answers.hpp"
#include "tests/support/scripted_child.hpp"

namespace varnholt::genetic::test {

class ScriptedStopEvent : public StopEvent {
 public:
  explicit ScriptedStopEvent(CallLog& log) : log_(log) {}

  std::function<bool()> on_is_set = always(false);
  std::function<bool(double)> on_wait = always(false);

  [[nodiscard]] bool is_set() override {
    log_.add("stop_event.is_set()");
    return on_is_set();
  }
  [[nodiscard]] bool wait(double seconds) override {
    log_.add("stop_event.wait", {seconds});
    return on_wait(seconds);
  }

 private:
  CallLog& log_;
};

// An answer to SearchContext::handling that writes into the log when an error begins to be handled,
// with its text, and when that is over.
[[nodiscard]] inline auto logged_handling(CallLog& log) {
  return [&log](const std::exception_ptr& error) {
    log.add("context.handling", {error_of([&error] { std::rethrow_exception(error); })});
    return std::shared_ptr<const void>(&log, [](CallLog* ended) { ended->add("handled"); });
  };
}

class ScriptedContext : public SearchContext {
  CallLog& log_;

  // An attribute stands in the log under its bare name.
  template <typename Function>
  auto read(const char* name, const Function& answer) {
    log_.add(std::string(name));
    return answer();
  }

 public:
  explicit ScriptedContext(CallLog& log) : log_(log) {}

  // A missing value or operation is the default of every attribute.
  std::function<std::shared_ptr<StopEvent>()> on_stop_event = always(nullptr);
  std::function<Callable()> on_fatal_callback = always(Callable());
  std::function<Callable()> on_record_search_run_metrics = always(Callable());
  std::function<std::optional<Value>()> on_max_depth = always(std::nullopt);
  std::function<std::optional<Value>()> on_vocabulary = always(std::nullopt);
  std::function<std::optional<Value>()> on_n_jobs = always(std::nullopt);
  std::function<std::optional<Value>()> on_worker_memory_limit_bytes = always(std::nullopt);
  std::function<std::optional<Value>(std::string_view)> on_attribute = always(std::nullopt);
  std::function<Callable()> on_own_graph_validator = always(Callable());
  std::function<Callable()> on_backtester_validate_graph = always(Callable());
  std::function<Callable()> on_evaluate_for_template = always(Callable());
  std::function<std::optional<Value>()> on_last_evaluation_record = always(std::nullopt);
  std::function<Callable()> on_safe_record = always(Callable());
  // Missing as well: reading it where it is required fails.
  std::function<Callable()> on_required_safe_record =
      failing(AttributeError("'SearchContext' object has no attribute '_safe_record'"));
  std::function<void(const Value&, const Value&)> on_activate_existing_attempt =
      [](const Value&, const Value&) {};
  std::function<Callable()> on_enqueue_deferred_submission_payload = always(Callable());
  std::function<Callable()> on_search_context_thresholds = always(Callable());
  std::function<Value()> on_current_attempt_evidence = always(Value());
  std::function<Callable()> on_derive_rejection_reason_detail = always(Callable());
  // No tracker: a test that has one gives it.
  std::function<std::shared_ptr<AttemptTracker>()> on_tracker =
      failing(AttributeError("'SearchContext' object has no attribute '_tracker'"));
  std::function<bool()> on_submission_cancelled = always(false);
  // What the context is to a child.
  ScriptedChild in_child{log_};
  // Not in the log unless logged_handling() writes it.
  std::function<std::shared_ptr<const void>(const std::exception_ptr&)> on_handling =
      always(nullptr);

  [[nodiscard]] std::shared_ptr<StopEvent> stop_event() override {
    return read("context.stop_event", on_stop_event);
  }
  [[nodiscard]] Callable fatal_callback() override {
    return read("context.fatal_callback", on_fatal_callback);
  }
  [[nodiscard]] Callable record_search_run_metrics() override {
    return read("context.record_search_run_metrics", on_record_search_run_metrics);
  }
  [[nodiscard]] std::optional<Value> max_depth() override {
    return read("context.max_depth", on_max_depth);
  }
  [[nodiscard]] std::optional<Value> vocabulary() override {
    return read("context.vocabulary", on_vocabulary);
  }
  [[nodiscard]] std::optional<Value> n_jobs() override { return read("context.n_jobs", on_n_jobs); }
  [[nodiscard]] std::optional<Value> worker_memory_limit_bytes() override {
    return read("context.worker_memory_limit_bytes", on_worker_memory_limit_bytes);
  }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) override {
    log_.add("context.attribute", {name});
    return on_attribute(name);
  }
  [[nodiscard]] Callable own_graph_validator() override {
    return read("context.own_graph_validator", on_own_graph_validator);
  }
  [[nodiscard]] Callable backtester_validate_graph() override {
    return read("context.backtester_validate_graph", on_backtester_validate_graph);
  }
  [[nodiscard]] Callable evaluate_for_template() override {
    return read("context.evaluate_for_template", on_evaluate_for_template);
  }
  [[nodiscard]] std::optional<Value> last_evaluation_record() override {
    return read("context.last_evaluation_record", on_last_evaluation_record);
  }
  [[nodiscard]] Callable safe_record() override {
    return read("context.safe_record", on_safe_record);
  }
  [[nodiscard]] Callable required_safe_record() override {
    return read("context.required_safe_record", on_required_safe_record);
  }
  void activate_existing_attempt(const Value& source_attempt_id,
                                 const Value& attempt_evidence) override {
    log_.add("context.activate_existing_attempt", {source_attempt_id, attempt_evidence});
    on_activate_existing_attempt(source_attempt_id, attempt_evidence);
  }
  [[nodiscard]] Callable enqueue_deferred_submission_payload() override {
    return read("context.enqueue_deferred_submission_payload",
                on_enqueue_deferred_submission_payload);
  }
  [[nodiscard]] Callable search_context_thresholds() override {
    return read("context.search_context_thresholds", on_search_context_thresholds);
  }
  [[nodiscard]] Value current_attempt_evidence() override {
    log_.add("context.current_attempt_evidence()");
    return on_current_attempt_evidence();
  }
  [[nodiscard]] Callable derive_rejection_reason_detail() override {
    return read("context.derive_rejection_reason_detail", on_derive_rejection_reason_detail);
  }
  [[nodiscard]] std::shared_ptr<AttemptTracker> tracker() override {
    return read("context.tracker", on_tracker);
  }
  [[nodiscard]] bool submission_cancelled() override {
    log_.add("context.submission_cancelled()");
    return on_submission_cancelled();
  }
  [[nodiscard]] ChildContext& child() override { return in_child; }
  [[nodiscard]] std::shared_ptr<const void> handling(const std::exception_ptr& error) override {
    return on_handling(error);
  }
};

}  // namespace varnholt::genetic::test
