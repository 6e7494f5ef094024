// The thresholds of the two gates of the signal pool.
//
// Asked in the parent, when a measured metric is written down. Each operation gives a pair of
// threshold and pool; only the threshold is used. A host without a signal pool overrides nothing.
#pragma once

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

using MiThresholdOperation = Operation<Value(const Value& era_config, const Value& signal_pool_name,
                                             const Value& thresholds)>;
using CorrelationThresholdOperation =
    Operation<Value(const Value& era_config, const Value& signal_pool_name)>;

class PoolThresholds {
 public:
  virtual ~PoolThresholds() = default;

  // Of the mutual information of the PnL. `thresholds` is the context's threshold set
  // (Gates::stats_gate_threshold_set). A failure propagates for a candidate that missed it, and
  // leaves the threshold out of the record of one that passed.
  [[nodiscard]] virtual MiThresholdOperation find_submission_mi_threshold_and_pool() { return {}; }
  // Of the correlation. A failure propagates.
  [[nodiscard]] virtual CorrelationThresholdOperation
  find_submission_correlation_threshold_and_pool() {
    return {};
  }
  // The same operation for a caller that requires it: AttributeError when there is none.
  [[nodiscard]] virtual Value submission_correlation_threshold_and_pool(
      const Value& era_config, const Value& signal_pool_name) {
    const auto operation = find_submission_correlation_threshold_and_pool();
    if (!operation) {
      throw AttributeError("the host has no operation submission_correlation_threshold_and_pool");
    }
    return operation(era_config, signal_pool_name);
  }
};

}  // namespace varnholt::genetic
