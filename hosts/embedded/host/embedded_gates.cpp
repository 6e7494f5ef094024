#include "hosts/embedded/host/embedded_gates.hpp"

#include "hosts/embedded/gates/failure_detail.hpp"
#include "hosts/embedded/gates/threshold_set.hpp"
#include "hosts/embedded/host/gate_objects.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

namespace {

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

Value EmbeddedGates::stats_gate_threshold_set(const Mapping& thresholds,
                                              const Value& /*era_config*/) {
  return threshold_set(gates_, limits_, thresholds);
}

Value EmbeddedGates::stats_gate_metrics(const Value& stats) {
  return statistics_by_name(stats);
}

Value EmbeddedGates::evaluate_threshold_gates(const Value& metrics, const Value& thresholds) {
  return genetic::make_object<GateResultObject>(
      embedded::evaluate_threshold_gates(metrics, thresholds));
}

Value EmbeddedGates::threshold_gate_failure_reason(const Value& gate_failure) {
  return attribute_or_absent(gate_failure, "reason");
}

Value EmbeddedGates::threshold_gate_failure_metric(const Value& gate_failure) {
  return attribute_or_absent(gate_failure, "metric");
}

genetic::DetailOperation EmbeddedGates::find_recorded_failure_detail() {
  return [](const genetic::FailureEvidence& evidence) { return Value(failure_detail(evidence)); };
}

genetic::VerdictOperation EmbeddedGates::find_failed_gate_verdict() {
  return verdict;
}

genetic::VerdictOperation EmbeddedGates::find_gate_verdict() {
  return verdict;
}

}  // namespace varnholt::embedded
