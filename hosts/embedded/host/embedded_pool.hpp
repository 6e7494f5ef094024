// The embedded host's worker pool as the search calls it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/host/worker_count.hpp"
#include "hosts/embedded/host/worker_errors.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "search_templates/genetic/host/evaluation_verdicts.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"

namespace varnholt::embedded {

// A candidate whose worker is lost, or takes too long, is that candidate's failure and comes back
// as its record. Candidates whose evaluation is cancelled have no result.
class EmbeddedPool : public genetic::ProcessEvaluation {
 public:
  // `on_tick` is called in the parent several times a second with the number of candidates of the
  // batch that have ended.
  EmbeddedPool(SystemCalls& system, genetic::EvaluationVerdicts& verdicts,
               double default_timeout_seconds, std::function<void(std::int64_t)> on_tick);

  // The context whose candidates are evaluated. It must be set before a batch is.
  void set_context(EmbeddedContext& context) { context_ = &context; }

  [[nodiscard]] genetic::Value default_search_template_timeout_seconds() override;
  // No limit.
  [[nodiscard]] genetic::Value default_worker_memory_limit_bytes() override;
  [[nodiscard]] genetic::Value terminal_worker_failed() override;
  [[nodiscard]] genetic::Value terminal_worker_timeout() override;
  [[nodiscard]] genetic::Value terminal_process_priority_failed() override;
  [[nodiscard]] genetic::Value terminal_memory_budget_exceeded() override;
  [[nodiscard]] std::optional<genetic::Value> as_error(const std::exception& error) override;
  // As many as were asked for, but no more than there are candidates or the machine can keep busy.
  [[nodiscard]] std::unique_ptr<genetic::WorkerResolution> resolve_process_worker_count_details(
      const std::function<genetic::Value()>& requested,
      const genetic::Value& candidate_count) override;
  void log_worker_count_reduction(genetic::Logger& logger,
                                  const genetic::WorkerResolution& resolution,
                                  std::string_view scope, genetic::SearchContext& cache_owner,
                                  std::string_view detail) override;
  // Nothing to warm: the children have the parent's panels.
  void prefetch_candidate_features(genetic::SearchContext& /*context*/,
                                   const genetic::List& /*graphs*/) override {}
  [[nodiscard]] genetic::Value candidate_evaluation(const genetic::Value& candidate_index,
                                                    const genetic::Value& graph) override;
  [[nodiscard]] std::unique_ptr<genetic::ConfiguredPool> configure(
      const std::function<genetic::ProcessEvaluationConfig()>& config) override;

 private:
  class Configured;

  [[nodiscard]] genetic::List evaluate_candidate_batch(
      const genetic::List& candidates, const genetic::Callable& simulate,
      const genetic::ProcessEvaluationConfig& config);
  [[nodiscard]] std::optional<genetic::Value> process_result(const genetic::Value& candidate,
                                                             const PoolOutcome& outcome);
  [[nodiscard]] genetic::Value failure_record(const genetic::Value& candidate,
                                              const genetic::Value& reason,
                                              const std::string& detail);

  SystemCalls& system_;
  genetic::EvaluationVerdicts& verdicts_;
  double default_timeout_seconds_;
  std::function<void(std::int64_t)> on_tick_;
  EmbeddedContext* context_ = nullptr;
  MachineLimits limits_ = read_machine_limits();
  const genetic::SearchContext* logged_for_ = nullptr;
};

}  // namespace varnholt::embedded
