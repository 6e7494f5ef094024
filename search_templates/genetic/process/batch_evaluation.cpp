#include "search_templates/genetic/process/batch_evaluation.hpp"

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/process/batch_results.hpp"
#include "search_templates/genetic/process/found_pnl_files.hpp"
#include "search_templates/genetic/process/worker_capacity.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// What the ledger is told, exit by exit.
constexpr Key kCancelled = key<"process_evaluation_cancelled">();
constexpr Key kFoundPnlFailed = key<"found_pnl_prefetch_failed">();
constexpr Key kCapacityFailed = key<"process_capacity_resolution_failed">();
constexpr Key kFeaturesFailed = key<"candidate_feature_prefetch_failed">();
constexpr Key kFatal = key<"fatal_process_evaluation_failure">();
constexpr Key kUnsupported = key<"unsupported_process_evaluation_failure">();
constexpr Key kUnmatched = key<"unmatched_process_evaluation_failure">();
constexpr Key kAborted = key<"process_evaluation_aborted">();
constexpr Key kResultMissing = key<"process_result_missing">();

// A candidate is tried once more when its worker is lost.
constexpr std::int64_t kMaxRetries = 1;

struct IndexedGraph {
  Value index;
  Value graph;
};
using IndexedGraphs = std::vector<IndexedGraph>;

IndexedGraphs indexed(const Value& batch) {
  IndexedGraphs candidates;
  const auto graphs = iterate(batch);
  while (std::optional<Value> graph = graphs->next()) {
    candidates.push_back({static_cast<std::int64_t>(candidates.size()), *std::move(graph)});
  }
  return candidates;
}

List pairs_of(const IndexedGraphs& candidates) {
  List pairs(candidates.size());
  for (const IndexedGraph& candidate : candidates)
    pairs.append(Tuple{candidate.index, candidate.graph});
  return pairs;
}

// A set is a mapping whose keys count.
void add(Mapping& set, const Value& item) {
  set.set(item, true);
}

// The errors that a pool's error stands for: those that it names, or itself.
std::vector<Value> terminal_errors_of(const Value& process_error) {
  std::vector<Value> errors;
  const Value named = attribute(process_error, keys::kTerminalErrors.view()).value_or(Value());
  if (!named.is_absent()) {
    const auto walk = iterate(named);
    while (std::optional<Value> error = walk->next())
      errors.push_back(*std::move(error));
  }
  if (errors.empty()) errors.push_back(process_error);
  return errors;
}

class BatchEvaluation {
 public:
  BatchEvaluation(Host& host, SearchContext& context, BatchParts& parts, IndexedGraphs batch)
      : host_(host),
        context_(context),
        pool_(host.process_evaluation()),
        parts_(parts),
        batch_(std::move(batch)) {}

  [[nodiscard]] List run(const Value& process_timeout_seconds) {
    ledger_ = parts_.attempt_ledger(pairs_of(batch_));
    if (context_.submission_cancelled()) {
      ledger_->finalize_all_open(kCancelled, {});
      return List();
    }
    prepare(process_timeout_seconds);
    while (!remaining_.empty() && pass() == Turn::kNext) {
    }
    // On every way out of the loop; attempts that have their end are left alone.
    ledger_->finalize_all_open(kResultMissing, {});
    return results_in_order();
  }

 private:
  enum class Turn : std::uint8_t { kNext, kLeave };
  enum class Failure : std::uint8_t { kHandled, kRaise };

  void prepare(const Value& process_timeout_seconds) {
    const Value found_pnl_paths =
        closing(kFoundPnlFailed, [this] { return prefetch_found_pnl_files(host_, context_); });
    timeout_seconds_ = process_timeout_seconds.is_absent()
                           ? pool_.default_search_template_timeout_seconds()
                           : process_timeout_seconds;
    simulate_ = parts_.simulate(found_pnl_paths);
    remaining_ = batch_;
    // The jobs are not asked for when there is one candidate.
    stream_submissions_ =
        batch_.size() == 1 || less(1, parallel_evaluation_requested_jobs(context_));
    chunk_size_ = closing(kCapacityFailed, [this] {
      return parent_prefetch_chunk_size(host_, context_, static_cast<std::int64_t>(batch_.size()));
    });
    ledger_->prepare_for_processes();
  }

