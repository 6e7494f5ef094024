// One search's context: what the host hands to the template when it calls it.
//
// Every method below reads one attribute of the context, at the moment it is called and each time
// anew. A missing attribute and an absent value differ: such a read gives std::optional. An
// operation that is missing or cannot be called is an empty Callable.
//
// A host has an evaluator, a recorder and somewhere to submit what passes; everything else is
// missing unless it is overridden. Called in the parent, and in the child by the evaluation of
// one candidate: there the evaluator, the record of the evaluation, the recorder of a failed
// one, the evidence and the derivation of a reason are asked for.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string_view>

#include "search_templates/genetic/host/attempt_tracker.hpp"
#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/child_context.hpp"
#include "search_templates/genetic/host/no_attempts.hpp"
#include "search_templates/genetic/host/stop_event.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Attributes that hold plain data, by their names in the host, for SearchContext::attribute. Where
// the host has a name with and without an underscore, the constant of the first begins with "Own".
namespace context_names {

// What a signal is submitted to: the market, the era with its configuration, the signal pool.
inline constexpr Key kOwnMarketId = key<"_market_id">();
inline constexpr Key kMarketId = key<"market_id">();
inline constexpr Key kOwnEraNumber = key<"_era_number">();
inline constexpr Key kEraNumber = key<"era_number">();
inline constexpr Key kOwnEraConfig = key<"_era_config">();
inline constexpr Key kEraConfig = key<"era_config">();
inline constexpr Key kSignalPoolName = key<"_signal_pool_name">();
inline constexpr Key kSubmissionOwner = key<"_submission_owner">();

// The thresholds of the gates.
inline constexpr Key kThresholds = key<"thresholds">();
inline constexpr Key kOwnThresholds = key<"_thresholds">();

// What a backtest is run with, and the host's link to the pool. The first and the last are opaque.
inline constexpr Key kBacktester = key<"_backtester">();
inline constexpr Key kEvaluationMetaparameters = key<"_evaluation_metaparameters">();
inline constexpr Key kMetaparameters = key<"_metaparameters">();
inline constexpr Key kNamedUniverse = key<"_named_universe">();
inline constexpr Key kSyncManager = key<"_sync_mgr">();

// What an attempt is created and ended with: handed on, never looked into.
inline constexpr Key kTracker = key<"_tracker">();
inline constexpr Key kProductRunId = key<"_product_run_id">();
inline constexpr Key kAttemptExpectedColumns = key<"_attempt_expected_columns">();
inline constexpr Key kMetaparametersForDatabase = key<"_metaparams_for_db">();

// The process settings of the worker pool.
inline constexpr Key kProcessPriority = key<"_process_priority">();
inline constexpr Key kWorkerProcesses = key<"_worker_processes">();

}  // namespace context_names

class SearchContext {
 public:
  virtual ~SearchContext() = default;

  // Null when the context has no stop event, or an absent one.
  [[nodiscard]] virtual std::shared_ptr<StopEvent> stop_event() { return nullptr; }
  // Called with three texts when the runtime keeps failing. Empty when missing or false; one that
  // is there but cannot be called fails in the call.
  [[nodiscard]] virtual Callable fatal_callback() { return {}; }
  // Takes the metrics of the run as keyword arguments.
  [[nodiscard]] virtual Callable record_search_run_metrics() { return {}; }

  // The depth limit of graphs, the words they are made of, and the process settings. Missing gives
  // nothing.
  [[nodiscard]] virtual std::optional<Value> max_depth() { return std::nullopt; }
  [[nodiscard]] virtual std::optional<Value> vocabulary() { return std::nullopt; }
  [[nodiscard]] virtual std::optional<Value> n_jobs() { return std::nullopt; }
  [[nodiscard]] virtual std::optional<Value> worker_memory_limit_bytes() { return std::nullopt; }
  // Any attribute by its name in the host.
  [[nodiscard]] virtual std::optional<Value> attribute(std::string_view /*name*/) {
    return std::nullopt;
  }
  // The same for what is only handed on: a host may give its own object, of whatever type, so that
  // it meets that very object again.
  [[nodiscard]] virtual std::optional<Value> opaque_attribute(std::string_view name);
  // The same for a caller that requires it: AttributeError when the context has none.
  [[nodiscard]] virtual Value required_attribute(std::string_view name);

