// The errors by which the embedded host's worker pool reports failed worker processes.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/key.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The reasons for which a worker is ended. The first two are the failure of one candidate, the
// others end the search.
namespace terminal_reasons {

inline constexpr genetic::Key kWorkerFailed = genetic::key<"worker_failed">();
inline constexpr genetic::Key kWorkerTimeout = genetic::key<"worker_timeout">();
inline constexpr genetic::Key kProcessPriorityFailed = genetic::key<"process_priority_failed">();
inline constexpr genetic::Key kMemoryBudgetExceeded = genetic::key<"memory_budget_exceeded">();

}  // namespace terminal_reasons

// What a memory limit is where there is none.
inline constexpr std::int64_t kNoMemoryLimit = std::numeric_limits<std::int64_t>::max();

// An evaluation ran out of memory. It is no std::exception: what guards an evaluation against
// ordinary errors must not take it for a fault of the candidate.
struct OutOfMemory {};

// What became of one candidate's worker, or of the worker pool as a whole where there is no
// candidate.
struct WorkerFailure {
  genetic::Value terminal_reason;
  std::string detail;
  genetic::Value candidate_index;  // Absent: no worker can run.
};

// The attributes are `terminal_reason`, `detail` and `candidate_index`; those of the first where
// several workers failed, with `failure_count` and `terminal_errors`, a tuple of one error each.
class ProcessEvaluationError : public genetic::RuntimeError {
 public:
  explicit ProcessEvaluationError(const WorkerFailure& failure);
  // At least one.
  explicit ProcessEvaluationError(const std::vector<WorkerFailure>& failures);

  [[nodiscard]] std::shared_ptr<const genetic::ErrorAttributes> attributes() const override {
    return attributes_;
  }

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override {
    return "ProcessEvaluationError";
  }

 private:
  ProcessEvaluationError(const std::string& text, genetic::Mapping attributes);

  std::shared_ptr<const genetic::ErrorAttributes> attributes_;
};

}  // namespace varnholt::embedded
