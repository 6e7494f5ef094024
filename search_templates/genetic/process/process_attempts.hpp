// Attempts that live in a child process: creating the row of one that reached its backtest, and
// ending or describing one whose result cannot reach the parent's recorder.
//
// Such an attempt is classified here, once, by three flags. The first row that holds counts:
//
//                       blocker `type`                                disposition        category
//   cancelled           process_search_cancelled                      cancelled          operator
//   backtest started    process_backtest_execution_failed             backtest_failed    execution
//   dispatched          process_worker_failed_backtest_state_unknown  resource_blocked   resource
//   none of them        process_dispatch_failed                       resource_blocked   resource
//
// The source is "client_lifecycle" for a cancelled attempt and "process_evaluation" for every
// other. The verdict of the threshold gate depends on `dispatched` alone, "blocked" or "skipped",
// for a cancelled attempt too.
//
// A reason and a detail may be any value, an error object among them: their text form is stored. An
// absent detail counts as missing, an empty text does not.
//
// Everything here runs in the parent. Nothing is caught: what the tracker or another operation of
// the host throws propagates to the caller.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

struct AttemptFlags {
  bool dispatched = false;
  bool backtest_started = false;
  bool cancelled = false;
};

// Creates the row of a candidate's attempt and returns its identity.
[[nodiscard]] Value create_process_attempt(Host& host, SearchContext& context,
                                           const Value& candidate_index, const Value& graph);

// Ends the row of an attempt without a result. A cancelled attempt ends with the failure reason
// "search_stopped", while its gate and its blocker keep `reason`: they record the state of the
// ledger.
void finalize_process_failure_attempt(Host& host, SearchContext& context, const Value& attempt_id,
                                      const Value& reason, const Value& detail, AttemptFlags flags);

// Why there are no statistics: `type`, `reason`, and `detail` only where there is one.
[[nodiscard]] Mapping process_attempt_blocker(const Value& reason, const Value& detail,
                                              AttemptFlags flags);

// The evidence of an attempt without a result, for a record that the parent makes in its place.
[[nodiscard]] Mapping process_attempt_evidence(Host& host, SearchContext& context,
                                               const Value& reason, const Value& detail,
                                               AttemptFlags flags);

}  // namespace varnholt::genetic
