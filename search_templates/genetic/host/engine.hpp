// Helpers that the host shares with its search templates.
#pragma once

#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class Engine {
 public:
  virtual ~Engine() = default;

  [[nodiscard]] virtual Logger& logger() = 0;

  // The depth of a graph, as the host counts it.
  [[nodiscard]] virtual Value graph_depth_for_attempt_marker(const Value& graph) = 0;

  // Whether an error object says that the runtime, not the candidate, was not ready, and the text
  // that begins such a candidate's failure detail.
  [[nodiscard]] virtual bool is_sdk_runtime_not_ready_error(const Value& error) = 0;
  [[nodiscard]] virtual Value sdk_runtime_not_ready_rejection_detail() = 0;

  // What the host's generator of random graphs may use: the vocabulary's entries of one kind, the
  // limits on windows and nodes, and the registry of functions at run time. All opaque.
  [[nodiscard]] virtual Value function_entries_for_kind(const Value& vocabulary,
                                                        std::string_view kind) = 0;
  [[nodiscard]] virtual Value random_weighted_window_limit(SearchContext& context,
                                                           const Value& max_depth) = 0;
  [[nodiscard]] virtual Value random_weighted_node_limit(SearchContext& context) = 0;
  [[nodiscard]] virtual Value random_weighted_runtime_registry(SearchContext& context) = 0;
  // The rotations that a signal may use safely: a walk over mappings that describe them.
  // `keywords` tells the log who asks.
  [[nodiscard]] virtual Value signal_generation_safe_rotations(const Value& functions,
                                                               const Value& window_limit,
                                                               const Value& node_limit,
                                                               const Value& registry,
                                                               const Mapping& keywords) = 0;

  // The gates. `stats_gate_threshold_set` makes a threshold set, opaque but for its truth, of the
  // merged thresholds and the era configuration, or absent; `stats_gate_metrics` the metrics of a
  // statistics object or, where there is none, of a whole result record.
  [[nodiscard]] virtual Value stats_gate_threshold_set(const Mapping& thresholds,
                                                       const Value& era_config) = 0;
  [[nodiscard]] virtual Value stats_gate_metrics(const Value& stats) = 0;
  // An object whose attribute `failures` is a walk over gate failures; each of these has the
  // attributes `actual`, `threshold`, `gate`, `operator` and `category`, any of which may be
  // missing.
  [[nodiscard]] virtual Value evaluate_threshold_gates(const Value& metrics,
                                                       const Value& threshold_set) = 0;
  [[nodiscard]] virtual Value threshold_gate_failure_reason(const Value& gate_failure) = 0;
  [[nodiscard]] virtual Value threshold_gate_failure_metric(const Value& gate_failure) = 0;

  // The detail under which a failure is recorded, for (reason, metric, value, threshold) and the
  // keywords `gate`, `operator`, `category`.
  [[nodiscard]] virtual Value recorded_failure_detail(std::span<const Value> positional,
                                                      const Mapping& keywords) = 0;
  // The same, and the host's verdicts, for callers that can tell whether there are such operations:
  // (reason; detail, value, threshold) and (passed[, reason]; value, threshold, detail).
  [[nodiscard]] virtual Callable find_recorded_failure_detail() = 0;
  [[nodiscard]] virtual Callable find_failed_gate_verdict() = 0;
  [[nodiscard]] virtual Callable find_gate_verdict() = 0;

  // The pool metrics of a submission. Each threshold operation gives a pair of threshold and pool:
  // (era_config, signal_pool_name, thresholds) and (era_config, signal_pool_name).
  [[nodiscard]] virtual Callable find_submission_mi_threshold_and_pool() = 0;
  [[nodiscard]] virtual Callable find_submission_correlation_threshold_and_pool() = 0;
  [[nodiscard]] virtual Value submission_correlation_threshold_and_pool(
      const Value& era_config, const Value& signal_pool_name) = 0;
  // Whether the host knows what is in the pool now.
  [[nodiscard]] virtual Value refresh_submission_manifest_membership(const Value& era_config,
                                                                     const Value& signal_pool_name,
                                                                     const Value& sync_manager) = 0;
  // Whether there is something in the pool to compare with, so that a PnL matrix is required.
  [[nodiscard]] virtual Value selected_pool_has_synced_found_signal_ids(
      const Value& era_config, const Value& signal_pool_name) = 0;
  // ValueError when the statistics hold no usable PnL matrix.
  virtual void normalize_required_pool_pnl_matrix(const Value& gate_stats, const Value& era_config,
                                                  const Value& signal_pool_name) = 0;
  [[nodiscard]] virtual Value evaluation_metaparameters_for_pool(const Value& signal_pool_name,
                                                                 const Value& metaparameters) = 0;
  // Runs one backtest: (backtester, the name of its operation, graph, metaparameters, universe) and
  // the mapping of what the operation is given beyond that. Returns statistics.
  [[nodiscard]] virtual Value call_backtester_with_transform_context(
      std::span<const Value> positional, const Mapping& extra_kwargs) = 0;
  // A pair of the metric and whether it passes: (backtester, gate_stats, era_config,
  // signal_pool_name, thresholds), and for the correlation the same without the thresholds.
  [[nodiscard]] virtual Value submission_pnl_mi_from_backtest_or_compute(
      std::span<const Value> positional) = 0;
  [[nodiscard]] virtual Value submission_correlation_from_backtest_or_compute(
      std::span<const Value> positional) = 0;
  // The error object when `error`, which is on its way out, says that the pool's data is not ready
  // yet. It may be of any class, one that is no ordinary error among them.
  [[nodiscard]] virtual std::optional<Value> as_pool_data_not_ready(
      const std::exception_ptr& error) = 0;

  // Makes the statistics of a submission, (stats, era_config), as a pair of a mapping, or anything
  // else for none, and a reason.
  [[nodiscard]] virtual Callable find_submitted_stats_payload_from_backtest() = 0;
  // Writes the client's manifest into the payload.
  virtual void annotate_submission_client_manifest(Mapping& payload, const Value& sync_manager) = 0;

  // How many candidates in a row may meet a runtime that is not ready.
  [[nodiscard]] virtual Value infrastructure_failure_threshold() = 0;
  // Throws the host's error for a runtime that keeps failing, which ends the run.
  [[noreturn]] virtual void raise_background_infrastructure_error(const std::string& detail) = 0;
};

}  // namespace varnholt::genetic
