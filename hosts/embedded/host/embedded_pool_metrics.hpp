// The signal pool as the search measures against it and submits to it.
#pragma once

#include <exception>
#include <optional>
#include <utility>

#include "hosts/embedded/host/signal_submission.hpp"
#include "search_templates/genetic/host/pool_metrics.hpp"
#include "search_templates/genetic/host/pool_thresholds.hpp"
#include "search_templates/genetic/host/submission_payloads.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class EmbeddedPoolMetrics : public genetic::PoolThresholds,
                            public genetic::PoolMetrics,
                            public genetic::SubmissionPayloads {
 public:
  // `submission` is where what passes is measured and submitted, and must outlive this;
  // `client_manifest` is what the payloads say of this client.
  EmbeddedPoolMetrics(SignalSubmission& submission, genetic::Mapping client_manifest)
      : submission_(submission), client_manifest_(std::move(client_manifest)) {}

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

 private:
  SignalSubmission& submission_;
  genetic::Mapping client_manifest_;
};

}  // namespace varnholt::embedded
