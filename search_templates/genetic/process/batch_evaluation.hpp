// A whole batch of candidates through the host's worker pool.
//
// Every candidate is evaluated in a child process, also with one job. The parent owns all
// persistence: it keeps one ledger of attempts for the batch, answers the children that wait at
// their backtest, records every result as it completes, and closes on every exit what is open:
//
//   exit                                          reason the ledger is given             leaves
//   empty batch                                   (no ledger)                            []
//   cancelled before anything                     process_evaluation_cancelled           []
//   listing the found PnL files failed            found_pnl_prefetch_failed              the error
//   the number of workers could not be told       process_capacity_resolution_failed     the error
//   warming the features failed                   candidate_feature_prefetch_failed      the error
//   the pool's error ends the search              fatal_process_evaluation_failure       the error
//   one of its errors is neither a lost worker    unsupported_process_evaluation_        the error
//   nor a time-out                                failure
//   one of its errors names no candidate of       unmatched_process_evaluation_failure   the error
//   this pass that is not done
//   the pool failed with any other error          process_evaluation_aborted             the error
//   the batch ran dry, was cancelled, or the      process_result_missing                 results
//   pool gave nothing
//
// An interrupt is an error here: whatever leaves is the same object that came. What fails while a
// pool's error is being handled, while queues, work items or the configuration are made, and while
// the pool's answer is walked, leaves as it stands, on purpose, and with the attempts open.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/batch_parts.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The result records in the order of the batch, which may be any walk, without those that have no
// result: positions are then no indexes. An absent `process_timeout_seconds` is the host's default,
// and only an absent one: 0 stays 0. An empty batch asks the host nothing.
//
// Features are warmed and candidates dispatched chunk by chunk, never more at a time than there are
// workers. Results are submitted as they complete when the batch is one candidate or more than one
// job was asked for; otherwise submission is the caller's. A result of the pool that did not come
// through the callback is returned unrecorded, on purpose, and its attempt ends without a result.
[[nodiscard]] List evaluate_candidate_batch(Host& host, SearchContext& context, const Value& batch,
                                            const Value& process_timeout_seconds,
                                            BatchParts& parts);

// The same for a search: by the host's own evaluator where it has one, and otherwise with parts of
// the library's own.
[[nodiscard]] Value evaluate_candidate_batch(Host& host, SearchContext& context, const Value& batch,
                                             const Value& process_timeout_seconds);

}  // namespace varnholt::genetic
