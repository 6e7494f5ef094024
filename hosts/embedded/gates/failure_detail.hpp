// What is kept of a failed gate in a candidate's record: the evidence, as a mapping or as its text.
//
//   {"category":"quality","gate":"sharpe_min","metric":"sharpe","operator":"<",
//    "reason":"sharpe_min","threshold":0.3,"value":0.12}
//
// A repair reads "value" and "threshold" to learn how far the candidate missed.
#pragma once

#include <string>

#include "hosts/embedded/gates/gates.hpp"
#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

using genetic::FailureEvidence;

[[nodiscard]] FailureEvidence failure_evidence(const GateFailure& failure);

// A new mapping with the keys "reason", "metric", "value", "threshold", "gate", "operator" and
// "category", in this order.
[[nodiscard]] genetic::Mapping failure_detail(const FailureEvidence& evidence);
[[nodiscard]] genetic::Mapping failure_detail(const GateFailure& failure);

// The mapping's canonical JSON text (genetic::json_text). A value that is not finite is NaN,
// Infinity or -Infinity there.
[[nodiscard]] std::string failure_detail_text(const GateFailure& failure);

}  // namespace varnholt::embedded
