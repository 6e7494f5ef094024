// The gates, the pool metrics and the submission payload of `_engine`.
#include <array>
#include <exception>
#include <utility>

#include "hosts/python/errors/outgoing.hpp"
#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_engine.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::python {

namespace keys = genetic::keys;
using genetic::Callable;
using genetic::Mapping;
using genetic::Value;

namespace {

// As the interpreter looks at what an `except` names. Its own error, so that it gets the exception
// that is being handled as its context.
void require_exception_class(const nb::object& type) {
  if (PyExceptionClass_Check(type.ptr()) != 0) return;
  PyErr_SetString(PyExc_TypeError,
                  "catching classes that do not inherit from BaseException is not allowed");
  throw_current_error();
}

// The arguments of `_recorded_failure_detail`.
Value call_with_evidence(const Callable& operation, const genetic::FailureEvidence& evidence) {
  return operation({evidence.reason, evidence.metric, evidence.value, evidence.threshold},
                   {{keys::kGate, evidence.gate},
                    {keys::kOperator, evidence.comparison},
                    {keys::kCategory, evidence.category}});
}

// The keywords of both verdicts.
Mapping verdict_keywords(const genetic::GateOutcome& outcome) {
  Mapping keywords;
  if (!outcome.passed) keywords.set(keys::kDetail, outcome.detail);
  if (outcome.value) keywords.set(keys::kValue, *outcome.value);
  if (outcome.threshold) keywords.set(keys::kThreshold, *outcome.threshold);
  return keywords;
}

}  // namespace

Callable PythonEngine::find(const char* name) const {
  return callable_or_empty(attribute_or_none(globals_.get("_engine"), name));
}

Callable PythonEngine::own(const char* name) const {
  return any_callable(globals_.get("_engine", name));
}

Value PythonEngine::call_own(const char* name, std::span<const Value> positional,
                             const Mapping& keywords) const {
  return PythonCallable(globals_.get("_engine", name)).call(positional, keywords);
}

Value PythonEngine::stats_gate_threshold_set(const Mapping& thresholds, const Value& era_config) {
  return call_own("_stats_gate_threshold_set", std::array<Value, 2>{thresholds, era_config});
}

Value PythonEngine::stats_gate_metrics(const Value& stats) {
  return call_own("_stats_gate_metrics", {&stats, 1});
}

Value PythonEngine::evaluate_threshold_gates(const Value& metrics, const Value& threshold_set) {
  return to_value(
      call(globals_.get("_evaluate_threshold_gates"), {},
           {{"metrics", to_python(metrics)}, {"threshold_set", to_python(threshold_set)}}));
}

Value PythonEngine::threshold_gate_failure_reason(const Value& gate_failure) {
  return call_own("threshold_gate_failure_reason", {&gate_failure, 1});
}

Value PythonEngine::threshold_gate_failure_metric(const Value& gate_failure) {
  return call_own("threshold_gate_failure_metric", {&gate_failure, 1});
}

Value PythonEngine::recorded_failure_detail(const genetic::FailureEvidence& evidence) {
  return call_with_evidence(own("_recorded_failure_detail"), evidence);
}

genetic::DetailOperation PythonEngine::required_recorded_failure_detail() {
  return [operation = own("_recorded_failure_detail")](const genetic::FailureEvidence& evidence) {
    return call_with_evidence(operation, evidence);
  };
}

genetic::Operation<Value(const Value&)> PythonEngine::required_stats_gate_metrics() {
  return
      [operation = own("_stats_gate_metrics")](const Value& stats) { return operation({stats}); };
}

genetic::DetailOperation PythonEngine::find_recorded_failure_detail() {
  Callable operation = find("_recorded_failure_detail");
  if (!operation) return {};
  return [operation = std::move(operation)](const genetic::FailureEvidence& evidence) {
    return call_with_evidence(operation, evidence);
  };
}

genetic::VerdictOperation PythonEngine::find_failed_gate_verdict() {
  Callable operation = find("_failed_gate_verdict");
  if (!operation) return {};
  return [operation = std::move(operation)](const genetic::GateOutcome& outcome) {
    return operation({outcome.reason}, verdict_keywords(outcome));
  };
}

genetic::VerdictOperation PythonEngine::find_gate_verdict() {
  Callable operation = find("_gate_verdict");
  if (!operation) return {};
  return [operation = std::move(operation)](const genetic::GateOutcome& outcome) {
    const Mapping keywords = verdict_keywords(outcome);
    return outcome.passed ? operation({true}, keywords)
                          : operation({false, outcome.reason}, keywords);
  };
}

genetic::MiThresholdOperation PythonEngine::find_submission_mi_threshold_and_pool() {
  Callable operation = find("_submission_mi_threshold_and_pool");
  if (!operation) return {};
  return [operation = std::move(operation)](const Value& era_config, const Value& signal_pool_name,
                                            const Value& thresholds) {
    return operation({era_config, signal_pool_name, thresholds});
  };
}

genetic::CorrelationThresholdOperation
PythonEngine::find_submission_correlation_threshold_and_pool() {
  Callable operation = find("_submission_correlation_threshold_and_pool");
  if (!operation) return {};
  return
      [operation = std::move(operation)](const Value& era_config, const Value& signal_pool_name) {
        return operation({era_config, signal_pool_name});
      };
}

