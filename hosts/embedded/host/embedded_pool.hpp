// The embedded host's worker pool as the search calls it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "hosts/embedded/host/fork_queues.hpp"
#include "hosts/embedded/host/isolation.hpp"
#include "hosts/embedded/host/worker_count.hpp"
#include "hosts/embedded/host/worker_errors.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/store/gathered_writes.hpp"
#include "hosts/embedded/system/machine_limits.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"

namespace varnholt::embedded {

// A candidate whose worker is lost, or takes too long, is told as a ProcessEvaluationError when the
// others of its batch are done (pool_batch.hpp). Candidates whose evaluation is cancelled have no
// result.
class EmbeddedPool : public genetic::ProcessEvaluation {
 public:
  // `enter_child` is called in each child before it works on a candidate. The first two must
  // outlive the pool.
  EmbeddedPool(SystemCalls& system, ForkQueues& queues, double default_timeout_seconds,
               std::function<void()> enter_child, Isolation isolation = Isolation::Candidate);

  // From here on what is recorded during a batch is gathered, and put in the file before each fork,
  // each wait and the end of the batch. What is put into the queues is sent after it: no other
  // process learns of what is not in the file. The writes must outlive all batches.
  void gather_writes(GatheredWrites& writes) noexcept { writes_ = &writes; }

  // How many candidates one worker gets at a time.
  [[nodiscard]] int candidates_per_worker() const noexcept { return candidates_per_worker_; }

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
  [[nodiscard]] genetic::Value candidate_evaluation(const genetic::Value& candidate_index,
                                                    const genetic::Value& graph) override;
  [[nodiscard]] std::unique_ptr<genetic::ConfiguredPool> configure(
      const std::function<genetic::ProcessEvaluationConfig()>& config) override;

 private:
  class Configured;

  [[nodiscard]] genetic::List evaluate(const genetic::ProcessEvaluationConfig& config,
                                       const genetic::List& candidates,
                                       const genetic::Callable& simulate);
  [[nodiscard]] int worker_count(const genetic::ProcessEvaluationConfig& config,
                                 std::size_t candidates) const;

  SystemCalls& system_;
  ForkQueues& queues_;
  double default_timeout_seconds_;
  std::function<void()> enter_child_;
  int candidates_per_worker_;
  GatheredWrites* writes_ = nullptr;
  MachineLimits limits_ = read_machine_limits();
  const genetic::SearchContext* logged_for_ = nullptr;
  bool is_running_ = false;
};

}  // namespace varnholt::embedded
