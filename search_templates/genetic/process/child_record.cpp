#include "search_templates/genetic/process/child_record.hpp"

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

void child_safe_record(SearchContext& context, const ChildEvaluation& evaluation) {
  ChildContext& child = context.child();
  child.template_evaluation_state()->set_attempt_id({});

  const bool passed = truth(evaluation.passed_thresholds);
  const Mapping tracking = truth(evaluation.tracking_metric_kwargs)
                               ? new_mapping(evaluation.tracking_metric_kwargs)
                               : Mapping();
  const Mapping record{{keys::kGraph, evaluation.graph},
                       {keys::kPassed, passed},
                       {keys::kStats, evaluation.stats},
                       {keys::kRejectionReason, evaluation.rejection_reason},
                       {keys::kPerColumnStats, evaluation.per_column_stats},
                       {keys::kExpressionElapsedSeconds, evaluation.expression_elapsed_seconds},
                       {keys::kTrackingMetricKwargs, tracking}};
  if (const Callable setter = child.set_last_evaluation_record()) {
    setter({record});
  } else {
    child.assign_last_evaluation_record(record);
  }
}

}  // namespace varnholt::genetic
