// The helpers that the embedded host shares with the search: log, limits, gates, pool metrics.
#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/host/signal_submission.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/host/graph_depth.hpp"
#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/host/pool_metrics.hpp"
#include "search_templates/genetic/host/pool_thresholds.hpp"
#include "search_templates/genetic/host/random_graph_limits.hpp"
#include "search_templates/genetic/host/runtime_readiness.hpp"
#include "search_templates/genetic/host/submission_payloads.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Ends a run whose runtime keeps failing.
class BackgroundInfrastructureError : public genetic::RuntimeError {
 public:
  using RuntimeError::RuntimeError;
};

class EmbeddedLogger : public genetic::Logger {
 public:
  using Sink = std::function<void(LogLevel, std::string_view)>;

  explicit EmbeddedLogger(Sink sink) : sink_(std::move(sink)) {}

  void error(std::string_view format, std::initializer_list<genetic::Value> values) override;
  void warning(std::string_view format, std::initializer_list<genetic::Value> values) override;
  void warning_with_error(std::string_view text, const std::exception_ptr& error) override;

 private:
  Sink sink_;
};

class EmbeddedEngine : public genetic::GraphDepth,
                       public genetic::RandomGraphLimits,
                       public genetic::Gates,
                       public genetic::PoolThresholds,
                       public genetic::PoolMetrics,
                       public genetic::SubmissionPayloads,
                       public genetic::RuntimeReadiness {
 public:
  // `submission` is where what passes is measured and submitted, and must outlive the engine;
  // `client_manifest` is what the payloads say of this client.
  EmbeddedEngine(const RandomGraphOptions& graphs, const GateThresholds& gates,
                 const HardLimits& limits, SignalSubmission& submission,
                 genetic::Mapping client_manifest)
      : graphs_(graphs),
        gates_(gates),
        limits_(limits),
        submission_(submission),
        client_manifest_(std::move(client_manifest)) {}

  // Nodes on the longest way down. genetic::ValueError for anything but a graph of nodes.
  [[nodiscard]] genetic::Value graph_depth_for_attempt_marker(const genetic::Value& graph) override;
  // The vocabulary's functions are its rotations; there is no other kind of function.
  [[nodiscard]] genetic::Value function_entries_for_kind(const genetic::Value& vocabulary,
                                                         std::string_view kind) override;
  [[nodiscard]] genetic::Value random_weighted_window_limit(
      genetic::SearchContext& context, const genetic::Value& max_depth) override;
  [[nodiscard]] genetic::Value random_weighted_node_limit(genetic::SearchContext& context) override;
  // Every rotation that fits into the node limit is safe: none of the vocabulary's can fail.
  [[nodiscard]] genetic::Value signal_generation_safe_rotations(
      const genetic::SafeRotationsRequest& request) override;
  // The host's thresholds, in which an entry of `thresholds` replaces that of the gate it names.
  [[nodiscard]] genetic::Value stats_gate_threshold_set(const genetic::Mapping& thresholds,
                                                        const genetic::Value& era_config) override;
  // The statistics by name. A value without statistics has none, and so no gate is judged.
  [[nodiscard]] genetic::Value stats_gate_metrics(const genetic::Value& stats) override;
  [[nodiscard]] genetic::Value evaluate_threshold_gates(const genetic::Value& metrics,
                                                        const genetic::Value& thresholds) override;
  [[nodiscard]] genetic::Value threshold_gate_failure_reason(
      const genetic::Value& gate_failure) override;
  [[nodiscard]] genetic::Value threshold_gate_failure_metric(
      const genetic::Value& gate_failure) override;
  [[nodiscard]] genetic::DetailOperation find_recorded_failure_detail() override;
  // {"verdict": "failed", "reason", "value", "threshold"} and {"verdict": "passed", ...}.
  [[nodiscard]] genetic::VerdictOperation find_failed_gate_verdict() override;
  [[nodiscard]] genetic::VerdictOperation find_gate_verdict() override;

  [[nodiscard]] genetic::MiThresholdOperation find_submission_mi_threshold_and_pool() override;
  [[nodiscard]] genetic::CorrelationThresholdOperation
  find_submission_correlation_threshold_and_pool() override;
  [[nodiscard]] genetic::Value refresh_submission_manifest_membership(
      const genetic::Value& era_config, const genetic::Value& signal_pool_name,
      const genetic::Value& sync_manager) override;
  [[nodiscard]] genetic::Value selected_pool_has_synced_found_signal_ids(
      const genetic::Value& era_config, const genetic::Value& signal_pool_name) override;
  void normalize_required_pool_pnl_matrix(const genetic::Value& gate_stats,
                                          const genetic::Value& era_config,
                                          const genetic::Value& signal_pool_name) override;
  [[nodiscard]] genetic::Value call_backtester_with_transform_context(
      const genetic::BacktestRequest& request) override;
  [[nodiscard]] genetic::Value submission_pnl_mi_from_backtest_or_compute(
      const genetic::PoolMetricRequest& request, const genetic::Value& thresholds) override;
  [[nodiscard]] genetic::Value submission_correlation_from_backtest_or_compute(
      const genetic::PoolMetricRequest& request) override;
  [[nodiscard]] std::optional<genetic::Value> as_pool_data_not_ready(
      const std::exception_ptr& error) override;

  // All statistics of a statistics object, by name.
  [[nodiscard]] genetic::StatsPayloadOperation find_submitted_stats_payload_from_backtest()
      override;
  // Writes "client_manifest".
  void annotate_submission_client_manifest(genetic::Mapping& payload,
                                           const genetic::Value& sync_manager) override;

  [[noreturn]] void raise_background_infrastructure_error(const std::string& detail) override;

 private:
  RandomGraphOptions graphs_;
  GateThresholds gates_;
  HardLimits limits_;
  SignalSubmission& submission_;
  genetic::Mapping client_manifest_;
};

}  // namespace varnholt::embedded
