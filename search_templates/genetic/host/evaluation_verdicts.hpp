// The host's verdicts on what was not evaluated.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class EvaluationVerdicts {
 public:
  virtual ~EvaluationVerdicts() = default;

  // The verdict of something that was not evaluated, a fresh one at each call. Opaque.
  [[nodiscard]] virtual Value not_evaluated_verdict() = 0;
};

}  // namespace varnholt::genetic
