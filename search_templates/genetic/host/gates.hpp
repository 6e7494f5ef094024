// The gates: the thresholds that a candidate's statistics must meet, and what is kept of a failure.
//
// The evaluator of the host judges a candidate and stops at the first gate that fails. The search
// calls these operations afterwards, in the parent: to learn which other gates a failed candidate
// fails and by how much (is it worth a repair?), and to record the two gates that it judges itself,
// those of the signal pool.
//
// A host without gates overrides nothing: then there are no thresholds, nothing is judged a second
// time, and verdicts are plain mappings of the search.
#pragma once

#include <optional>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// How a candidate failed a gate: what the host makes a failure's detail of. An entry may be absent.
struct FailureEvidence {
  Value reason;      // Under which the failure stands in the record: "sharpe_min".
  Value metric;      // "sharpe"
  Value value;       // Of the metric.
  Value threshold;   // That it missed.
  Value gate;        // The gate's own name.
  Value comparison;  // ">" or "<": what held of value and threshold.
  Value category;    // "quality"
};

// What a verdict on one gate is made of.
struct GateOutcome {
  bool passed = false;
  // Of a failure. The detail is what recorded_failure_detail() made, or whatever the caller gave.
  Value reason = {};
  Value detail = {};
  // The metric and its threshold, each perhaps absent. Not given at all for a failure whose detail
  // holds no evidence.
  std::optional<Value> value = std::nullopt;
  std::optional<Value> threshold = std::nullopt;
};

using DetailOperation = Operation<Value(const FailureEvidence&)>;
using VerdictOperation = Operation<Value(const GateOutcome&)>;

class Gates {
 public:
  virtual ~Gates() = default;

  // Makes a threshold set, opaque but for its truth: false says that there is nothing to judge. Of
  // the context's merged thresholds and the era configuration, or absent. A failure propagates,
  // unless the caller only wants a threshold to report.
  [[nodiscard]] virtual Value stats_gate_threshold_set(const Mapping& /*thresholds*/,
                                                       const Value& /*era_config*/) {
    return {};
  }
  // The metrics of a statistics object or, where there is none, of a whole result record: opaque
  // but for an entry "sharpe".
  [[nodiscard]] virtual Value stats_gate_metrics(const Value& /*stats*/) { return Mapping(); }
  // An object whose attribute `failures` iterates over gate failures; each of these has the
  // attributes `actual`, `threshold`, `gate`, `operator` and `category`, any of which may be
  // missing. An ordinary failure of this operation or of the metrics counts as no gate failures.
  [[nodiscard]] virtual Value evaluate_threshold_gates(const Value& /*metrics*/,
                                                       const Value& /*threshold_set*/) {
    return {};
  }
  // The reason and the metric of one gate failure. Whatever they throw propagates.
  [[nodiscard]] virtual Value threshold_gate_failure_reason(const Value& /*gate_failure*/) {
    return {};
  }
  [[nodiscard]] virtual Value threshold_gate_failure_metric(const Value& /*gate_failure*/) {
    return {};
  }

  // The detail under which a failure is recorded: a mapping with "value" and "threshold", or its
  // JSON text, so that a repair can read how far the candidate missed. Looked up first, because
  // each caller has its own error for a missing operation.
  [[nodiscard]] virtual DetailOperation find_recorded_failure_detail() { return {}; }
  // The same operation for a caller that requires it: AttributeError when there is none.
  [[nodiscard]] virtual Value recorded_failure_detail(const FailureEvidence& evidence) {
    const DetailOperation operation = find_recorded_failure_detail();
    if (!operation) throw AttributeError("the host has no operation recorded_failure_detail");
    return operation(evidence);
  }

  // The two operations above for a caller that reads their arguments once they have been found. A
  // host that finds its operations by name overrides these.
  [[nodiscard]] virtual DetailOperation required_recorded_failure_detail() {
    return [this](const FailureEvidence& evidence) { return recorded_failure_detail(evidence); };
  }
  [[nodiscard]] virtual Operation<Value(const Value& stats)> required_stats_gate_metrics() {
    return [this](const Value& stats) { return stats_gate_metrics(stats); };
  }

  // The verdict on a gate of the signal pool. A failed one is made by the first where there is one,
  // otherwise by the second; a passed one by the second; without either it is a mapping of the
  // search.
  [[nodiscard]] virtual VerdictOperation find_failed_gate_verdict() { return {}; }
  [[nodiscard]] virtual VerdictOperation find_gate_verdict() { return {}; }
};

}  // namespace varnholt::genetic
