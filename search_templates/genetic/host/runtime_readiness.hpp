// Distinguishing a runtime that is not ready from a bad candidate.
//
// Asked in the child for an exception that left the evaluator, and in the parent when the results
// of a batch are counted. A host whose evaluator is always ready overrides nothing.
#pragma once

#include <cstdint>
#include <string>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class RuntimeReadiness {
 public:
  // A runtime that is not ready for this many candidates in a row is taken to be broken.
  static constexpr std::int64_t kDefaultFailureThreshold = 25;

  virtual ~RuntimeReadiness() = default;

  // In the child: whether an error object says that the runtime, not the candidate, was not ready,
  // and the text that begins such a candidate's failure detail.
  [[nodiscard]] virtual bool is_sdk_runtime_not_ready_error(const Value& /*error*/) {
    return false;
  }
  [[nodiscard]] virtual Value sdk_runtime_not_ready_rejection_detail() {
    return "The evaluator was not ready.";
  }

  // In the parent, after each batch: how many candidates in a row may meet a runtime that is not
  // ready.
  [[nodiscard]] virtual Value infrastructure_failure_threshold() {
    return kDefaultFailureThreshold;
  }
  // Throws the host's error for a runtime that keeps failing, which ends the run: after the run's
  // metrics are recorded and the context's fatal callback is called.
  [[noreturn]] virtual void raise_background_infrastructure_error(const std::string& detail) {
    throw RuntimeError(detail);
  }
};

}  // namespace varnholt::genetic
