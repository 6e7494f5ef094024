// A pool without processes: every candidate is evaluated in the parent itself, one after the other.
//
// For evaluators that can be trusted with the search's own process, for tests and for a debugger.
// Nothing guards the search: an evaluator that crashes or hangs takes it along, what one candidate
// leaves behind the next one finds, and time-out, memory limit, priority and number of jobs are
// ignored. A host whose evaluator is not that well-behaved forks.
#pragma once

#include <functional>
#include <memory>

#include "search_templates/genetic/host/process_evaluation.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class InProcessPool : public ProcessEvaluation {
 public:
  // One, whatever was asked for.
  [[nodiscard]] std::unique_ptr<WorkerResolution> resolve_process_worker_count_details(
      const std::function<Value()>& requested, const Value& candidate_count) override;
  [[nodiscard]] Value candidate_evaluation(const Value& candidate_index,
                                           const Value& graph) override;
  // The pool calls back as one with processes does: before a candidate, when it starts and ends,
  // and with its result, which names no worker. What the simulation throws ends the batch.
  [[nodiscard]] std::unique_ptr<ConfiguredPool> configure(
      const std::function<ProcessEvaluationConfig()>& config) override;
};

}  // namespace varnholt::genetic
