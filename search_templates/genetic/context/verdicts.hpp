// The verdict on what was not evaluated.
#pragma once

#include "search_templates/genetic/host/evaluation_verdicts.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// A fresh verdict from the host at each call.
[[nodiscard]] inline Value not_evaluated_verdict(EvaluationVerdicts& verdicts) {
  return verdicts.not_evaluated_verdict();
}

}  // namespace varnholt::genetic