  // The next chunk of candidates through the pool.
  Turn pass() {
    if (context_.submission_cancelled()) return Turn::kLeave;
    streamed_.begin_pass();
    const IndexedGraphs current = next_chunk();
    List current_graphs(current.size());
    for (const IndexedGraph& candidate : current)
      current_graphs.append(candidate.graph);
    closing(kFeaturesFailed, [&] { pool_.prefetch_candidate_features(context_, current_graphs); });

    const Callable completed_result_callback =
        parts_.completed_result_callback(stream_submissions_, streamed_);
    List candidates(current.size());
    for (const IndexedGraph& candidate : current)
      candidates.append(pool_.candidate_evaluation(candidate.index, candidate.graph));
    const auto configured =
        pool_.configure([&] { return configuration(completed_result_callback); });
    const std::optional<Value> process_results = evaluate(*configured, candidates, current);
    return process_results ? take(*process_results) : Turn::kNext;
  }

  [[nodiscard]] IndexedGraphs next_chunk() const {
    const Value left = static_cast<std::int64_t>(remaining_.size());
    const std::int64_t size = saturated_integer(less(chunk_size_, left) ? chunk_size_ : left);
    return {remaining_.begin(), remaining_.begin() + size};
  }

  [[nodiscard]] ProcessEvaluationConfig configuration(const Callable& completed_result_callback) {
    ProcessEvaluationConfig config;
    config.n_jobs = parallel_evaluation_requested_jobs(context_);
    config.max_retries = kMaxRetries;
    config.timeout_seconds = timeout_seconds_;
    // The host's default is read even when the context has a priority of its own.
    const Value default_priority = host_.search_settings().default_process_priority();
    config.process_priority = context_.opaque_attribute(context_names::kProcessPriority.view())
                                  .value_or(default_priority);
    config.worker_memory_limit_bytes = context_worker_memory_limit_bytes(pool_, context_);
    config.worker_processes =
        context_.opaque_attribute(context_names::kWorkerProcesses.view()).value_or(Value());
    config.pre_dispatch_callback = parts_.pre_dispatch();
    config.lifecycle_callback = parts_.lifecycle();
    config.progress_callback = parts_.progress();
    config.completed_result_callback = completed_result_callback;
    config.parent_poll_callback = parts_.poll_backtest_boundaries();
    config.stop_requested = context_.find_submission_cancelled();
    config.drain_terminal_timeouts = true;
    return config;
  }

  // What the pool gives; nothing when it failed and its failure has been dealt with.
  [[nodiscard]] std::optional<Value> evaluate(ConfiguredPool& configured, const List& candidates,
                                              const IndexedGraphs& current) {
    try {
      return configured.evaluate_candidate_batch(candidates, simulate_);
    } catch (...) {
      const std::exception_ptr error = context_.as_host_error(std::current_exception());
      const auto handled = context_.handling(error);
      if (take_error(error, current) == Failure::kRaise) std::rethrow_exception(error);
      return std::nullopt;
    }
  }

  // What fails here leaves in place of the pool's error, which is its context.
  Failure take_error(const std::exception_ptr& error, const IndexedGraphs& current) {
    try {
      const std::optional<Value> process_error = pool_.as_caught_error(error);
      if (process_error) return take_failures(*process_error, current);
      ledger_->finalize_all_open(kAborted, context_.caught_object(error));
      return Failure::kRaise;
    } catch (...) {
      std::rethrow_exception(context_.as_host_error(std::current_exception()));
    }
  }

  Failure take_failures(const Value& process_error, const IndexedGraphs& current) {
    if (process_evaluation_error_is_search_fatal(pool_, process_error)) {
      return give_up(kFatal, process_error);
    }
    Mapping isolated_reasons;
    add(isolated_reasons, pool_.terminal_worker_failed());
    add(isolated_reasons, pool_.terminal_worker_timeout());

    Mapping completed;
    for (const Value& terminal_error : terminal_errors_of(process_error)) {
      const Value candidate_index =
          attribute(terminal_error, keys::kCandidateIndex.view()).value_or(Value());
      const Value terminal_reason =
          attribute(terminal_error, keys::kTerminalReason.view()).value_or(Value());
      // The failures of earlier errors stay recorded.
      if (!isolated_reasons.contains(terminal_reason)) {
        return give_up(kUnsupported, terminal_error);
      }
      const IndexedGraphs matched = matching(current, candidate_index, completed);
      if (matched.empty() && !completed.contains(candidate_index) &&
          !streamed_.current().contains(candidate_index)) {
        return give_up(kUnmatched, terminal_error);
      }
      for (const IndexedGraph& candidate : matched) {
        results_.set(candidate.index,
                     record_isolated_failure(host_, context_, *ledger_, candidate.index,
                                             candidate.graph, terminal_error));
        add(completed, candidate.index);
      }
    }
    keep_streamed(completed);
    drop_completed(completed);
    return Failure::kHandled;
  }

