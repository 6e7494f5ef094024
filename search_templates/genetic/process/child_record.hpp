// The recorder of a child: what the parent's recorder would have persisted is kept in memory.
#pragma once

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// One evaluation as the evaluator hands it to its recorder.
struct ChildEvaluation {
  Value graph;
  Value passed_thresholds;
  Value rejection_reason;
  Value stats;
  Value per_column_stats;
  Value expression_elapsed_seconds;
  Value tracking_metric_kwargs;
};

// Clears the identity of the evaluator's attempt, first of all, and then gives the context the
// record of its last evaluation. Evidence that the evaluator makes afterwards has no identity.
void child_safe_record(SearchContext& context, const ChildEvaluation& evaluation);

}  // namespace varnholt::genetic
