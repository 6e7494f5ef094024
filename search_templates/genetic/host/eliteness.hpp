// How good a candidate is as a parent: the host decides.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class Eliteness {
 public:
  virtual ~Eliteness() = default;

  // Called in the parent with the candidate's whole record and the keywords
  // `sibling_correlations`, `pool_correlation`, `diversity_weight`, `parsimony_weight`. Returns a
  // number. How often it is called, for which candidates and in which order, is behaviour.
  [[nodiscard]] virtual Value score_candidate(const Value& candidate, const Mapping& keywords) = 0;
};

}  // namespace varnholt::genetic