  // Validates one graph and throws when it refuses it: the context's own operation, and the
  // backtester's.
  [[nodiscard]] virtual Callable own_graph_validator() { return {}; }
  [[nodiscard]] virtual Callable backtester_validate_graph() { return {}; }

  // The evaluator: one graph in, a mapping with the evaluation's record out. Runs in a child.
  [[nodiscard]] virtual Callable evaluate_for_template() = 0;
  // The record of the evaluation that ran last.
  [[nodiscard]] virtual std::optional<Value> last_evaluation_record() { return std::nullopt; }
  // Records one attempt.
  [[nodiscard]] virtual Callable safe_record() = 0;
  // The same operation for a caller that requires it: AttributeError when the context has none; one
  // that is there but cannot be called fails in the call.
  [[nodiscard]] virtual Callable required_safe_record();
  // Makes the attempt of a child the current one of the parent, before its record is written.
  virtual void activate_existing_attempt(const Value& /*source_attempt_id*/,
                                         const Value& /*attempt_evidence*/) {}
  // Hands one submission payload on. False, and nothing else, means that it was not taken.
  [[nodiscard]] virtual Callable enqueue_deferred_submission_payload() = 0;
  // Gives thresholds beyond those of the attributes, as a mapping.
  [[nodiscard]] virtual Callable search_context_thresholds() { return {}; }
  // The evidence of the attempt under way. A failure propagates to the caller.
  [[nodiscard]] virtual Value current_attempt_evidence() { return {}; }
  // Derives from statistics why a candidate failed: a pair of reason and detail, each or both
  // absent.
  [[nodiscard]] virtual Callable derive_rejection_reason_detail() { return {}; }

  // The attempt tracker, in the parent. By default attempts are told apart and not kept; a context
  // of a language whose objects may lack the attribute fails here as that language does.
  [[nodiscard]] virtual std::shared_ptr<AttemptTracker> tracker() {
    if (no_attempts_ == nullptr) no_attempts_ = std::make_shared<NoAttempts>();
    return no_attempts_;
  }
  // Whether the run has been cancelled. Asked in the parent; every call is behaviour.
  [[nodiscard]] virtual bool submission_cancelled() { return false; }
  // The same operation for the pool, which asks it by itself; empty when the context has none.
  [[nodiscard]] virtual Callable find_submission_cancelled();

  // What this context is to a child that evaluates one of its candidates. A context whose recorder
  // persists offers its operations there: in a child they are guarded.
  [[nodiscard]] virtual ChildContext& child() { return plain_child_; }

  // The same error as one of the host's own, with what is being handled as its context, so that it
  // is one object from now on, whoever is told of it. A host of this language has nothing to do.
  [[nodiscard]] virtual std::exception_ptr as_host_error(const std::exception_ptr& error) {
    return error;
  }
  // The object of an error that is on its way, an interrupt among them, for what is told about it.
  [[nodiscard]] virtual Value caught_object(const std::exception_ptr& error);
  // Tells the host that `error` is being handled for as long as the result lives. A host whose
  // language has such a notion shows it to its own operations, which may write it into a log; to
  // any other host it means nothing.
  [[nodiscard]] virtual std::shared_ptr<const void> handling(const std::exception_ptr& /*error*/) {
    return nullptr;
  }

 private:
  PlainChild plain_child_;
  std::shared_ptr<NoAttempts> no_attempts_;  // Made when it is asked for first.
};

}  // namespace varnholt::genetic
