// The hand-made host's helpers and its log. See scripted_host.hpp for how they are scripted.
//
// One object is several of the host's classes, as one module of a real host may be: gates, the
// pool's thresholds and metrics, limits, payloads, readiness. It writes every operation into the
// log with its arguments as a host's language would pass them, positional ones and keywords.
#pragma once

#include <array>
#include <exception>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/host/graph_depth.hpp"
#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/host/pool_metrics.hpp"
#include "search_templates/genetic/host/pool_thresholds.hpp"
#include "search_templates/genetic/host/random_graph_limits.hpp"
#include "search_templates/genetic/host/runtime_readiness.hpp"
#include "search_templates/genetic/host/submission_payloads.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

class ScriptedLogger : public Logger {
 public:
  explicit ScriptedLogger(CallLog& log) : log_(log) {}

  void error(std::string_view format, std::initializer_list<Value> values) override {
    write("logger.error", format, values);
  }
  void warning(std::string_view format, std::initializer_list<Value> values) override {
    write("logger.warning", format, values);
  }
  void warning_with_error(std::string_view text, const std::exception_ptr& error) override {
    std::string what = "no std::exception";
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& caught) {
      what = caught.what();
    } catch (...) {
      // Errors of other types have no text.
    }
    log_.add("logger.warning_with_error", {text, what});
  }

 private:
  void write(std::string_view name, std::string_view format, std::initializer_list<Value> values) {
    std::vector<Value> all = {format};
    all.insert(all.end(), values.begin(), values.end());
    log_.add(name, all, Mapping());
  }

  CallLog& log_;
};

// Thrown by the scripted engine to end a run.
class ScriptedInfrastructureError : public RuntimeError {
 public:
  using RuntimeError::RuntimeError;
};

// An answer to PoolMetrics::as_pool_data_not_ready: errors of this class say so.
template <typename NotReady>
[[nodiscard]] std::optional<Value> error_object_of(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const NotReady& not_ready) {
    return error_object(not_ready);
  } catch (...) {
    return std::nullopt;
  }
}

