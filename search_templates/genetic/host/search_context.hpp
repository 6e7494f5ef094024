// One search's context: what the host hands to the template when it calls it.
//
// Every method below reads one attribute of the context, at the moment it is called and each time
// anew. A value that is missing and one that is absent are two answers: such a read gives
// std::optional. An operation that is missing or cannot be called is an empty Callable.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/stop_event.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class SearchContext {
 public:
  virtual ~SearchContext() = default;

  // Null when the context has no stop event, or an absent one.
  [[nodiscard]] virtual std::shared_ptr<StopEvent> stop_event() = 0;
  // Called with three texts when the runtime keeps failing. Empty when missing or false; one that
  // is there but cannot be called fails in the call.
  [[nodiscard]] virtual Callable fatal_callback() = 0;
  // Takes the metrics of the run as keyword arguments.
  [[nodiscard]] virtual Callable record_search_run_metrics() = 0;

  // The depth limit of graphs, the words they are made of, and the process settings. Missing gives
  // nothing.
  [[nodiscard]] virtual std::optional<Value> max_depth() = 0;
  [[nodiscard]] virtual std::optional<Value> vocabulary() = 0;
  [[nodiscard]] virtual std::optional<Value> n_jobs() = 0;
  [[nodiscard]] virtual std::optional<Value> worker_memory_limit_bytes() = 0;
  // Any attribute by its name in the host.
  [[nodiscard]] virtual std::optional<Value> attribute(std::string_view name) = 0;

  // Validates one graph and throws when it refuses it: the context's own operation, and the
  // backtester's.
  [[nodiscard]] virtual Callable own_graph_validator() = 0;
  [[nodiscard]] virtual Callable backtester_validate_graph() = 0;

  // The evaluator: one graph in, a mapping with the evaluation's record out. Runs in a child.
  [[nodiscard]] virtual Callable evaluate_for_template() = 0;
  // The record of the evaluation that ran last.
  [[nodiscard]] virtual std::optional<Value> last_evaluation_record() = 0;
  // Records one attempt.
  [[nodiscard]] virtual Callable safe_record() = 0;
  // The evidence of the attempt that is being worked on. Its failure passes to the caller.
  [[nodiscard]] virtual Value current_attempt_evidence() = 0;
  // Tells from statistics why a candidate failed: a pair of reason and detail, each or absent.
  [[nodiscard]] virtual Callable derive_rejection_reason_detail() = 0;
};

}  // namespace varnholt::genetic
