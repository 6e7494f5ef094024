#include "search_templates/genetic/process/batch_evaluation.hpp"

#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/process/worker_capacity.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// A candidate is tried once more when its worker is lost.
constexpr std::int64_t kMaxRetries = 1;

List work_items(ProcessEvaluation& pool, const Value& batch) {
  List candidates;
  const auto graphs = iterate(batch);
  while (const std::optional<Value> graph = graphs->next()) {
    candidates.append(
        pool.candidate_evaluation(static_cast<std::int64_t>(candidates.size()), *graph));
  }
  return candidates;
}

ProcessEvaluationConfig pool_config(Host& host, SearchContext& context,
                                    const Value& timeout_seconds) {
  ProcessEvaluationConfig config;
  config.n_jobs = parallel_evaluation_requested_jobs(context);
  config.max_retries = kMaxRetries;
  config.timeout_seconds = timeout_seconds;
  // The host's default is read even when the context has a priority of its own.
  const Value default_priority = host.search_settings().default_process_priority();
  config.process_priority =
      context.attribute(context_names::kProcessPriority.view()).value_or(default_priority);
  config.worker_memory_limit_bytes =
      context_worker_memory_limit_bytes(host.process_evaluation(), context);
  config.worker_processes =
      context.attribute(context_names::kWorkerProcesses.view()).value_or(Value());
  return config;
}

}  // namespace

Mapping candidate_result_from_process_result(const Value& process_result) {
  const auto read = [&process_result](Key name) {
    return required_attribute(process_result, name.view());
  };
  Mapping result = new_mapping(read(keys::kPayload));
  result.set_default(keys::kCandidateIndex, read(keys::kCandidateIndex));
  result.set(keys::kWorkerPid, read(keys::kWorkerPid));
  result.set(keys::kElapsedSimulationSeconds, read(keys::kElapsedSimulationSeconds));
  result.set(keys::kProcessAttempt, read(keys::kAttempt));
  // The copy is shallow: what is written into the submission payload is seen in the result too.
  if (std::optional<Mapping> payload = as_mapping(result.get(keys::kSubmissionPayload))) {
    payload->set_default(keys::kWorkerPid, read(keys::kWorkerPid));
  }
  return result;
}

List evaluate_candidate_batch(Host& host, SearchContext& context, const Value& batch,
                              const Value& process_timeout_seconds) {
  ProcessEvaluation& pool = host.process_evaluation();
  const List candidates = work_items(pool, batch);
  List results;
  if (candidates.empty()) return results;

  const Value timeout_seconds = process_timeout_seconds.is_absent()
                                    ? pool.default_search_template_timeout_seconds()
                                    : process_timeout_seconds;
  const Callable simulate =
      make_callable([&host, &context](std::span<const Value> positional, const Mapping&) -> Value {
        return simulate_candidate(host, context,
                                  required_attribute(positional[0], keys::kGraph.view()));
      });
  const std::unique_ptr<ConfiguredPool> configured =
      pool.configure(pool_config(host, context, timeout_seconds));
  Mapping results_by_index(candidates.size());
  const auto process_results = iterate(configured->evaluate_candidate_batch(candidates, simulate));
  while (const std::optional<Value> process_result = process_results->next()) {
    results_by_index.set(required_attribute(*process_result, keys::kCandidateIndex.view()),
                         candidate_result_from_process_result(*process_result));
  }
  for (std::int64_t index = 0; index < static_cast<std::int64_t>(candidates.size()); ++index) {
    if (std::optional<Value> result = results_by_index.find(index)) {
      results.append(*std::move(result));
    }
  }
  return results;
}

}  // namespace varnholt::genetic
