// The scripted host of the tests that judge a failed result by all gates again.
#pragma once

#include <span>

#include <gtest/gtest.h>

#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {

// A gate's failure, as far as the search looks into it.
inline Value gate_failure(const Value& reason, const Value& actual = Value(),
                          const Value& threshold = Value()) {
  return scripted_object({{"reason", reason}, {"actual", actual}, {"threshold", threshold}});
}

// Thresholds are set, the metrics are "metrics", and a failure's detail holds its value and its
// threshold.
class FailureExpansion : public testing::Test {
 protected:
  FailureExpansion() {
    host.engine.on_stats_gate_threshold_set = always(Value("set"));
    host.engine.on_stats_gate_metrics = always(Value("metrics"));
    host.engine.on_threshold_gate_failure_reason = [](const Value& failure) {
      return *attribute(failure, "reason");
    };
    host.engine.on_recorded_failure_detail = [](const FailureEvidence& evidence) -> Value {
      return Mapping{{"value", evidence.value}, {"threshold", evidence.threshold}};
    };
  }

  void gates_fail(const Value& failures) {
    host.engine.on_evaluate_threshold_gates =
        always(scripted_object({{"failures", failures}}, nullptr, "GateResult"));
  }
  Mapping expanded(const Value& result) {
    return expanded_threshold_failures(host.context, host.engine, result);
  }
  Value enlarged(const Value& result) {
    return with_expanded_reaction_failures(&host.context, host.engine, host.json_reader, result);
  }

  ScriptedHost host;
};

}  // namespace varnholt::genetic::test