class ScriptedEngine : public GraphDepth,
                       public RandomGraphLimits,
                       public Gates,
                       public PoolThresholds,
                       public PoolMetrics,
                       public SubmissionPayloads,
                       public RuntimeReadiness {
 public:
  explicit ScriptedEngine(CallLog& log) : log_(log) {}

  std::function<Value(const Value&)> on_graph_depth_for_attempt_marker = always(1);
  std::function<bool(const Value&)> on_is_sdk_runtime_not_ready_error = always(false);
  std::function<Value()> on_sdk_runtime_not_ready_rejection_detail =
      always("SDK runtime is not ready");
  std::function<Value()> on_infrastructure_failure_threshold = always(10);

  // No threshold at all, no metric and no gate's failure.
  std::function<Value(const Mapping&, const Value&)> on_stats_gate_threshold_set =
      always(Value(Mapping()));
  std::function<Value(const Value&)> on_stats_gate_metrics = always(Value(Mapping()));
  std::function<Value(const Value&, const Value&)> on_evaluate_threshold_gates = always(Value());
  std::function<Value(const Value&)> on_threshold_gate_failure_reason = always("sharpe_min");
  std::function<Value(const Value&)> on_threshold_gate_failure_metric = always("sharpe");
  std::function<Value(const FailureEvidence&)> on_recorded_failure_detail =
      always("recorded detail");
  // A host that has none of the operations that may be missing.
  std::function<Callable()> on_find_recorded_failure_detail = always(Callable());
  std::function<Callable()> on_find_failed_gate_verdict = always(Callable());
  std::function<Callable()> on_find_gate_verdict = always(Callable());
  std::function<Callable()> on_find_submission_mi_threshold_and_pool = always(Callable());
  std::function<Callable()> on_find_submission_correlation_threshold_and_pool = always(Callable());
  std::function<Callable()> on_find_submitted_stats_payload_from_backtest = always(Callable());
  // A pool that is known and empty.
  std::function<Value(const Value&, const Value&)> on_submission_correlation_threshold_and_pool =
      always(Value(Tuple{0.7, "pool"}));
  std::function<Value()> on_refresh_submission_manifest_membership = always(true);
  std::function<Value()> on_selected_pool_has_synced_found_signal_ids = always(false);
  std::function<void()> on_normalize_required_pool_pnl_matrix = [] {};
  std::function<Value()> on_evaluation_metaparameters_for_pool = always("pool metaparameters");
  std::function<Value()> on_call_backtester_with_transform_context = always("backtested stats");
  std::function<Value()> on_submission_pnl_mi_from_backtest_or_compute =
      always(Value(Tuple{0.9, true}));
  std::function<Value()> on_submission_correlation_from_backtest_or_compute =
      always(Value(Tuple{0.25, true}));
  std::function<std::optional<Value>(const std::exception_ptr&)> on_as_pool_data_not_ready =
      always(std::nullopt);
  std::function<void(Mapping&)> on_annotate_submission_client_manifest = [](Mapping&) {};

  std::function<Value(const Value&, std::string_view)> on_function_entries_for_kind =
      always("functions");
  std::function<Value(const Value&)> on_random_weighted_window_limit = always(20);
  std::function<Value()> on_random_weighted_node_limit = always(50);
  std::function<Value()> on_random_weighted_runtime_registry = always("registry");
  std::function<Value(const Mapping&)> on_signal_generation_safe_rotations = always(Value(List{}));

  [[nodiscard]] Value graph_depth_for_attempt_marker(const Value& graph) override {
    log_.add("engine.graph_depth_for_attempt_marker", {graph});
    return on_graph_depth_for_attempt_marker(graph);
  }
  [[nodiscard]] bool is_sdk_runtime_not_ready_error(const Value& error) override {
    log_.add("engine.is_sdk_runtime_not_ready_error", {str(error)});
    return on_is_sdk_runtime_not_ready_error(error);
  }
  [[nodiscard]] Value sdk_runtime_not_ready_rejection_detail() override {
    log_.add("engine.sdk_runtime_not_ready_rejection_detail", {});
    return on_sdk_runtime_not_ready_rejection_detail();
  }
  [[nodiscard]] Value function_entries_for_kind(const Value& vocabulary,
                                                std::string_view kind) override {
    log_.add("engine.function_entries_for_kind", {vocabulary, kind});
    return on_function_entries_for_kind(vocabulary, kind);
  }
  [[nodiscard]] Value random_weighted_window_limit(SearchContext& /*context*/,
                                                   const Value& max_depth) override {
    log_.add("engine.random_weighted_window_limit", {max_depth});
    return on_random_weighted_window_limit(max_depth);
  }
  [[nodiscard]] Value random_weighted_node_limit(SearchContext& /*context*/) override {
    log_.add("engine.random_weighted_node_limit()");
    return on_random_weighted_node_limit();
  }
  [[nodiscard]] Value random_weighted_runtime_registry(SearchContext& /*context*/) override {
    log_.add("engine.random_weighted_runtime_registry()");
    return on_random_weighted_runtime_registry();
  }
  [[nodiscard]] Value signal_generation_safe_rotations(
      const SafeRotationsRequest& request) override {
    const Mapping keywords{{"log_context", request.log_context},
                           {"template_name", request.template_name},
                           {"stage", request.stage},
                           {"generator", request.generator}};
    log_.add("engine.signal_generation_safe_rotations",
             {request.functions, request.window_limit, request.node_limit, request.registry},
             keywords);
    return on_signal_generation_safe_rotations(keywords);
  }
  [[nodiscard]] Value infrastructure_failure_threshold() override {
    log_.add("engine.infrastructure_failure_threshold", {});
    return on_infrastructure_failure_threshold();
  }
  [[nodiscard]] Value stats_gate_threshold_set(const Mapping& thresholds,
                                               const Value& era_config) override {
    log_.add("engine.stats_gate_threshold_set", {thresholds, era_config});
    return on_stats_gate_threshold_set(thresholds, era_config);
  }
  [[nodiscard]] Value stats_gate_metrics(const Value& stats) override {
    log_.add("engine.stats_gate_metrics", {stats});
    return on_stats_gate_metrics(stats);
  }
  [[nodiscard]] Value evaluate_threshold_gates(const Value& metrics,
                                               const Value& threshold_set) override {
    log_.add("engine.evaluate_threshold_gates", {},
             {{"metrics", metrics}, {"threshold_set", threshold_set}});
    return on_evaluate_threshold_gates(metrics, threshold_set);
  }
  [[nodiscard]] Value threshold_gate_failure_reason(const Value& gate_failure) override {
    log_.add("engine.threshold_gate_failure_reason", {gate_failure});
    return on_threshold_gate_failure_reason(gate_failure);
  }
  [[nodiscard]] Value threshold_gate_failure_metric(const Value& gate_failure) override {
    log_.add("engine.threshold_gate_failure_metric", {gate_failure});
    return on_threshold_gate_failure_metric(gate_failure);
  }
  [[nodiscard]] Value recorded_failure_detail(const FailureEvidence& evidence) override {
    log_.add("engine.recorded_failure_detail", positional(evidence), keywords(evidence));
    return on_recorded_failure_detail(evidence);
  }
  [[nodiscard]] DetailOperation find_recorded_failure_detail() override {
    log_.add("engine.find_recorded_failure_detail");
    const Callable operation = on_find_recorded_failure_detail();
    if (!operation) return {};
    return [operation](const FailureEvidence& evidence) {
      return operation.body()->call(positional(evidence), keywords(evidence));
    };
  }
  [[nodiscard]] VerdictOperation find_failed_gate_verdict() override {
    log_.add("engine.find_failed_gate_verdict");
    const Callable operation = on_find_failed_gate_verdict();
    if (!operation) return {};
    return [operation](const GateOutcome& outcome) {
      return operation({outcome.reason}, keywords(outcome));
    };
  }
  [[nodiscard]] VerdictOperation find_gate_verdict() override {
    log_.add("engine.find_gate_verdict");
    const Callable operation = on_find_gate_verdict();
    if (!operation) return {};
    return [operation](const GateOutcome& outcome) {
      return outcome.passed ? operation({true}, keywords(outcome))
                            : operation({false, outcome.reason}, keywords(outcome));
    };
  }
  [[nodiscard]] MiThresholdOperation find_submission_mi_threshold_and_pool() override {
    log_.add("engine.find_submission_mi_threshold_and_pool");
    const Callable operation = on_find_submission_mi_threshold_and_pool();
    if (!operation) return {};
    return [operation](const Value& era_config, const Value& signal_pool_name,
                       const Value& thresholds) {
      return operation({era_config, signal_pool_name, thresholds});
    };
  }
  [[nodiscard]] CorrelationThresholdOperation find_submission_correlation_threshold_and_pool()
      override {
    log_.add("engine.find_submission_correlation_threshold_and_pool");
    const Callable operation = on_find_submission_correlation_threshold_and_pool();
    if (!operation) return {};
    return [operation](const Value& era_config, const Value& signal_pool_name) {
      return operation({era_config, signal_pool_name});
    };
  }
  [[nodiscard]] Value submission_correlation_threshold_and_pool(
      const Value& era_config, const Value& signal_pool_name) override {
    log_.add("engine.submission_correlation_threshold_and_pool", {era_config, signal_pool_name});
    return on_submission_correlation_threshold_and_pool(era_config, signal_pool_name);
  }
  [[nodiscard]] Value refresh_submission_manifest_membership(const Value& era_config,
                                                             const Value& signal_pool_name,
                                                             const Value& sync_manager) override {
    log_.add("engine.refresh_submission_manifest_membership",
             {era_config, signal_pool_name, sync_manager});
    return on_refresh_submission_manifest_membership();
  }
  [[nodiscard]] Value selected_pool_has_synced_found_signal_ids(
      const Value& era_config, const Value& signal_pool_name) override {
    log_.add("engine.selected_pool_has_synced_found_signal_ids", {era_config, signal_pool_name});
    return on_selected_pool_has_synced_found_signal_ids();
  }
  void normalize_required_pool_pnl_matrix(const Value& gate_stats, const Value& era_config,
                                          const Value& signal_pool_name) override {
    log_.add("engine.normalize_required_pool_pnl_matrix",
             {gate_stats, era_config, signal_pool_name});
    on_normalize_required_pool_pnl_matrix();
  }
  [[nodiscard]] Value evaluation_metaparameters_for_pool(const Value& signal_pool_name,
                                                         const Value& metaparameters) override {
    log_.add("engine.evaluation_metaparameters_for_pool", {signal_pool_name, metaparameters});
    return on_evaluation_metaparameters_for_pool();
  }
  [[nodiscard]] Value call_backtester_with_transform_context(
      const BacktestRequest& request) override {
    log_.add("engine.call_backtester_with_transform_context",
             {request.backtester, request.operation, request.graph, request.metaparameters,
              request.named_universe},
             request.extra_kwargs);
    return on_call_backtester_with_transform_context();
  }
  [[nodiscard]] Value submission_pnl_mi_from_backtest_or_compute(const PoolMetricRequest& request,
                                                                 const Value& thresholds) override {
    log_.add("engine.submission_pnl_mi_from_backtest_or_compute",
             {request.backtester, request.gate_stats, request.era_config, request.signal_pool_name,
              thresholds});
    return on_submission_pnl_mi_from_backtest_or_compute();
  }
  [[nodiscard]] Value submission_correlation_from_backtest_or_compute(
      const PoolMetricRequest& request) override {
    log_.add(
        "engine.submission_correlation_from_backtest_or_compute",
        {request.backtester, request.gate_stats, request.era_config, request.signal_pool_name});
    return on_submission_correlation_from_backtest_or_compute();
  }
  [[nodiscard]] std::optional<Value> as_pool_data_not_ready(
      const std::exception_ptr& error) override {
    log_.add("engine.as_pool_data_not_ready");
    return on_as_pool_data_not_ready(error);
  }
  [[nodiscard]] StatsPayloadOperation find_submitted_stats_payload_from_backtest() override {
    log_.add("engine.find_submitted_stats_payload_from_backtest");
    const Callable operation = on_find_submitted_stats_payload_from_backtest();
    if (!operation) return {};
    return [operation](const Value& stats, const Value& era_config) {
      return operation({stats, era_config});
    };
  }
  void annotate_submission_client_manifest(Mapping& payload, const Value& sync_manager) override {
    log_.add("engine.annotate_submission_client_manifest", {payload, sync_manager});
    on_annotate_submission_client_manifest(payload);
  }
  [[noreturn]] void raise_background_infrastructure_error(const std::string& detail) override {
    log_.add("engine.raise_background_infrastructure_error", {detail});
    throw ScriptedInfrastructureError(detail);
  }

 private:
  [[nodiscard]] static std::array<Value, 4> positional(const FailureEvidence& evidence) {
    return {evidence.reason, evidence.metric, evidence.value, evidence.threshold};
  }
  [[nodiscard]] static Mapping keywords(const FailureEvidence& evidence) {
    return {{"gate", evidence.gate},
            {"operator", evidence.comparison},
            {"category", evidence.category}};
  }
  [[nodiscard]] static Mapping keywords(const GateOutcome& outcome) {
    Mapping keywords;
    if (!outcome.passed) keywords.set("detail", outcome.detail);
    if (outcome.value) keywords.set("value", *outcome.value);
    if (outcome.threshold) keywords.set("threshold", *outcome.threshold);
    return keywords;
  }

  CallLog& log_;
};

}  // namespace varnholt::genetic::test
