#include "hosts/embedded/host/pool_batch.hpp"

#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/host/result_wire.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Callable;
using genetic::List;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr const char* kStarted = "started";
constexpr const char* kOk = "ok";
constexpr const char* kError = "error";
constexpr genetic::Key kChildException = genetic::key<"process_child_exception">();
constexpr std::string_view kBadAlloc = "std::bad_alloc";
constexpr const char* kOutOfMemory = "worker ran out of memory";
constexpr const char* kMemoryRemedy =
    "; use fewer workers at once with --jobs, or search fewer prices";
constexpr std::string_view kKilled = "worker killed by signal 9 (SIGKILL)";
// The kernel says it to nobody but its own log.
constexpr const char* kKilledRemedy =
    "; the kernel does that where memory is short: use fewer workers at once with --jobs, or a "
    "limit for each with --worker-memory";

// The nice value; nothing where the workers keep that of the search.
std::optional<int> nice_value(const Value& priority) {
  if (priority.is_absent()) return std::nullopt;
  const std::optional<Value> nice = genetic::tolerant_integer(priority);
  if (!nice) {
    throw ProcessEvaluationError(
        WorkerFailure{terminal_reasons::kProcessPriorityFailed,
                      "the priority of the workers, " + genetic::repr(priority) +
                          ", is no integer; give a nice value from -20 to 19",
                      Value()});
  }
  return static_cast<int>(genetic::saturated_integer(*nice));
}

std::optional<std::uint64_t> memory_limit(const Value& limit_bytes) {
  const std::int64_t limit = genetic::saturated_integer(limit_bytes);
  if (limit == kNoMemoryLimit) return std::nullopt;
  return static_cast<std::uint64_t>(limit);
}

}  // namespace

PoolBatch::PoolBatch(const genetic::ProcessEvaluationConfig& config, const List& candidates)
    : config_(config), candidates_(candidates), places_(candidates.size()) {}

PoolConfig PoolBatch::pool_config() const {
  PoolConfig pool;
  pool.timeout_seconds = genetic::to_float(config_.timeout_seconds);
  pool.max_retries = static_cast<int>(config_.max_retries);
  pool.nice = nice_value(config_.process_priority);
  pool.memory_limit_bytes = memory_limit(config_.worker_memory_limit_bytes);
  return pool;
}

PoolCallbacks PoolBatch::callbacks() {
  PoolCallbacks callbacks;
  if (config_.stop_requested) {
    callbacks.stop_requested = [this] { return genetic::truth(config_.stop_requested({})); };
  }
  if (!config_.drain_terminal_timeouts) {
    callbacks.hold_requested = [this] { return !failures_.empty(); };
  }
  callbacks.dispatch_callback = [this](const WorkItem& item) { dispatch(item); };
  callbacks.started_callback = [this](const WorkItem& item, pid_t) { start(item); };
  callbacks.poll_callback = [this] {
    if (config_.parent_poll_callback) config_.parent_poll_callback({});
  };
  callbacks.lost_callback = [this](const PoolOutcome& outcome) { lose(outcome); };
  callbacks.completed_callback = [this](const PoolOutcome& outcome) { complete(outcome); };
  return callbacks;
}

List PoolBatch::results() const {
  if (failures_.empty()) return results_;
  if (failures_.size() == 1) throw ProcessEvaluationError(failures_.begin()->second);
  std::vector<WorkerFailure> failures;
  failures.reserve(failures_.size());
  for (const auto& [place, failure] : failures_)
    failures.push_back(failure);
  throw ProcessEvaluationError(failures);
}

Value PoolBatch::index_of(std::size_t item) const {
  return genetic::required_attribute(candidates_.at(item), keys::kCandidateIndex.view());
}

Mapping PoolBatch::event(const char* name, std::size_t item, int attempt) const {
  return {{keys::kEvent, name},
          {keys::kCandidateIndex, index_of(item)},
          {keys::kAttempt, attempt},
          {keys::kCandidate, candidates_.at(item)}};
}

