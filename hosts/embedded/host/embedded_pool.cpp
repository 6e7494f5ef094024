#include "hosts/embedded/host/embedded_pool.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include "hosts/embedded/host/result_wire.hpp"
#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::CandidateEvaluation;
using genetic::List;
using genetic::Mapping;
using genetic::ProcessResult;
using genetic::Value;

namespace {

using terminal_reasons::kMemoryBudgetExceeded;
using terminal_reasons::kProcessPriorityFailed;
using terminal_reasons::kWorkerFailed;
using terminal_reasons::kWorkerTimeout;

constexpr std::int64_t kNoMemoryLimit = std::numeric_limits<std::int64_t>::max();

const CandidateEvaluation& candidate_of(const Value& candidate) {
  return dynamic_cast<const CandidateEvaluation&>(candidate.object());
}

PoolConfig pool_config(const genetic::ProcessEvaluationConfig& config, std::size_t candidates) {
  PoolConfig pool;
  pool.jobs = static_cast<int>(std::clamp<std::int64_t>(genetic::saturated_integer(config.n_jobs),
                                                        1, static_cast<std::int64_t>(candidates)));
  pool.timeout_seconds = genetic::to_float(config.timeout_seconds);
  pool.max_retries = static_cast<int>(config.max_retries);
  const std::int64_t limit = genetic::saturated_integer(config.worker_memory_limit_bytes);
  if (limit != kNoMemoryLimit) pool.memory_limit_bytes = static_cast<std::uint64_t>(limit);
  return pool;
}

}  // namespace

EmbeddedPool::EmbeddedPool(SystemCalls& system, genetic::EvaluationVerdicts& verdicts,
                           double default_timeout_seconds,
                           std::function<void(std::int64_t)> on_tick)
    : system_(system),
      verdicts_(verdicts),
      default_timeout_seconds_(default_timeout_seconds),
      on_tick_(std::move(on_tick)) {}

Value EmbeddedPool::default_search_template_timeout_seconds() {
  return default_timeout_seconds_;
}
Value EmbeddedPool::default_worker_memory_limit_bytes() {
  return kNoMemoryLimit;
}
Value EmbeddedPool::terminal_worker_failed() {
  return kWorkerFailed;
}
Value EmbeddedPool::terminal_worker_timeout() {
  return kWorkerTimeout;
}
Value EmbeddedPool::terminal_process_priority_failed() {
  return kProcessPriorityFailed;
}
Value EmbeddedPool::terminal_memory_budget_exceeded() {
  return kMemoryBudgetExceeded;
}

std::optional<Value> EmbeddedPool::as_error(const std::exception& error) {
  if (dynamic_cast<const ProcessEvaluationError*>(&error) == nullptr) return std::nullopt;
  return genetic::error_object(error);
}

std::unique_ptr<genetic::WorkerResolution> EmbeddedPool::resolve_process_worker_count_details(
    const std::function<Value()>& requested, const Value& candidate_count) {
  return std::make_unique<ResolvedWorkers>(
      WorkerDemand{.requested = genetic::saturated_integer(requested()),
                   .candidates = genetic::saturated_integer(candidate_count)},
      limits_);
}

void EmbeddedPool::log_worker_count_reduction(genetic::Logger& logger,
                                              const genetic::WorkerResolution& resolution,
                                              std::string_view scope,
                                              genetic::SearchContext& cache_owner,
                                              std::string_view detail) {
  const auto& resolved = dynamic_cast<const ResolvedWorkers&>(resolution);
  if (resolved.reduction().empty() || logged_for_ == &cache_owner) return;
  logged_for_ = &cache_owner;
  logger.warning("%s uses %s of %s workers, because %s: %s",
                 {Value(scope), resolved.resolved(), resolved.requested(), resolved.reduction(),
                  Value(detail)});
}

Value EmbeddedPool::candidate_evaluation(const Value& candidate_index, const Value& graph) {
  return genetic::make_object<CandidateEvaluation>(candidate_index, graph);
}

class EmbeddedPool::Configured : public genetic::ConfiguredPool {
 public:
  Configured(EmbeddedPool& pool, genetic::ProcessEvaluationConfig config)
      : pool_(pool), config_(std::move(config)) {}

  [[nodiscard]] Value evaluate_candidate_batch(const List& candidates,
                                               const genetic::Callable& simulate) override {
    return pool_.evaluate_candidate_batch(candidates, simulate, config_);
  }

 private:
  EmbeddedPool& pool_;
  genetic::ProcessEvaluationConfig config_;
};

std::unique_ptr<genetic::ConfiguredPool> EmbeddedPool::configure(
    const std::function<genetic::ProcessEvaluationConfig()>& config) {
  return std::make_unique<Configured>(*this, config());
}

List EmbeddedPool::evaluate_candidate_batch(const List& candidates,
                                            const genetic::Callable& simulate,
                                            const genetic::ProcessEvaluationConfig& config) {
  std::int64_t ended = 0;
  PoolCallbacks callbacks;
  callbacks.stop_requested = [this] { return context_->stop().cancels_evaluations(); };
  callbacks.poll_callback = [this, &ended] { on_tick_(ended); };
  callbacks.completed_callback = [this, &ended](const PoolOutcome&) { on_tick_(++ended); };

  const ForkPool pool(system_, pool_config(config, candidates.size()));
  const std::vector<PoolOutcome> outcomes = pool.run(
      candidates.size(),
      [&](const WorkItem& item) {
        context_->enter_child();
        return encode_result(simulate({candidates.at(item.index)}).mapping());
      },
      callbacks);

  List results;
  for (const PoolOutcome& outcome : outcomes) {
    if (const auto result = process_result(candidates.at(outcome.index), outcome)) {
      results.append(*result);
    }
  }
  return results;
}

std::optional<Value> EmbeddedPool::process_result(const Value& candidate,
                                                  const PoolOutcome& outcome) {
  const auto result = [&](const Value& payload) -> Value {
    return genetic::make_object<ProcessResult>(candidate_of(candidate).candidate_index(), payload,
                                               std::int64_t{outcome.pid}, outcome.elapsed_seconds,
                                               outcome.attempt);
  };
  switch (outcome.status) {
    case PoolStatus::Completed:
      return result(decode_result(outcome.payload));
    case PoolStatus::WorkRaised:
      return result(
          failure_record(candidate, kWorkerFailed, outcome.error_type + ": " + outcome.detail));
    case PoolStatus::WorkerFailed:
    case PoolStatus::PriorityFailed:
      return result(failure_record(candidate, kWorkerFailed, outcome.detail));
    case PoolStatus::WorkerTimedOut:
      return result(failure_record(candidate, kWorkerTimeout, outcome.detail));
    case PoolStatus::Cancelled:
      break;
  }
  return std::nullopt;
}

Value EmbeddedPool::failure_record(const Value& candidate, const Value& reason,
                                   const std::string& detail) {
  const CandidateEvaluation& work = candidate_of(candidate);
  const ProcessEvaluationError error(WorkerFailure{reason, detail, work.candidate_index()});
  return genetic::candidate_process_evaluation_error_result(*this, verdicts_, work.graph(),
                                                            genetic::error_object(error));
}

}  // namespace varnholt::embedded
