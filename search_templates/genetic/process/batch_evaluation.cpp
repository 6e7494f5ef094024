#include "search_templates/genetic/process/batch_evaluation.hpp"

#include <optional>
#include <utility>
#include <vector>

#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/process/worker_capacity.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// A candidate is tried once more when its worker is lost.
constexpr std::int64_t kMaxRetries = 1;

std::vector<CandidateEvaluation> indexed_batch(const Value& batch) {
  std::vector<CandidateEvaluation> candidates;
  const auto graphs = iterate(batch);
  while (std::optional<Value> graph = graphs->next()) {
    candidates.push_back({static_cast<std::int64_t>(candidates.size()), *std::move(graph)});
  }
  return candidates;
}

ProcessEvaluationConfig pool_config(Host& host, SearchContext& context,
                                    const Value& timeout_seconds) {
  ProcessEvaluationConfig config;
  config.n_jobs = saturated_integer(parallel_evaluation_requested_jobs(context));
  config.max_retries = kMaxRetries;
  config.timeout_seconds = timeout_seconds;
  config.worker_memory_limit_bytes =
      context_worker_memory_limit_bytes(host.process_evaluation(), context);
  return config;
}

}  // namespace

Mapping candidate_result_from_process_result(const ProcessResult& process_result) {
  Mapping result = new_mapping(process_result.payload);
  result.set_default(keys::kCandidateIndex, process_result.candidate_index);
  result.set(keys::kWorkerPid, process_result.worker_pid);
  result.set(keys::kElapsedSimulationSeconds, process_result.elapsed_simulation_seconds);
  result.set(keys::kProcessAttempt, process_result.attempt);
  if (std::optional<Mapping> payload = as_mapping(result.get(keys::kSubmissionPayload))) {
    payload->set_default(keys::kWorkerPid, process_result.worker_pid);
  }
  return result;
}

List evaluate_candidate_batch(Host& host, SearchContext& context, const Value& batch,
                              const Value& process_timeout_seconds) {
  const std::vector<CandidateEvaluation> candidates = indexed_batch(batch);
  List results;
  if (candidates.empty()) return results;

  const Value timeout_seconds =
      process_timeout_seconds.is_absent()
          ? host.process_evaluation().default_search_template_timeout_seconds()
          : process_timeout_seconds;
  const auto simulate = [&host, &context](const CandidateEvaluation& candidate) -> Value {
    return simulate_candidate(host, context, candidate.graph);
  };
  Mapping results_by_index(candidates.size());
  for (const ProcessResult& process_result : host.process_evaluation().evaluate_candidate_batch(
           candidates, simulate, pool_config(host, context, timeout_seconds))) {
    results_by_index.set(process_result.candidate_index,
                         candidate_result_from_process_result(process_result));
  }
  for (const CandidateEvaluation& candidate : candidates) {
    if (std::optional<Value> result = results_by_index.find(candidate.candidate_index)) {
      results.append(*std::move(result));
    }
  }
  return results;
}

}  // namespace varnholt::genetic
