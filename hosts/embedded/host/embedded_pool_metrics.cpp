#include "hosts/embedded/host/embedded_pool_metrics.hpp"

#include "hosts/embedded/host/backtester_object.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/error_object.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

genetic::MiThresholdOperation EmbeddedPoolMetrics::find_submission_mi_threshold_and_pool() {
  return [this](const Value& /*era_config*/, const Value& signal_pool_name,
                const Value& /*thresholds*/) {
    return Value(Tuple{submission_.thresholds().min_novelty, signal_pool_name});
  };
}

genetic::CorrelationThresholdOperation
EmbeddedPoolMetrics::find_submission_correlation_threshold_and_pool() {
  return [this](const Value& /*era_config*/, const Value& signal_pool_name) {
    return Value(Tuple{submission_.thresholds().max_correlation, signal_pool_name});
  };
}

Value EmbeddedPoolMetrics::refresh_submission_manifest_membership(const Value& /*era_config*/,
                                                                  const Value& /*signal_pool_name*/,
                                                                  const Value& /*sync_manager*/) {
  return submission_.refresh();
}

Value EmbeddedPoolMetrics::selected_pool_has_synced_found_signal_ids(
    const Value& /*era_config*/, const Value& /*signal_pool_name*/) {
  return submission_.has_members();
}

void EmbeddedPoolMetrics::normalize_required_pool_pnl_matrix(const Value& gate_stats,
                                                             const Value& /*era_config*/,
                                                             const Value& /*signal_pool_name*/) {
  static_cast<void>(required_pnl(gate_stats));
}

Value EmbeddedPoolMetrics::call_backtester_with_transform_context(
    const genetic::BacktestRequest& request) {
  return backtest_with_pnl(request.backtester, request.graph);
}

Value EmbeddedPoolMetrics::submission_pnl_mi_from_backtest_or_compute(
    const genetic::PoolMetricRequest& request, const Value& /*thresholds*/) {
  const PoolMeasure& measure = submission_.measure(request.gate_stats);
  return Tuple{measure.novelty, passes_novelty(measure, submission_.thresholds())};
}

Value EmbeddedPoolMetrics::submission_correlation_from_backtest_or_compute(
    const genetic::PoolMetricRequest& request) {
  const PoolMeasure& measure = submission_.measure(request.gate_stats);
  return Tuple{measure.correlation, passes_correlation(measure, submission_.thresholds())};
}

std::optional<Value> EmbeddedPoolMetrics::as_pool_data_not_ready(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const PoolDataNotReady& not_ready) {
    return genetic::error_object(not_ready);
  } catch (...) {
    return std::nullopt;
  }
}

genetic::StatsPayloadOperation EmbeddedPoolMetrics::find_submitted_stats_payload_from_backtest() {
  return [](const Value& stats, const Value& /*era_config*/) {
    return Value(Tuple{statistics_by_name(stats), Value()});
  };
}

void EmbeddedPoolMetrics::annotate_submission_client_manifest(Mapping& payload,
                                                              const Value& /*sync_manager*/) {
  payload.set("client_manifest", genetic::shallow_copy(client_manifest_));
}

}  // namespace varnholt::embedded
