// The host's process pool and its vocabulary of failures.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

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

// One candidate on its way to the pool.
struct CandidateEvaluation {
  std::int64_t candidate_index = 0;
  Value graph;
};

// What came back for one candidate.
struct ProcessResult {
  Value candidate_index;
  Value payload;  // The candidate result record that the child made.
  Value worker_pid;
  Value elapsed_simulation_seconds;
  Value attempt;
};

struct ProcessEvaluationConfig {
  std::int64_t n_jobs = 1;
  std::int64_t max_retries = 1;
  Value timeout_seconds;
  Value worker_memory_limit_bytes;
};

class ProcessEvaluation {
 public:
  virtual ~ProcessEvaluation() = default;

  // Constants, read where the rules read them.
  [[nodiscard]] virtual Value default_search_template_timeout_seconds() = 0;
  [[nodiscard]] virtual Value default_worker_memory_limit_bytes() = 0;
  [[nodiscard]] virtual Value terminal_worker_failed() = 0;
  [[nodiscard]] virtual Value terminal_worker_timeout() = 0;
  [[nodiscard]] virtual Value terminal_process_priority_failed() = 0;
  [[nodiscard]] virtual Value terminal_memory_budget_exceeded() = 0;

  // The error object when `error` is a failure of process evaluation. Its attributes
  // `terminal_reason`, `detail`, `candidate_index` and `failure_count` may each be missing.
  [[nodiscard]] virtual std::optional<Value> as_error(const std::exception& error) = 0;

  [[nodiscard]] virtual std::unique_ptr<WorkerResolution> resolve_process_worker_count_details(
      const Value& requested, const Value& candidate_count) = 0;
  // Logs that fewer workers run than were asked for, once for each `cache_owner`.
  virtual void log_worker_count_reduction(Logger& logger, const WorkerResolution& resolution,
                                          std::string_view scope, SearchContext& cache_owner,
                                          std::string_view detail) = 0;

  // Runs `simulate` on every candidate, each in a child process of its own. Results come in any
  // order, and a candidate may have none. Throws a process evaluation error for candidates whose
  // process failed.
  [[nodiscard]] virtual std::vector<ProcessResult> evaluate_candidate_batch(
      const std::vector<CandidateEvaluation>& candidates,
      const std::function<Value(const CandidateEvaluation&)>& simulate,
      const ProcessEvaluationConfig& config) = 0;
};

}  // namespace varnholt::genetic
