// The candidate result record: the one shape of every outcome.
//
// Every outcome of a candidate (a passing backtest, a gate's rejection, an exception in the
// evaluator, a worker process that died) is one mapping with the keys of `keys.hpp`, and every
// failure stands in its entry "failures" under its reason. The rest of the search reads only this
// record.
//
// Error objects are values: the host's exceptions, or `error_object` of one of ours.
#pragma once

#include <string>
#include <utility>

#include "search_templates/genetic/host/evaluation_verdicts.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"
#include "search_templates/genetic/host/runtime_readiness.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/tolerant.hpp"  // IWYU pragma: export
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The number fields of a record, read from a statistics object's attributes alone.
struct StatisticsNumbers {
  Value sharpe;         // The attribute `sharpe`, or 0.0.
  Value quality_score;  // The attribute `quality_score`, or `sharpe`, or 0.0.
  Value correlation;    // The attribute `correlation`, or absent.
};
[[nodiscard]] StatisticsNumbers statistics_numbers(const Value& stats);

// The reason and detail of an exception that left the evaluator.
struct EvaluationFailure {
  Value reason;
  Value detail;
};
[[nodiscard]] EvaluationFailure evaluation_exception_failure(RuntimeReadiness& runtime,
                                                             const Value& error);

// Why a candidate failed. `tracking_metric_kwargs` is a new mapping; the record's own is never
// written to. `reason` and `detail` are absent where they are unknown.
struct DerivedFailure {
  Value reason;
  Value detail;
  Mapping tracking_metric_kwargs;
};

// Takes the record's rejection reason, or that of its tracking values, or asks the host to derive
// one from the statistics. For an exception of the evaluator that left statistics the reason is
// derived from these as well.
[[nodiscard]] DerivedFailure derive_candidate_failure(SearchContext& context, const Mapping& record,
                                                      const Value& stats);

// The record of a candidate whose evaluator threw `error`: 12 keys. A missing or malformed
// record of the evaluator counts as an empty one, and a failure to record is logged and swallowed;
// what the host's evidence and verdict operations throw, and the error for a correlation that is
// not finite, propagates.
[[nodiscard]] Mapping candidate_exception_result(Host& host, SearchContext& context,
                                                 const Value& graph, const Value& error);

// The record of a candidate whose process failed: 11 keys, without "attempt_evidence", on purpose.
// Nothing in it comes from the context.
[[nodiscard]] Mapping candidate_process_evaluation_error_result(
    ProcessEvaluation& process_evaluation, EvaluationVerdicts& verdicts, const Value& graph,
    const Value& error);

// One such record for each graph of `batch`, in order, all from the same error.
[[nodiscard]] List process_evaluation_error_results(ProcessEvaluation& process_evaluation,
                                                    EvaluationVerdicts& verdicts,
                                                    const Value& batch, const Value& error);

// Whether a failure of process evaluation ends the whole search: by its reason, or else because it
// cannot be tied to one candidate. A fatal reason is fatal even with a candidate's index.
[[nodiscard]] bool process_evaluation_error_is_search_fatal(ProcessEvaluation& process_evaluation,
                                                            const Value& error);

}  // namespace varnholt::genetic
