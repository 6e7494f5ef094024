// The host's modules for shared helpers, scores, random graphs and verdicts.
#pragma once

#include <exception>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/host/evaluation_verdicts.hpp"
#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/host/genetic_ops.hpp"
#include "search_templates/genetic/host/graph_depth.hpp"
#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/host/pool_metrics.hpp"
#include "search_templates/genetic/host/pool_thresholds.hpp"
#include "search_templates/genetic/host/random_graph_limits.hpp"
#include "search_templates/genetic/host/random_weighted.hpp"
#include "search_templates/genetic/host/runtime_readiness.hpp"
#include "search_templates/genetic/host/submission_payloads.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// `_engine.logger`.
class PythonLogger : public genetic::Logger {
 public:
  explicit PythonLogger(const ModuleGlobals& globals) : globals_(globals) {}

  void error(std::string_view format, std::initializer_list<genetic::Value> values) override;
  void warning(std::string_view format, std::initializer_list<genetic::Value> values) override;
  // With `exc_info=True`, while `error` is the exception being handled.
  void warning_with_error(std::string_view text, const std::exception_ptr& error) override;

  [[nodiscard]] nb::object object() const { return globals_.get("_engine", "logger"); }

 private:
  void log(const char* level, std::string_view format,
           std::initializer_list<genetic::Value> values);

  const ModuleGlobals& globals_;
};

// `_engine`: one module of the host that answers for several subjects.
class PythonEngine : public genetic::GraphDepth,
                     public genetic::RandomGraphLimits,
                     public genetic::Gates,
                     public genetic::PoolThresholds,
                     public genetic::PoolMetrics,
                     public genetic::SubmissionPayloads,
                     public genetic::RuntimeReadiness {
 public:
  explicit PythonEngine(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] genetic::Value graph_depth_for_attempt_marker(const genetic::Value& graph) override;
  [[nodiscard]] genetic::Value function_entries_for_kind(const genetic::Value& vocabulary,
                                                         std::string_view kind) override;
  [[nodiscard]] genetic::Value random_weighted_window_limit(
      genetic::SearchContext& context, const genetic::Value& max_depth) override;
  [[nodiscard]] genetic::Value random_weighted_node_limit(genetic::SearchContext& context) override;
  [[nodiscard]] genetic::Value random_weighted_runtime_registry(
      genetic::SearchContext& context) override;
  [[nodiscard]] genetic::Value signal_generation_safe_rotations(
      const genetic::SafeRotationsRequest& request) override;

  // Defined in python_engine_gates.cpp. `find_...` is getattr(_engine, name, None), empty for what
  // cannot be called; the others read the attribute and fail as Python does where it is missing.
  [[nodiscard]] genetic::Value stats_gate_threshold_set(const genetic::Mapping& thresholds,
                                                        const genetic::Value& era_config) override;
  [[nodiscard]] genetic::Value stats_gate_metrics(const genetic::Value& stats) override;
  // The module's `_evaluate_threshold_gates`, not an attribute of `_engine`.
  [[nodiscard]] genetic::Value evaluate_threshold_gates(
      const genetic::Value& metrics, const genetic::Value& threshold_set) override;
  [[nodiscard]] genetic::Value threshold_gate_failure_reason(
      const genetic::Value& gate_failure) override;
  [[nodiscard]] genetic::Value threshold_gate_failure_metric(
      const genetic::Value& gate_failure) override;
  [[nodiscard]] genetic::Value recorded_failure_detail(
      const genetic::FailureEvidence& evidence) override;
  [[nodiscard]] genetic::DetailOperation find_recorded_failure_detail() override;
  [[nodiscard]] genetic::DetailOperation required_recorded_failure_detail() override;
  [[nodiscard]] genetic::Operation<genetic::Value(const genetic::Value&)>
  required_stats_gate_metrics() override;
  [[nodiscard]] genetic::VerdictOperation find_failed_gate_verdict() override;
  [[nodiscard]] genetic::VerdictOperation find_gate_verdict() override;
  [[nodiscard]] genetic::MiThresholdOperation find_submission_mi_threshold_and_pool() override;
  [[nodiscard]] genetic::CorrelationThresholdOperation
  find_submission_correlation_threshold_and_pool() override;
  [[nodiscard]] genetic::Value submission_correlation_threshold_and_pool(
      const genetic::Value& era_config, const genetic::Value& signal_pool_name) override;
  [[nodiscard]] genetic::Value refresh_submission_manifest_membership(
      const genetic::Value& era_config, const genetic::Value& signal_pool_name,
      const genetic::Value& sync_manager) override;
  [[nodiscard]] genetic::Value selected_pool_has_synced_found_signal_ids(
      const genetic::Value& era_config, const genetic::Value& signal_pool_name) override;
  void normalize_required_pool_pnl_matrix(const genetic::Value& gate_stats,
                                          const genetic::Value& era_config,
                                          const genetic::Value& signal_pool_name) override;
  [[nodiscard]] genetic::Value evaluation_metaparameters_for_pool(
      const genetic::Value& signal_pool_name, const genetic::Value& metaparameters) override;
  [[nodiscard]] genetic::Value call_backtester_with_transform_context(
      const genetic::BacktestRequest& request) override;
  [[nodiscard]] genetic::Value submission_pnl_mi_from_backtest_or_compute(
      const genetic::PoolMetricRequest& request, const genetic::Value& thresholds) override;
  [[nodiscard]] genetic::Value submission_correlation_from_backtest_or_compute(
      const genetic::PoolMetricRequest& request) override;
  [[nodiscard]] Membership required_refresh_submission_manifest_membership() override;
  [[nodiscard]] Metaparameters required_evaluation_metaparameters_for_pool() override;
  [[nodiscard]] Backtest required_call_backtester_with_transform_context() override;
  [[nodiscard]] PnlMi required_submission_pnl_mi_from_backtest_or_compute() override;
  // As `except (_engine.AgentPoolPnlSyncMissingError, _engine.PoolMetricNotYetComputableError)`.
  [[nodiscard]] std::optional<genetic::Value> as_pool_data_not_ready(
      const std::exception_ptr& error) override;
  [[nodiscard]] genetic::StatsPayloadOperation find_submitted_stats_payload_from_backtest()
      override;
  void annotate_submission_client_manifest(genetic::Mapping& payload,
                                           const genetic::Value& sync_manager) override;
  [[nodiscard]] genetic::Operation<void(genetic::Mapping&, const genetic::Value&)>
  required_annotate_submission_client_manifest() override;

  [[nodiscard]] bool is_sdk_runtime_not_ready_error(const genetic::Value& error) override;
  [[nodiscard]] genetic::Value sdk_runtime_not_ready_rejection_detail() override;
  [[nodiscard]] genetic::Value infrastructure_failure_threshold() override;
  [[noreturn]] void raise_background_infrastructure_error(const std::string& detail) override;

 private:
  [[nodiscard]] genetic::Callable find(const char* name) const;
  // The attribute `name` of `_engine`, whatever it is: one that cannot be called fails in the call.
  [[nodiscard]] genetic::Callable own(const char* name) const;
  genetic::Value call_own(const char* name, std::span<const genetic::Value> positional,
                          const genetic::Mapping& keywords = genetic::Mapping()) const;

  const ModuleGlobals& globals_;
};

