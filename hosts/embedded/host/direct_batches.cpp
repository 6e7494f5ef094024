#include "hosts/embedded/host/direct_batches.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/process/batch_results.hpp"
#include "search_templates/genetic/process/worker_capacity.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Mapping;
using genetic::Value;
namespace keys = genetic::keys;

Value DirectBatches::evaluate_candidate_batch(genetic::SearchContext& context, const Value& batch,
                                              const Value& process_timeout_seconds) {
  const List candidates = work_items(batch);
  List results;
  if (candidates.empty()) return results;

  const genetic::Callable simulate = genetic::make_callable(
      [this, &context](std::span<const Value> positional, const Mapping&) -> Value {
        return genetic::simulate_candidate(
            host_, context, genetic::required_attribute(positional[0], keys::kGraph.view()));
      });
  const auto configured = host_.process_evaluation().configure(
      [&] { return configuration(context, process_timeout_seconds); });
  Mapping results_by_index(candidates.size());
  const auto process_results =
      genetic::iterate(configured->evaluate_candidate_batch(candidates, simulate));
  while (const std::optional<Value> process_result = process_results->next()) {
    results_by_index.set(genetic::required_attribute(*process_result, keys::kCandidateIndex.view()),
                         genetic::candidate_result_from_process_result(*process_result));
  }
  for (std::int64_t index = 0; index < static_cast<std::int64_t>(candidates.size()); ++index) {
    if (std::optional<Value> result = results_by_index.find(index)) {
      results.append(*std::move(result));
    }
  }
  return results;
}

List DirectBatches::work_items(const Value& batch) {
  List candidates;
  const auto graphs = genetic::iterate(batch);
  while (const std::optional<Value> graph = graphs->next()) {
    const auto index = static_cast<std::int64_t>(candidates.size());
    candidates.append(host_.process_evaluation().candidate_evaluation(index, *graph));
  }
  return candidates;
}

genetic::ProcessEvaluationConfig DirectBatches::configuration(
    genetic::SearchContext& context, const Value& process_timeout_seconds) {
  genetic::ProcessEvaluation& pool = host_.process_evaluation();
  genetic::ProcessEvaluationConfig config;
  config.n_jobs = genetic::parallel_evaluation_requested_jobs(context);
  config.timeout_seconds = process_timeout_seconds.is_absent()
                               ? pool.default_search_template_timeout_seconds()
                               : process_timeout_seconds;
  config.worker_memory_limit_bytes = genetic::context_worker_memory_limit_bytes(pool, context);
  return config;
}

}  // namespace varnholt::embedded
