// A host's own way of evaluating a batch of candidates.
#pragma once

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class BatchEvaluator {
 public:
  virtual ~BatchEvaluator() = default;

  // The result records of a batch, as process/batch_evaluation.hpp tells.
  [[nodiscard]] virtual Value evaluate_candidate_batch(SearchContext& context, const Value& batch,
                                                       const Value& process_timeout_seconds) = 0;
};

}  // namespace varnholt::genetic
