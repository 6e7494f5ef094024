// The gates of the embedded host as the search asks for them.
#pragma once

#include "hosts/embedded/gates/gates.hpp"
#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class EmbeddedGates : public genetic::Gates {
 public:
  EmbeddedGates(const GateThresholds& gates, const HardLimits& limits)
      : gates_(gates), limits_(limits) {}

  // The host's thresholds, in which an entry of `thresholds` replaces that of the gate it names.
  [[nodiscard]] genetic::Value stats_gate_threshold_set(const genetic::Mapping& thresholds,
                                                        const genetic::Value& era_config) override;
  // The statistics by name. A value without statistics has none, and so no gate is judged.
  [[nodiscard]] genetic::Value stats_gate_metrics(const genetic::Value& stats) override;
  [[nodiscard]] genetic::Value evaluate_threshold_gates(const genetic::Value& metrics,
                                                        const genetic::Value& thresholds) override;
  [[nodiscard]] genetic::Value threshold_gate_failure_reason(
      const genetic::Value& gate_failure) override;
  [[nodiscard]] genetic::Value threshold_gate_failure_metric(
      const genetic::Value& gate_failure) override;
  [[nodiscard]] genetic::DetailOperation find_recorded_failure_detail() override;
  // {"verdict": "failed", "reason", "value", "threshold"} and {"verdict": "passed", ...}.
  [[nodiscard]] genetic::VerdictOperation find_failed_gate_verdict() override;
  [[nodiscard]] genetic::VerdictOperation find_gate_verdict() override;

 private:
  GateThresholds gates_;
  HardLimits limits_;
};

}  // namespace varnholt::embedded
