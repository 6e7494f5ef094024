#include "hosts/embedded/host/embedded_engine.hpp"

#include <optional>

#include "hosts/embedded/gates/failure_detail.hpp"
#include "hosts/embedded/gates/threshold_set.hpp"
#include "hosts/embedded/host/backtester_object.hpp"
#include "hosts/embedded/host/gate_objects.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

namespace {

// Fills each "%s" of the format with the next value's text.
std::string formatted(std::string_view format, std::initializer_list<Value> values) {
  std::string text;
  const auto* value = values.begin();
  while (!format.empty()) {
    const std::size_t hole = format.find("%s");
    text += format.substr(0, hole);
    if (hole == std::string_view::npos) break;
    if (value != values.end()) text += genetic::str(*value++);
    format.remove_prefix(hole + 2);
  }
  return text;
}

std::string error_text(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "an error without text";
  }
}

Value attribute_or_absent(const Value& object, std::string_view name) {
  return genetic::attribute(object, name).value_or(Value());
}

Value verdict(const genetic::GateOutcome& outcome) {
  return Mapping{{"verdict", outcome.passed ? "passed" : "failed"},
                 {keys::kReason, outcome.reason},
                 {keys::kValue, outcome.value.value_or(Value())},
                 {keys::kThreshold, outcome.threshold.value_or(Value())}};
}

}  // namespace

void EmbeddedLogger::error(std::string_view format, std::initializer_list<Value> values) {
  sink_(LogLevel::Error, formatted(format, values));
}

void EmbeddedLogger::warning(std::string_view format, std::initializer_list<Value> values) {
  sink_(LogLevel::Warning, formatted(format, values));
}

void EmbeddedLogger::warning_with_error(std::string_view text, const std::exception_ptr& error) {
  sink_(LogLevel::Warning, std::string(text) + ": " + error_text(error));
}

Value EmbeddedEngine::graph_depth_for_attempt_marker(const Value& graph) {
  return measure_graph(graph).depth;
}

Value EmbeddedEngine::function_entries_for_kind(const Value& vocabulary, std::string_view kind) {
  return genetic::item(genetic::item(vocabulary, "functions"), kind);
}

Value EmbeddedEngine::random_weighted_window_limit(genetic::SearchContext& /*context*/,
                                                   const Value& /*max_depth*/) {
  return graphs_.max_window;
}

Value EmbeddedEngine::random_weighted_node_limit(genetic::SearchContext& /*context*/) {
  return static_cast<std::int64_t>(graphs_.max_nodes);
}

Value EmbeddedEngine::signal_generation_safe_rotations(
    const genetic::SafeRotationsRequest& request) {
  genetic::List safe;
  const auto walk = genetic::iterate(request.functions);
  while (const std::optional<Value> function = walk->next()) {
    // The rotation's own node and one for each of its children.
    const Value nodes = genetic::item(*function, "child_count").integer() + 1;
    if (!genetic::less(request.node_limit, nodes)) safe.append(*function);
  }
  return safe;
}

Value EmbeddedEngine::stats_gate_threshold_set(const Mapping& thresholds,
                                               const Value& /*era_config*/) {
  return threshold_set(gates_, limits_, thresholds);
}

Value EmbeddedEngine::stats_gate_metrics(const Value& stats) {
  const auto statistics = statistics_of(stats);
  return statistics ? statistics_mapping(*statistics) : Mapping();
}

Value EmbeddedEngine::evaluate_threshold_gates(const Value& metrics, const Value& thresholds) {
  return genetic::make_object<GateResultObject>(
      embedded::evaluate_threshold_gates(metrics, thresholds));
}

Value EmbeddedEngine::threshold_gate_failure_reason(const Value& gate_failure) {
  return attribute_or_absent(gate_failure, "reason");
}

Value EmbeddedEngine::threshold_gate_failure_metric(const Value& gate_failure) {
  return attribute_or_absent(gate_failure, "metric");
}

genetic::DetailOperation EmbeddedEngine::find_recorded_failure_detail() {
  return [](const genetic::FailureEvidence& evidence) { return Value(failure_detail(evidence)); };
}

genetic::VerdictOperation EmbeddedEngine::find_failed_gate_verdict() {
  return verdict;
}

genetic::VerdictOperation EmbeddedEngine::find_gate_verdict() {
  return verdict;
}

genetic::MiThresholdOperation EmbeddedEngine::find_submission_mi_threshold_and_pool() {
  return [this](const Value& /*era_config*/, const Value& signal_pool_name,
                const Value& /*thresholds*/) {
    return Value(Tuple{submission_.thresholds().min_novelty, signal_pool_name});
  };
}

genetic::CorrelationThresholdOperation
EmbeddedEngine::find_submission_correlation_threshold_and_pool() {
  return [this](const Value& /*era_config*/, const Value& signal_pool_name) {
    return Value(Tuple{submission_.thresholds().max_correlation, signal_pool_name});
  };
}

Value EmbeddedEngine::refresh_submission_manifest_membership(const Value& /*era_config*/,
                                                             const Value& /*signal_pool_name*/,
                                                             const Value& /*sync_manager*/) {
  return submission_.refresh();
}

Value EmbeddedEngine::selected_pool_has_synced_found_signal_ids(const Value& /*era_config*/,
                                                                const Value& /*signal_pool_name*/) {
  return submission_.has_members();
}

void EmbeddedEngine::normalize_required_pool_pnl_matrix(const Value& gate_stats,
                                                        const Value& /*era_config*/,
                                                        const Value& /*signal_pool_name*/) {
  static_cast<void>(required_pnl(gate_stats));
}

Value EmbeddedEngine::call_backtester_with_transform_context(
    const genetic::BacktestRequest& request) {
  return backtest_with_pnl(request.backtester, request.graph);
}

Value EmbeddedEngine::submission_pnl_mi_from_backtest_or_compute(
    const genetic::PoolMetricRequest& request, const Value& /*thresholds*/) {
  const PoolMeasure& measure = submission_.measure(request.gate_stats);
  return Tuple{measure.novelty, passes_novelty(measure, submission_.thresholds())};
}

Value EmbeddedEngine::submission_correlation_from_backtest_or_compute(
    const genetic::PoolMetricRequest& request) {
  const PoolMeasure& measure = submission_.measure(request.gate_stats);
  return Tuple{measure.correlation, passes_correlation(measure, submission_.thresholds())};
}

std::optional<Value> EmbeddedEngine::as_pool_data_not_ready(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const PoolDataNotReady& not_ready) {
    return genetic::error_object(not_ready);
  } catch (...) {
    return std::nullopt;
  }
}

genetic::StatsPayloadOperation EmbeddedEngine::find_submitted_stats_payload_from_backtest() {
  return [this](const Value& stats, const Value& /*era_config*/) {
    return Value(Tuple{stats_gate_metrics(stats), Value()});
  };
}

void EmbeddedEngine::annotate_submission_client_manifest(Mapping& payload,
                                                         const Value& /*sync_manager*/) {
  payload.set("client_manifest", genetic::shallow_copy(client_manifest_));
}

void EmbeddedEngine::raise_background_infrastructure_error(const std::string& detail) {
  throw BackgroundInfrastructureError(detail);
}

}  // namespace varnholt::embedded
