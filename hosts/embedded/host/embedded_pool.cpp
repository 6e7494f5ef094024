#include "hosts/embedded/host/embedded_pool.hpp"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/host/pool_batch.hpp"
#include "hosts/embedded/host/result_wire.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "hosts/embedded/store/store_error.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Callable;
using genetic::List;
using genetic::ProcessEvaluationConfig;
using genetic::Value;

namespace {

// What a worker needs beside what it inherits, at the very least.
constexpr std::uint64_t kLeastOwnBytes = std::uint64_t{8} * 1024 * 1024;

// A limit below what every worker inherits leaves none of them anything to work with.
void check_memory_limit(const PoolConfig& config) {
  if (!config.memory_limit_bytes) return;
  const std::optional<std::uint64_t> inherited = mapped_bytes();
  if (!inherited || *config.memory_limit_bytes >= *inherited + kLeastOwnBytes) return;
  throw ProcessEvaluationError(WorkerFailure{
      terminal_reasons::kMemoryBudgetExceeded,
      fmt::format("the memory limit of a worker, {} bytes, is not above the {} bytes that it has "
                  "mapped from the start; raise the limit with --worker-memory, or search fewer "
                  "prices",
                  *config.memory_limit_bytes, *inherited),
      Value()});
}

class Running {
 public:
  explicit Running(bool& is_running) : is_running_(is_running) {
    if (std::exchange(is_running_, true)) {
      throw genetic::RuntimeError("a batch was started by a callback of the batch that runs");
    }
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  ~Running() { is_running_ = false; }

 private:
  bool& is_running_;
};

// What a batch records and what it tells its children, which waits for the record. Without writes
// to gather nothing waits.
class HeldBack {
 public:
  HeldBack(GatheredWrites* writes, ForkQueues& queues) : writes_(writes), queues_(queues) {
    if (writes_ == nullptr) return;
    writes_->begin_gathering();
    queues_.hold_messages();
  }
  HeldBack(const HeldBack&) = delete;
  HeldBack& operator=(const HeldBack&) = delete;
  ~HeldBack() {
    try {
      end();
    } catch (const StoreError&) {
      // What is on its way out went wrong first, and the store has noted its own failure.
    }
  }

  // The order is meant: a child that has its answer may rely upon the record.
  void let_go() {
    if (writes_ == nullptr) return;
    writes_->put_in_file();
    queues_.send_held();
  }
  void end() {
    if (GatheredWrites* const writes = std::exchange(writes_, nullptr)) writes->end_gathering();
  }

 private:
  GatheredWrites* writes_;
  ForkQueues& queues_;
};

}  // namespace

EmbeddedPool::EmbeddedPool(SystemCalls& system, ForkQueues& queues, double default_timeout_seconds,
                           std::function<void()> enter_child, Isolation isolation)
    : system_(system),
      queues_(queues),
      default_timeout_seconds_(default_timeout_seconds),
      enter_child_(std::move(enter_child)),
      candidates_per_worker_(embedded::candidates_per_worker(isolation)) {}

Value EmbeddedPool::default_search_template_timeout_seconds() {
  return default_timeout_seconds_;
}
Value EmbeddedPool::default_worker_memory_limit_bytes() {
  return kNoMemoryLimit;
}
Value EmbeddedPool::terminal_worker_failed() {
  return terminal_reasons::kWorkerFailed;
}
Value EmbeddedPool::terminal_worker_timeout() {
  return terminal_reasons::kWorkerTimeout;
}
Value EmbeddedPool::terminal_process_priority_failed() {
  return terminal_reasons::kProcessPriorityFailed;
}
Value EmbeddedPool::terminal_memory_budget_exceeded() {
  return terminal_reasons::kMemoryBudgetExceeded;
}

std::optional<Value> EmbeddedPool::as_error(const std::exception& error) {
  if (dynamic_cast<const ProcessEvaluationError*>(&error) == nullptr) return std::nullopt;
  return genetic::error_object(error);
}

std::unique_ptr<genetic::WorkerResolution> EmbeddedPool::resolve_process_worker_count_details(
    const std::function<Value()>& requested, const Value& candidate_count) {
  return std::make_unique<ResolvedWorkers>(
      WorkerDemand{.requested = genetic::saturated_integer(requested()),
                   .candidates = genetic::saturated_integer(candidate_count),
                   .candidates_per_worker = candidates_per_worker_},
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
  logger.warning(
      "%s uses %s of %s workers, because %s: %s",
      {Value(scope), resolved.count(), resolved.requested(), resolved.reduction(), Value(detail)});
}

Value EmbeddedPool::candidate_evaluation(const Value& candidate_index, const Value& graph) {
  return genetic::make_object<genetic::CandidateEvaluation>(candidate_index, graph);
}

class EmbeddedPool::Configured : public genetic::ConfiguredPool {
 public:
  Configured(EmbeddedPool& pool, ProcessEvaluationConfig config)
      : pool_(pool), config_(std::move(config)) {}

  [[nodiscard]] Value evaluate_candidate_batch(const List& candidates,
                                               const Callable& simulate) override {
    return pool_.evaluate(config_, candidates, simulate);
  }

 private:
  EmbeddedPool& pool_;
  ProcessEvaluationConfig config_;
};

std::unique_ptr<genetic::ConfiguredPool> EmbeddedPool::configure(
    const std::function<ProcessEvaluationConfig()>& config) {
  return std::make_unique<Configured>(*this, config());
}

int EmbeddedPool::worker_count(const ProcessEvaluationConfig& config,
                               std::size_t candidates) const {
  WorkerDemand demand;
  demand.candidates = static_cast<std::int64_t>(candidates);
  demand.requested = genetic::saturated_integer(config.n_jobs);
  // A number of processes that the context asks for itself is not resolved.
  if (!config.worker_processes.is_absent()) {
    const std::int64_t processes = genetic::saturated_integer(config.worker_processes);
    return static_cast<int>(std::clamp<std::int64_t>(processes, 1, demand.candidates));
  }
  const std::int64_t limit = genetic::saturated_integer(config.worker_memory_limit_bytes);
  if (limit != kNoMemoryLimit) {
    demand.worker_memory_limit_bytes = static_cast<std::uint64_t>(limit);
    demand.inherited_bytes = mapped_bytes().value_or(0);
  }
  return static_cast<int>(std::min<std::int64_t>(ResolvedWorkers(demand, limits_).count(),
                                                 std::numeric_limits<int>::max()));
}

List EmbeddedPool::evaluate(const ProcessEvaluationConfig& config, const List& candidates,
                            const Callable& simulate) {
  const Running running(is_running_);
  PoolBatch batch(config, candidates);
  PoolConfig pool_config = batch.pool_config();
  pool_config.jobs = worker_count(config, candidates.size());
  pool_config.items_per_worker = candidates_per_worker_;
  check_memory_limit(pool_config);
  PoolCallbacks callbacks = batch.callbacks();
  callbacks.watched_descriptors = queues_.parent_descriptors();

  HeldBack held(writes_, queues_);
  callbacks.pause_callback = [&held] { held.let_go(); };

  const Work work = [&](const WorkItem& item) {
    enter_child_();
    try {
      return encode_result(simulate({candidates.at(item.index)}).mapping());
    } catch (const OutOfMemory&) {
      throw std::bad_alloc();
    }
  };
  static_cast<void>(ForkPool(system_, pool_config).run(candidates.size(), work, callbacks));
  batch.hand_on_rest();
  // Before failures are told: what is on record of them must be in the file, or that is the error.
  held.end();
  return batch.results();
}

}  // namespace varnholt::embedded
