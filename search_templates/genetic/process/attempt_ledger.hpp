// The parent's ledger of the process attempts of one batch.
//
// The worker pool may run a candidate more than once, as attempts 0, 1, ... The ledger turns the
// pool's events and the children's messages into calls of the tracker, keeps the identities that it
// returns, and ensures that each attempt ends once. The row of an attempt is created late, on
// purpose: when a child has reached its backtest, or when its result shows that it did. An attempt
// that dies before that has no identity and no row.
//
// The state of one attempt:
//
//   from             by                                             to
//   (none)           pre_dispatch                                   dispatched
//   dispatched       pre_dispatch                                   RuntimeError
//   dispatched       lifecycle "started"                            worker started
//   dispatched       progress "started", with a graph               marker open
//   marker open      progress "error" or "ok"                       marker closed
//   not finalized    a child's signal, evidence of a started        identity set, backtest started
//                    backtest
//   finalized        a child's signal                               RuntimeError, the child is told
//   any              lifecycle "error"                              the first reason is kept
//   not finalized    lifecycle "error" with "retrying"              finalized with that failure
//   not finalized    pre_dispatch of the next attempt               finalized with its failure, or
//                                                                   "process_attempt_retried"
//   not finalized    mark_parent_finalized                          finalized, no tracker call
//   not finalized    finalize_all_open                              finalized with its reason
//   finalized        whatever finalizes                             no change, marker closed
//
// An attempt whose backtest had started before it was finalized answers a further signal with its
// identity, though: that it has started is asked first.
//
// Everything runs in the parent, on the thread of the search, never two operations at a time; there
// is no lock. A child waits at its backtest until it is answered, so that the tracker shows the
// backtest as started before it runs.
#pragma once

#include <memory>
#include <utility>

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/message_queue.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/ledger_records.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What the evaluation of a batch asks of its ledger.
//
// All operations but `prepare_for_processes`, `mark_parent_finalized` and
// `acknowledge_parent_persistence_failure` first answer the children that wait at their backtest,
// even those that then have nothing to do, and before they look at their arguments. What that
// throws propagates, and the operation itself has then done nothing.
//
// An event is a mapping of the worker pool. A missing entry that is required is a KeyError; an
// index is read as int(index). A broken order is a RuntimeError with a text of its own: it ends the
// batch, because it must not be recorded as a result.
class AttemptLedger {
 public:
  virtual ~AttemptLedger() = default;

  // Makes the queues, once: before the first fork.
  virtual void prepare_for_processes() = 0;
  // The queues, read when a child starts; null before they are made.
  [[nodiscard]] virtual std::shared_ptr<MessageQueue> backtest_boundary_queue() = 0;
  [[nodiscard]] virtual std::shared_ptr<AcknowledgementQueues>
  backtest_acknowledgement_queues() = 0;

  // Before a work item goes to a worker: `candidate_index`, `attempt`, and `candidate`, the item,
  // into whose mapping `metadata` the number of the attempt is written as "process_attempt". Ends
  // the attempt before this one. KeyError when that is unknown; RuntimeError "process attempt was
  // dispatched more than once".
  virtual void pre_dispatch(const Value& event) = 0;
  // A worker started, failed or came to its end: `event` "started", "error" or "ok". An "error"
  // may have `failure_reason`, "process_child_exception" without one, `error`, its detail, and
  // `retrying`, which ends the attempt. One that is not retried stays open: its end comes with the
  // record of the failure, or with finalize_all_open. RuntimeError for an unknown event or reason,
  // and for a reason that differs from the attempt's first.
  virtual void lifecycle(const Value& event) = 0;
  // A candidate's evaluation began or ended: "started" opens the host's marker, when the event's
  // `candidate` has a graph; "error" and "ok" close it. Any other event is ignored, on purpose
  // unlike in `lifecycle`.
  virtual void progress(const Value& event) = 0;
  // Called again and again while the parent waits.
  virtual void poll_backtest_boundaries() = 0;

