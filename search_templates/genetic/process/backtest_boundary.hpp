// The child's side of the start of a backtest: it tells the parent and waits for the answer, so
// that the attempt's row is there before the backtest runs.
//
// The only traffic beside the pool's own, as plain tuples:
//
//   signal           child to parent, on the one boundary queue       (candidate index, attempt)
//   acknowledgement  parent to child, on the candidate's own queue    (candidate index, attempt,
//                                                                      accepted, detail, identity)
//
// An acceptance has no detail and the identity of the parent's attempt; a rejection has a text and
// no identity. An answer is matched by candidate and attempt, so that one that an earlier attempt
// of the candidate did not take any more is found out.
#pragma once

#include <memory>
#include <span>

#include "search_templates/genetic/host/child_context.hpp"
#include "search_templates/genetic/host/message_queue.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The queues as the child has them. Each may be null.
struct BoundaryChannel {
  std::shared_ptr<MessageQueue> backtest_boundary_queue;
  std::shared_ptr<AcknowledgementQueues> backtest_acknowledgement_queues;
};

// Stands in the child for the host's marker of attempts and takes its arguments: the phase is the
// keyword "phase" or else the last positional argument. Any phase but "run_backtest" does nothing.
// With it, the child tells the parent and waits, without a limit, until the answer is there; then
// `evaluation_state` has the identity of the parent's attempt. A second "run_backtest" does the
// same once more, and the parent gives the same answer.
//
// RuntimeError, each with a text of its own, without the queues, for an answer to another attempt,
// for a rejection, and for an acceptance without an identity. ValueError for an answer that has not
// five fields.
void signal_child_backtest_boundary(const BoundaryChannel& channel, const Value& candidate_index,
                                    const Value& process_attempt,
                                    TemplateEvaluationState& evaluation_state,
                                    std::span<const Value> positional, const Mapping& keywords);

}  // namespace varnholt::genetic
