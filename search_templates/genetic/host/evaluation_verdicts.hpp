// The host's verdicts on what was not evaluated.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class EvaluationVerdicts {
 public:
  virtual ~EvaluationVerdicts() = default;

  // The verdict of something that was not evaluated, a fresh one at each call. Opaque. Asked in
  // parent and child.
  [[nodiscard]] virtual Value not_evaluated_verdict() {
    return Mapping{{"verdict", "not_evaluated"}};
  }
};

}  // namespace varnholt::genetic