Value PythonEngine::submission_correlation_threshold_and_pool(const Value& era_config,
                                                              const Value& signal_pool_name) {
  return call_own("_submission_correlation_threshold_and_pool",
                  std::array<Value, 2>{era_config, signal_pool_name});
}

Value PythonEngine::refresh_submission_manifest_membership(const Value& era_config,
                                                           const Value& signal_pool_name,
                                                           const Value& sync_manager) {
  return call_own("_refresh_submission_manifest_membership",
                  std::array<Value, 3>{era_config, signal_pool_name, sync_manager});
}

Value PythonEngine::selected_pool_has_synced_found_signal_ids(const Value& era_config,
                                                              const Value& signal_pool_name) {
  return call_own("_selected_pool_has_synced_found_signal_ids",
                  std::array<Value, 2>{era_config, signal_pool_name});
}

void PythonEngine::normalize_required_pool_pnl_matrix(const Value& gate_stats,
                                                      const Value& era_config,
                                                      const Value& signal_pool_name) {
  call_own("_normalize_required_pool_pnl_matrix",
           std::array<Value, 3>{gate_stats, era_config, signal_pool_name});
}

Value PythonEngine::evaluation_metaparameters_for_pool(const Value& signal_pool_name,
                                                       const Value& metaparameters) {
  return call_own("_evaluation_metaparameters_for_pool",
                  std::array<Value, 2>{signal_pool_name, metaparameters});
}

Value PythonEngine::call_backtester_with_transform_context(
    const genetic::BacktestRequest& request) {
  return required_call_backtester_with_transform_context()(request);
}

Value PythonEngine::submission_pnl_mi_from_backtest_or_compute(
    const genetic::PoolMetricRequest& request, const Value& thresholds) {
  return required_submission_pnl_mi_from_backtest_or_compute()(request, thresholds);
}

PythonEngine::Membership PythonEngine::required_refresh_submission_manifest_membership() {
  return [operation = own("_refresh_submission_manifest_membership")](
             const Value& era_config, const Value& signal_pool_name, const Value& sync_manager) {
    return operation({era_config, signal_pool_name, sync_manager});
  };
}

PythonEngine::Metaparameters PythonEngine::required_evaluation_metaparameters_for_pool() {
  return [operation = own("_evaluation_metaparameters_for_pool")](const Value& signal_pool_name,
                                                                  const Value& metaparameters) {
    return operation({signal_pool_name, metaparameters});
  };
}

PythonEngine::Backtest PythonEngine::required_call_backtester_with_transform_context() {
  return [operation = own("_call_backtester_with_transform_context")](
             const genetic::BacktestRequest& request) {
    return operation({request.backtester, request.operation, request.graph, request.metaparameters,
                      request.named_universe},
                     {{"extra_kwargs", request.extra_kwargs}});
  };
}

PythonEngine::PnlMi PythonEngine::required_submission_pnl_mi_from_backtest_or_compute() {
  return [operation = own("_submission_pnl_mi_from_backtest_or_compute")](
             const genetic::PoolMetricRequest& request, const Value& thresholds) {
    return operation({request.backtester, request.gate_stats, request.era_config,
                      request.signal_pool_name, thresholds});
  };
}

Value PythonEngine::submission_correlation_from_backtest_or_compute(
    const genetic::PoolMetricRequest& request) {
  return call_own("_submission_correlation_from_backtest_or_compute",
                  std::array<Value, 4>{request.backtester, request.gate_stats, request.era_config,
                                       request.signal_pool_name});
}

std::optional<Value> PythonEngine::as_pool_data_not_ready(const std::exception_ptr& error) {
  // Both are read, and both looked at, before the exception is compared with either.
  const nb::object sync_missing = globals_.get("_engine", "AgentPoolPnlSyncMissingError");
  const nb::object not_computable = globals_.get("_engine", "PoolMetricNotYetComputableError");
  require_exception_class(sync_missing);
  require_exception_class(not_computable);
  const nb::object exception = python_exception(error);
  if (!exception.is_valid()) return std::nullopt;
  for (const nb::object& type : {sync_missing, not_computable}) {
    if (PyErr_GivenExceptionMatches(exception.ptr(), type.ptr()) != 0) return to_value(exception);
  }
  return std::nullopt;
}

genetic::StatsPayloadOperation PythonEngine::find_submitted_stats_payload_from_backtest() {
  Callable operation = find("_submitted_stats_payload_from_backtest");
  if (!operation) return {};
  return [operation = std::move(operation)](const Value& stats, const Value& era_config) {
    return operation({stats, era_config});
  };
}

void PythonEngine::annotate_submission_client_manifest(Mapping& payload,
                                                       const Value& sync_manager) {
  required_annotate_submission_client_manifest()(payload, sync_manager);
}

genetic::Operation<void(Mapping&, const Value&)>
PythonEngine::required_annotate_submission_client_manifest() {
  return [operation = own("_annotate_submission_client_manifest")](Mapping& payload,
                                                                   const Value& sync_manager) {
    operation({payload, sync_manager});
  };
}

}  // namespace varnholt::python
