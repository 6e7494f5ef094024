// The host's worker pool and its vocabulary of failures.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// How many worker processes a batch gets, and why.
class WorkerResolution {
 public:
  virtual ~WorkerResolution() = default;

  [[nodiscard]] virtual Value resolved() const = 0;
};

// One batch's configuration, in the order in which the pool is given it.
//
// An event is a mapping with `event`, `candidate_index`, `attempt` and `candidate`, the work item;
// where a worker failed also with `failure_reason`, `error` and `retrying`. All callbacks are
// called in the parent, on the thread that runs the batch, one at a time. What one of them throws
// ends the batch, and leaves the pool unchanged.
struct ProcessEvaluationConfig {
  // The jobs asked for; the pool resolves by itself how many it runs.
  Value n_jobs = 1;
  // How often a candidate whose worker was lost is tried again.
  std::int64_t max_retries = 1;
  Value timeout_seconds;
  Value process_priority;
  Value worker_memory_limit_bytes;
  // Absent when the context has none.
  Value worker_processes;
  // (event), before a work item goes to a worker: it writes the number of the attempt into the
  // item's metadata, under `process_attempt`, for the child to read.
  Callable pre_dispatch_callback;
  // (event): "started", "ok", "error".
  Callable lifecycle_callback;
  // (event): "started", "ok", "error"; other names are ignored.
  Callable progress_callback;
  // (process result), at the moment at which the result completes.
  Callable completed_result_callback;
  // (), often, while the parent waits: it answers a child that waits at the start of its backtest.
  Callable parent_poll_callback;
  // () -> whether the search is cancelled. Empty when the context has no such operation.
  Callable stop_requested;
  // Time-outs are reported as terminal errors once the other candidates of the batch are done.
  bool drain_terminal_timeouts = true;
};

// The worker pool with the configuration of one batch.
class ConfiguredPool {
 public:
  virtual ~ConfiguredPool() = default;

  // Runs `simulate`, (work item) -> candidate result record, on every work item, each in a child
  // process of its own. Returns an iterable of process results (pool_objects.hpp) in any order. A
  // candidate may have none. Throws a process evaluation error for candidates whose process failed.
  [[nodiscard]] virtual Value evaluate_candidate_batch(const List& candidates,
                                                       const Callable& simulate) = 0;
};

class ProcessEvaluation {
 public:
  virtual ~ProcessEvaluation() = default;

  // Constants, read where the rules read them: the time that one candidate may take, the memory
  // that one worker may take, and the reasons for which a process ends.
  [[nodiscard]] virtual Value default_search_template_timeout_seconds() { return 600.0; }
  [[nodiscard]] virtual Value default_worker_memory_limit_bytes() {
    return std::numeric_limits<std::int64_t>::max();
  }
  [[nodiscard]] virtual Value terminal_worker_failed() { return "worker_failed"; }
  [[nodiscard]] virtual Value terminal_worker_timeout() { return "worker_timeout"; }
  [[nodiscard]] virtual Value terminal_process_priority_failed() {
    return "process_priority_failed";
  }
  [[nodiscard]] virtual Value terminal_memory_budget_exceeded() { return "memory_budget_exceeded"; }

  // The error object when `error` is a failure of process evaluation. Its attributes
  // `terminal_reason`, `detail`, `candidate_index`, `failure_count` and `terminal_errors`, a
  // sequence of errors of this kind, may each be missing.
  [[nodiscard]] virtual std::optional<Value> as_error(const std::exception& /*error*/) {
    return std::nullopt;
  }
  // The same of whatever left the pool. An interrupt is no such failure; a host whose language asks
  // for the type of its error even then does so here.
  [[nodiscard]] virtual std::optional<Value> as_caught_error(const std::exception_ptr& error) {
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& ordinary) {
      return as_error(ordinary);
    } catch (...) {
      return std::nullopt;
    }
  }

  // `requested` reads the jobs asked for: it is called once, when the host has found its own
  // operation.
  [[nodiscard]] virtual std::unique_ptr<WorkerResolution> resolve_process_worker_count_details(
      const std::function<Value()>& requested, const Value& candidate_count) = 0;
  // Logs that fewer workers run than were asked for, once for each `cache_owner`.
  virtual void log_worker_count_reduction(Logger& /*logger*/,
                                          const WorkerResolution& /*resolution*/,
                                          std::string_view /*scope*/,
                                          SearchContext& /*cache_owner*/,
                                          std::string_view /*detail*/) {}

  // Warms the parent's feature data for a list of graphs, so that the children that are forked for
  // them inherit it.
  virtual void prefetch_candidate_features(SearchContext& /*context*/, const List& /*graphs*/) {}
  // The work item of one candidate: an object with the attributes `candidate_index`, `graph` and
  // `metadata`, a mapping that can be written.
  [[nodiscard]] virtual Value candidate_evaluation(const Value& candidate_index,
                                                   const Value& graph) = 0;
  // Takes one batch's configuration. `config` reads the context for it: it is called once, when the
  // host has found its own operation.
  [[nodiscard]] virtual std::unique_ptr<ConfiguredPool> configure(
      const std::function<ProcessEvaluationConfig()>& config) = 0;
};

}  // namespace varnholt::genetic