void PoolBatch::tell(const Mapping& event) const {
  if (config_.lifecycle_callback) config_.lifecycle_callback({event});
  if (config_.progress_callback) config_.progress_callback({event});
}

void PoolBatch::dispatch(const WorkItem& item) {
  if (!config_.pre_dispatch_callback) return;
  config_.pre_dispatch_callback({event("dispatched", item.index, item.attempt)});
}

void PoolBatch::start(const WorkItem& item) {
  tell(event(kStarted, item.index, item.attempt));
}

void PoolBatch::lose(const PoolOutcome& outcome) {
  tell_error(outcome, true);
}

void PoolBatch::tell_error(const PoolOutcome& outcome, bool retrying) const {
  Mapping error = event(kError, outcome.index, outcome.attempt);
  error.set(keys::kFailureReason, outcome.status == PoolStatus::WorkerTimedOut
                                      ? terminal_reasons::kWorkerTimeout
                                      : kChildException);
  error.set(keys::kError, detail_of(outcome));
  error.set(keys::kRetrying, retrying);
  tell(error);
}

void PoolBatch::complete(const PoolOutcome& outcome) {
  switch (outcome.status) {
    case PoolStatus::Completed:
      take_result(outcome);
      break;
    case PoolStatus::WorkRaised:
    case PoolStatus::WorkerFailed:
    case PoolStatus::WorkerTimedOut:
    case PoolStatus::PriorityFailed:
      give_up(outcome);
      break;
    case PoolStatus::Cancelled:
      // Its attempt, if it had one, is closed with all that are open when the search is left.
      break;
  }
  places_[outcome.index].is_done = true;
  std::size_t end = handed_on_;
  while (end < places_.size() && places_[end].is_done)
    ++end;
  hand_on(end);
}

void PoolBatch::take_result(const PoolOutcome& outcome) {
  places_[outcome.index].result = genetic::make_object<genetic::ProcessResult>(
      index_of(outcome.index), decode_result(outcome.payload), std::int64_t{outcome.pid},
      outcome.elapsed_seconds, outcome.attempt);
  tell(event(kOk, outcome.index, outcome.attempt));
}

void PoolBatch::hand_on(std::size_t end) {
  while (handed_on_ < end) {
    const std::optional<Value> result = std::exchange(places_[handed_on_].result, {});
    // Counted first: what the callback throws is not handed on a second time.
    ++handed_on_;
    if (!result) continue;
    if (config_.completed_result_callback) config_.completed_result_callback({*result});
    results_.append(*result);
  }
}

void PoolBatch::give_up(const PoolOutcome& outcome) {
  tell_error(outcome, false);
  const WorkerFailure failure{
      outcome.status == PoolStatus::PriorityFailed   ? terminal_reasons::kProcessPriorityFailed
      : outcome.status == PoolStatus::WorkerTimedOut ? terminal_reasons::kWorkerTimeout
                                                     : terminal_reasons::kWorkerFailed,
      detail_of(outcome), index_of(outcome.index)};
  // Every other worker would meet the same: this ends the batch at once, and the search with it.
  if (outcome.status == PoolStatus::PriorityFailed) throw ProcessEvaluationError(failure);
  if (outcome.was_not_started) {
    throw PoolError(fmt::format("no worker can be started for this search: {}", outcome.detail));
  }
  failures_.insert_or_assign(outcome.index, failure);
}

std::string PoolBatch::detail_of(const PoolOutcome& outcome) const {
  if (outcome.status == PoolStatus::WorkerFailed && outcome.detail == kKilled) {
    return outcome.detail + kKilledRemedy;
  }
  if (outcome.status != PoolStatus::WorkRaised) return outcome.detail;
  if (outcome.error_type == kBadAlloc) {
    const auto limit = memory_limit(config_.worker_memory_limit_bytes);
    if (!limit) return std::string(kOutOfMemory) + kMemoryRemedy;
    return fmt::format("{}; its limit is {} bytes: raise it with --worker-memory", kOutOfMemory,
                       *limit);
  }
  if (outcome.detail.empty()) return outcome.error_type;
  return outcome.error_type + ": " + outcome.detail;
}

}  // namespace varnholt::embedded
