#include "search_templates/genetic/driver/process_failure.hpp"

#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

bool process_failure_ends_search(Host& host, RunCounters& counters, const Value& error) {
  ProcessEvaluation& process_evaluation = host.process_evaluation();
  if (!process_evaluation_error_is_search_fatal(process_evaluation, error)) return false;
  const Value reason = counters.count_process_evaluation_failures(error);
  if (!is_same_or_equal(reason, process_evaluation.terminal_process_priority_failed())) {
    counters.record_run_metrics(reason);
  }
  return true;
}

}  // namespace varnholt::genetic
