// Measuring a candidate against the signal pool, right before it is recorded.
//
// Asked in the parent, in the order below, once for each candidate that passed, if the context has
// a backtester, an era configuration and the name of a pool; otherwise not at all. The era
// configuration and the pool's name are the context's own and opaque.
//
// A host without a signal pool leaves those attributes out of its context, and implements nothing
// of this.
#pragma once

#include <exception>
#include <optional>
#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// One backtest that the search asks for by the name of the backtester's operation.
struct BacktestRequest {
  Value backtester;  // The context's, opaque.
  std::string_view operation;
  Value graph;
  Value metaparameters;
  Value named_universe;
  Mapping extra_kwargs = Mapping();  // What the operation is given beyond that.
};

// What is measured. `gate_stats` are the candidate's statistics, or those of one more backtest.
struct PoolMetricRequest {
  Value backtester;
  Value gate_stats;
  Value era_config;
  Value signal_pool_name;
};

class PoolMetrics {
 public:
  virtual ~PoolMetrics() = default;

  // Whether the host knows what is in the pool now. False leaves the candidate pending. A failure
  // propagates, even one that means "not ready".
  [[nodiscard]] virtual Value refresh_submission_manifest_membership(
      const Value& /*era_config*/, const Value& /*signal_pool_name*/,
      const Value& /*sync_manager*/) {
    return false;
  }
  // Whether there is something in the pool to compare with, so that a PnL matrix is required.
  [[nodiscard]] virtual Value selected_pool_has_synced_found_signal_ids(
      const Value& /*era_config*/, const Value& /*signal_pool_name*/) {
    return false;
  }
  // ValueError when the statistics hold no usable PnL matrix: then the candidate is backtested once
  // more. Any other failure propagates. The statistics are not changed.
  virtual void normalize_required_pool_pnl_matrix(const Value& /*gate_stats*/,
                                                  const Value& /*era_config*/,
                                                  const Value& /*signal_pool_name*/) {}
  // The metaparameters of that backtest, of the context's own ones.
  [[nodiscard]] virtual Value evaluation_metaparameters_for_pool(const Value& /*signal_pool_name*/,
                                                                 const Value& metaparameters) {
    return metaparameters;
  }
  // Runs it and returns its statistics. Only asked of a host whose normalisation throws and whose
  // backtester has the operation.
  [[nodiscard]] virtual Value call_backtester_with_transform_context(
      const BacktestRequest& /*request*/) {
    throw AttributeError("the host has no operation call_backtester_with_transform_context");
  }

  // A pair of the metric and whether it passes: mutual information of the PnL, then correlation.
  // `thresholds` is the context's threshold set.
  [[nodiscard]] virtual Value submission_pnl_mi_from_backtest_or_compute(
      const PoolMetricRequest& request, const Value& thresholds) = 0;
  [[nodiscard]] virtual Value submission_correlation_from_backtest_or_compute(
      const PoolMetricRequest& request) = 0;

  // Four of the operations above for a caller that reads their arguments once they have been found.
  // A host that finds its operations by name overrides these.
  using Membership = Operation<Value(const Value& era_config, const Value& signal_pool_name,
                                     const Value& sync_manager)>;
  [[nodiscard]] virtual Membership required_refresh_submission_manifest_membership() {
    return
        [this](const Value& era_config, const Value& signal_pool_name, const Value& sync_manager) {
          return refresh_submission_manifest_membership(era_config, signal_pool_name, sync_manager);
        };
  }
  using Metaparameters =
      Operation<Value(const Value& signal_pool_name, const Value& metaparameters)>;
  [[nodiscard]] virtual Metaparameters required_evaluation_metaparameters_for_pool() {
    return [this](const Value& signal_pool_name, const Value& metaparameters) {
      return evaluation_metaparameters_for_pool(signal_pool_name, metaparameters);
    };
  }
  using Backtest = Operation<Value(const BacktestRequest& request)>;
  [[nodiscard]] virtual Backtest required_call_backtester_with_transform_context() {
    return [this](const BacktestRequest& request) {
      return call_backtester_with_transform_context(request);
    };
  }
  using PnlMi = Operation<Value(const PoolMetricRequest& request, const Value& thresholds)>;
  [[nodiscard]] virtual PnlMi required_submission_pnl_mi_from_backtest_or_compute() {
    return [this](const PoolMetricRequest& request, const Value& thresholds) {
      return submission_pnl_mi_from_backtest_or_compute(request, thresholds);
    };
  }

  // The error object when `error`, which one of these two threw and which is on its way out, says
  // that the pool's data is not ready yet: the candidate is then pending. It may be of any class,
  // even one that is not an ordinary error.
  [[nodiscard]] virtual std::optional<Value> as_pool_data_not_ready(
      const std::exception_ptr& /*error*/) {
    return std::nullopt;
  }
};

// A host without a signal pool: no membership is ever confirmed, so that nothing is measured.
class NoPoolMetrics : public PoolMetrics {
 public:
  [[nodiscard]] Value submission_pnl_mi_from_backtest_or_compute(
      const PoolMetricRequest& /*request*/, const Value& /*thresholds*/) override {
    throw AttributeError("the host has no operation submission_pnl_mi_from_backtest_or_compute");
  }
  [[nodiscard]] Value submission_correlation_from_backtest_or_compute(
      const PoolMetricRequest& /*request*/) override {
    throw AttributeError(
        "the host has no operation submission_correlation_from_backtest_or_compute");
  }
};

}  // namespace varnholt::genetic