  // The evidence that came with a child's result: a started backtest is now one for the tracker
  // too. RuntimeError for anything but a mapping, for a backtest that was completed but not
  // started, and for one that the ledger saw start and the evidence denies.
  virtual void apply_child_evidence(const Value& candidate_index, const Value& evidence) = 0;
  // The identity of the candidate's current attempt; absent when it has none.
  [[nodiscard]] virtual Value source_attempt_id(const Value& candidate_index) = 0;
  // The evidence of an attempt that failed (process_attempts.hpp), for the candidate's current one.
  [[nodiscard]] virtual Value failure_evidence(const Value& candidate_index, const Value& reason,
                                               const Value& detail) = 0;

  // The parent's recorder has ended the attempt: the ledger does not.
  virtual void mark_parent_finalized(const Value& candidate_index) = 0;
  // The recorder failed, and has settled the attempt all the same.
  virtual void acknowledge_parent_persistence_failure(const Value& candidate_index) = 0;
  // Ends every attempt that is still open, in the order of dispatch. `detail` may be an error
  // object.
  virtual void finalize_all_open(const Value& reason, const Value& detail) = 0;
};

// A fresh state: `attempt_id` absent, `dispatched`, `worker_started`, `backtest_started` and
// `finalized` false, `failure_reason`, `failure_detail` and `marker_attempt_id` absent.
[[nodiscard]] Mapping new_attempt_state();

class ProcessAttemptLedger : public AttemptLedger {
 public:
  // Host and records must outlive the ledger.
  ProcessAttemptLedger(Host& host, LedgerRecords& records) : host_(host), records_(records) {}

  void prepare_for_processes() override;
  [[nodiscard]] std::shared_ptr<MessageQueue> backtest_boundary_queue() override {
    return records_.backtest_boundary_queue();
  }
  [[nodiscard]] std::shared_ptr<AcknowledgementQueues> backtest_acknowledgement_queues() override {
    return records_.backtest_acknowledgement_queues();
  }

  void pre_dispatch(const Value& event) override;
  void lifecycle(const Value& event) override;
  void progress(const Value& event) override;
  void poll_backtest_boundaries() override;
  void apply_child_evidence(const Value& candidate_index, const Value& evidence) override;
  [[nodiscard]] Value source_attempt_id(const Value& candidate_index) override;
  [[nodiscard]] Value failure_evidence(const Value& candidate_index, const Value& reason,
                                       const Value& detail) override;
  void mark_parent_finalized(const Value& candidate_index) override;
  void acknowledge_parent_persistence_failure(const Value& candidate_index) override;
  void finalize_all_open(const Value& reason, const Value& detail) override;

  // What the operations above are made of. A host whose language lets single operations of an
  // object be replaced derives from this class, and is then asked for these.

  [[nodiscard]] virtual Value new_state() { return new_attempt_state(); }
  // The key (int(candidate_index), int(attempt)) of an event, and its state.
  [[nodiscard]] virtual std::pair<Value, Value> state_for_event(const Value& event);
  // Creates the row, keeps its identity at once, and marks it dispatched and started; returns the
  // identity. Done once: a second call returns the identity alone. RuntimeError "finalized process
  // state crossed the backtest boundary". What the tracker throws leaves the attempt not started,
  // with an identity when the row had been made.
  virtual Value start_backtest_attempt(const Value& candidate_index, const Value& attempt_number);
  // Answers every signal that has come, without waiting for one. A start that fails with an
  // ordinary error is reported to the child, which releases it, before the error propagates.
  virtual void drain_backtest_boundaries();
  // Ends the attempt, when it has an identity and no end yet, and closes its marker. An end that
  // fails leaves it open.
  virtual void finalize_state(const Value& state, const Value& reason, const Value& detail);
  // Closes the marker, which is forgotten once that worked.
  virtual void clear_marker(const Value& state);

 private:
  void answer_backtest_boundary(const Value& signal);
  [[nodiscard]] Value known_failure_reason(const Mapping& event);

  Host& host_;
  LedgerRecords& records_;
};

}  // namespace varnholt::genetic
