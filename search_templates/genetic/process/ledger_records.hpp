// The state of a ledger of attempts.
//
// The ledger asks for each of these anew whenever it needs it, and never keeps one from call to
// call: a host of another language may show them as attributes that can be read and set at any
// time.
#pragma once

#include <memory>

#include "search_templates/genetic/host/message_queue.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class LedgerRecords {
 public:
  virtual ~LedgerRecords() = default;

  [[nodiscard]] virtual std::shared_ptr<SearchContext> context() = 0;
  // Candidate index to graph, in the order of the batch.
  [[nodiscard]] virtual Mapping graphs() = 0;
  // (candidate index, attempt number) to the state of that attempt, in the order of dispatch. The
  // keys of a state, and what they begin with: new_attempt_state() of attempt_ledger.hpp.
  [[nodiscard]] virtual Mapping states() = 0;
  // Candidate index to the number of the attempt that was dispatched last.
  [[nodiscard]] virtual Mapping current_attempt() = 0;

  // Null until the ledger is prepared for processes.
  [[nodiscard]] virtual std::shared_ptr<MessageQueue> backtest_boundary_queue() = 0;
  [[nodiscard]] virtual std::shared_ptr<AcknowledgementQueues>
  backtest_acknowledgement_queues() = 0;
  virtual void set_backtest_boundary_queue(const std::shared_ptr<MessageQueue>& queue) = 0;
  virtual void set_backtest_acknowledgement_queues(const CandidateQueues& queues) = 0;
};

// The graphs of a batch by int(index), from its pairs of index and graph. Of two indexes that give
// the same integer the later graph counts, at the place of the first.
[[nodiscard]] Mapping graphs_by_index(const Value& indexed_batch);

// The records of a host without a ledger object of its own.
class OwnLedgerRecords : public LedgerRecords {
 public:
  // The context must outlive the records.
  OwnLedgerRecords(SearchContext& context, const Value& indexed_batch);

  [[nodiscard]] std::shared_ptr<SearchContext> context() override { return context_; }
  [[nodiscard]] Mapping graphs() override { return graphs_; }
  [[nodiscard]] Mapping states() override { return states_; }
  [[nodiscard]] Mapping current_attempt() override { return current_attempt_; }
  [[nodiscard]] std::shared_ptr<MessageQueue> backtest_boundary_queue() override {
    return backtest_boundary_queue_;
  }
  [[nodiscard]] std::shared_ptr<AcknowledgementQueues> backtest_acknowledgement_queues() override {
    return backtest_acknowledgement_queues_;
  }
  void set_backtest_boundary_queue(const std::shared_ptr<MessageQueue>& queue) override {
    backtest_boundary_queue_ = queue;
  }
  void set_backtest_acknowledgement_queues(const CandidateQueues& queues) override;

 private:
  std::shared_ptr<SearchContext> context_;
  Mapping graphs_;
  Mapping states_;
  Mapping current_attempt_;
  std::shared_ptr<MessageQueue> backtest_boundary_queue_;
  std::shared_ptr<AcknowledgementQueues> backtest_acknowledgement_queues_;
};

}  // namespace varnholt::genetic