// `score_candidate`.
class PythonEliteness : public genetic::Eliteness {
 public:
  explicit PythonEliteness(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] genetic::Value score_candidate(const genetic::Value& candidate,
                                               const genetic::Mapping& keywords) override;

 private:
  const ModuleGlobals& globals_;
};

// `crossover`, `point_mutation`, `subtree_mutation` and `hoist_mutation`.
class PythonGeneticOps : public genetic::GeneticOps {
 public:
  explicit PythonGeneticOps(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] genetic::Value crossover(const genetic::Value& elite, const genetic::Value& mate,
                                         const std::shared_ptr<genetic::RandomGenerator>& rng,
                                         const genetic::Callable& validator) override;
  [[nodiscard]] genetic::Value point_mutation(const genetic::Value& elite,
                                              const genetic::Value& replacements,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override;
  [[nodiscard]] genetic::Value subtree_mutation(
      const genetic::Value& elite, const genetic::Value& replacements,
      const std::shared_ptr<genetic::RandomGenerator>& rng,
      const genetic::Callable& validator) override;
  [[nodiscard]] genetic::Value hoist_mutation(const genetic::Value& elite,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override;

 private:
  const ModuleGlobals& globals_;
};

// `_random_weighted_graphs`, with the module's own log context.
class PythonRandomWeighted : public genetic::RandomWeighted {
 public:
  explicit PythonRandomWeighted(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] std::unique_ptr<genetic::ValueIterator> random_weighted_graphs(
      genetic::SearchContext& context, const std::shared_ptr<genetic::RandomGenerator>& rng,
      const genetic::Mapping& log_context, std::string_view template_name) override;

 private:
  const ModuleGlobals& globals_;
};

// The host's module of verdicts, imported at each call: loading our module does not need it.
class PythonEvaluationVerdicts : public genetic::EvaluationVerdicts {
 public:
  [[nodiscard]] genetic::Value not_evaluated_verdict() override;
};

}  // namespace varnholt::python
