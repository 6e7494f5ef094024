#include "hosts/embedded/host/embedded_engine.hpp"

#include <optional>

#include "hosts/embedded/gates/failure_detail.hpp"
#include "hosts/embedded/gates/threshold_set.hpp"
#include "hosts/embedded/host/backtester_object.hpp"
#include "hosts/embedded/host/function_callable.hpp"
#include "hosts/embedded/host/gate_objects.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Callable;
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

// For (reason, metric, value, threshold) and the keywords gate, operator, category.
Mapping detail_of(std::span<const Value> positional, const Mapping& keywords) {
  return failure_detail(FailureEvidence{positional[0], positional[1], positional[2], positional[3],
                                        keywords.get(keys::kGate), keywords.get(keys::kOperator),
                                        keywords.get(keys::kCategory)});
}

Mapping verdict(const char* name, const Value& reason, const Mapping& keywords) {
  return {{"verdict", name},
          {keys::kReason, reason},
          {keys::kValue, keywords.get(keys::kValue)},
          {keys::kThreshold, keywords.get(keys::kThreshold)}};
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

Value EmbeddedEngine::random_weighted_runtime_registry(genetic::SearchContext& /*context*/) {
  return {};
}

Value EmbeddedEngine::signal_generation_safe_rotations(const Value& functions,
                                                       const Value& /*window_limit*/,
                                                       const Value& node_limit,
                                                       const Value& /*registry*/,
                                                       const Mapping& /*keywords*/) {
  genetic::List safe;
  const auto walk = genetic::iterate(functions);
  while (const std::optional<Value> function = walk->next()) {
    // The rotation's own node and one for each of its children.
    const Value nodes = genetic::item(*function, "child_count").integer() + 1;
    if (!genetic::less(node_limit, nodes)) safe.append(*function);
  }
  return safe;
}

bool EmbeddedEngine::is_sdk_runtime_not_ready_error(const Value& /*error*/) {
  return false;
}

Value EmbeddedEngine::sdk_runtime_not_ready_rejection_detail() {
  return "The evaluator was not ready.";
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

Value EmbeddedEngine::recorded_failure_detail(std::span<const Value> positional,
                                              const Mapping& keywords) {
  return detail_of(positional, keywords);
}

Callable EmbeddedEngine::find_recorded_failure_detail() {
  return make_callable([](std::span<const Value> positional, const Mapping& keywords) {
    return Value(detail_of(positional, keywords));
  });
}

Callable EmbeddedEngine::find_failed_gate_verdict() {
  return make_callable([](std::span<const Value> positional, const Mapping& keywords) {
    return Value(verdict("failed", positional[0], keywords));
  });
}

Callable EmbeddedEngine::find_gate_verdict() {
  return make_callable([](std::span<const Value> positional, const Mapping& keywords) {
    const bool passed = genetic::truth(positional[0]);
    const Value reason = positional.size() > 1 ? positional[1] : Value();
    return Value(verdict(passed ? "passed" : "failed", reason, keywords));
  });
}

SignalSubmission& EmbeddedEngine::submission() const {
  if (submission_ == nullptr) {
    throw genetic::RuntimeError("the search has no pool of signals to submit to");
  }
  return *submission_;
}

Callable EmbeddedEngine::find_submission_mi_threshold_and_pool() {
  return make_callable([this](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(Tuple{submission().thresholds().min_pnl_mi, positional[1]});
  });
}

Callable EmbeddedEngine::find_submission_correlation_threshold_and_pool() {
  return make_callable([this](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return submission_correlation_threshold_and_pool(positional[0], positional[1]);
  });
}

Value EmbeddedEngine::submission_correlation_threshold_and_pool(const Value& /*era_config*/,
                                                                const Value& signal_pool_name) {
  return Tuple{submission().thresholds().max_correlation, signal_pool_name};
}

Value EmbeddedEngine::refresh_submission_manifest_membership(const Value& /*era_config*/,
                                                             const Value& /*signal_pool_name*/,
                                                             const Value& /*sync_manager*/) {
  return submission().refresh();
}

Value EmbeddedEngine::selected_pool_has_synced_found_signal_ids(const Value& /*era_config*/,
                                                                const Value& /*signal_pool_name*/) {
  return submission().has_members();
}

void EmbeddedEngine::normalize_required_pool_pnl_matrix(const Value& gate_stats,
                                                        const Value& /*era_config*/,
                                                        const Value& /*signal_pool_name*/) {
  static_cast<void>(required_pnl(gate_stats));
}

Value EmbeddedEngine::evaluation_metaparameters_for_pool(const Value& /*signal_pool_name*/,
                                                         const Value& metaparameters) {
  return metaparameters;
}

Value EmbeddedEngine::call_backtester_with_transform_context(std::span<const Value> positional,
                                                             const Mapping& /*extra_kwargs*/) {
  // The backtester, the name of its only operation, and the graph.
  return backtest_with_pnl(positional[0], positional[2]);
}

Value EmbeddedEngine::submission_pnl_mi_from_backtest_or_compute(
    std::span<const Value> positional) {
  const PoolMeasure& measure = submission().measure(positional[1]);
  return Tuple{measure.score, passes_pnl_mi(measure, submission().thresholds())};
}

Value EmbeddedEngine::submission_correlation_from_backtest_or_compute(
    std::span<const Value> positional) {
  const PoolMeasure& measure = submission().measure(positional[1]);
  return Tuple{measure.correlation, passes_correlation(measure, submission().thresholds())};
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

Callable EmbeddedEngine::find_submitted_stats_payload_from_backtest() {
  return make_callable([this](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(Tuple{stats_gate_metrics(positional[0]), Value()});
  });
}

void EmbeddedEngine::annotate_submission_client_manifest(Mapping& payload,
                                                         const Value& /*sync_manager*/) {
  payload.set("client_manifest", genetic::shallow_copy(client_manifest_));
}

Value EmbeddedEngine::infrastructure_failure_threshold() {
  return kInfrastructureFailureThreshold;
}

void EmbeddedEngine::raise_background_infrastructure_error(const std::string& detail) {
  throw BackgroundInfrastructureError(detail);
}

}  // namespace varnholt::embedded