  Failure give_up(Key reason, const Value& error) {
    ledger_->finalize_all_open(reason, error);
    return Failure::kRaise;
  }

  // The candidates of that index. One that is done is none of them: it has its one record.
  [[nodiscard]] IndexedGraphs matching(const IndexedGraphs& current, const Value& candidate_index,
                                       const Mapping& completed) const {
    const Mapping streamed = streamed_.current();
    IndexedGraphs matched;
    for (const IndexedGraph& candidate : current) {
      if (candidate.index == candidate_index && !completed.contains(candidate.index) &&
          !streamed.contains(candidate.index)) {
        matched.push_back(candidate);
      }
    }
    return matched;
  }

  // A failure record that is there already stays.
  void keep_streamed(Mapping& completed) {
    MappingCursor streamed(streamed_.current());
    while (const std::optional<MappingEntry> entry = streamed.next()) {
      results_.set_default(entry->key, entry->value);
      add(completed, entry->key);
    }
  }

  // One walk over what the pool gives, which may be made as it is walked.
  Turn take(const Value& process_results) {
    Mapping completed;
    const auto walk = iterate(process_results);
    while (const std::optional<Value> process_result = walk->next()) {
      const auto candidate_index = [&process_result] {
        return required_attribute(*process_result, keys::kCandidateIndex.view());
      };
      Value record = streamed_.current().get(candidate_index());
      if (record.is_absent()) record = candidate_result_from_process_result(*process_result);
      results_.set(candidate_index(), std::move(record));
      add(completed, candidate_index());
    }
    if (completed.empty()) return Turn::kLeave;
    drop_completed(completed);
    return Turn::kNext;
  }

  void drop_completed(const Mapping& completed) {
    remaining_.erase(std::remove_if(remaining_.begin(), remaining_.end(),
                                    [&completed](const IndexedGraph& candidate) {
                                      return completed.contains(candidate.index);
                                    }),
                     remaining_.end());
  }

  [[nodiscard]] List results_in_order() const {
    List results(batch_.size());
    for (const IndexedGraph& candidate : batch_) {
      if (std::optional<Value> result = results_.find(candidate.index)) {
        results.append(*std::move(result));
      }
    }
    return results;
  }

  // The step's result. Whatever it fails with, an interrupt too, closes the attempts and goes on.
  template <typename Step>
  auto closing(Key reason, Step&& step) -> decltype(step()) {
    try {
      return std::forward<Step>(step)();
    } catch (...) {
      const std::exception_ptr error = context_.as_host_error(std::current_exception());
      const auto handled = context_.handling(error);
      ledger_->finalize_all_open(reason, context_.caught_object(error));
      std::rethrow_exception(error);
    }
  }

  Host& host_;
  SearchContext& context_;
  ProcessEvaluation& pool_;
  BatchParts& parts_;
  IndexedGraphs batch_;
  std::shared_ptr<AttemptLedger> ledger_;
  Value timeout_seconds_;
  Callable simulate_;
  bool stream_submissions_ = false;
  Value chunk_size_;
  IndexedGraphs remaining_;
  StreamedResults streamed_;
  Mapping results_;
};

}  // namespace

List evaluate_candidate_batch(Host& host, SearchContext& context, const Value& batch,
                              const Value& process_timeout_seconds, BatchParts& parts) {
  IndexedGraphs candidates = indexed(batch);
  if (candidates.empty()) return List();
  return BatchEvaluation(host, context, parts, std::move(candidates)).run(process_timeout_seconds);
}

Value evaluate_candidate_batch(Host& host, SearchContext& context, const Value& batch,
                               const Value& process_timeout_seconds) {
  if (BatchEvaluator* const evaluator = host.batch_evaluator()) {
    return evaluator->evaluate_candidate_batch(context, batch, process_timeout_seconds);
  }
  OwnBatchParts parts(host, context);
  return evaluate_candidate_batch(host, context, batch, process_timeout_seconds, parts);
}

}  // namespace varnholt::genetic
