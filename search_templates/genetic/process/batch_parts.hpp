// What a batch is made of that the pool gets to see: the ledger, and the operations that the pool
// calls. A host whose language can look into operations makes them itself.
#pragma once

#include <memory>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/attempt_ledger.hpp"
#include "search_templates/genetic/process/streamed_results.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Made for one batch. Each operation is made at the moment it is asked for, the ledger first.
class BatchParts {
 public:
  virtual ~BatchParts() = default;

  // `indexed_batch` has a pair of index and graph for each candidate.
  [[nodiscard]] virtual std::shared_ptr<AttemptLedger> attempt_ledger(
      const List& indexed_batch) = 0;
  // (work item) -> candidate result record, in the child: process_simulate_candidate with the
  // queues that the ledger has then.
  [[nodiscard]] virtual Callable simulate(const Value& found_pnl_paths) = 0;
  // (process result): record_completed_process_result.
  [[nodiscard]] virtual Callable completed_result_callback(bool stream_submissions,
                                                           const StreamedResults& streamed) = 0;
  // The ledger's operations of these names.
  [[nodiscard]] virtual Callable pre_dispatch() = 0;
  [[nodiscard]] virtual Callable lifecycle() = 0;
  [[nodiscard]] virtual Callable progress() = 0;
  [[nodiscard]] virtual Callable poll_backtest_boundaries() = 0;
};

// For a host in C++. Host and context must outlive whatever is made.
class OwnBatchParts : public BatchParts {
 public:
  OwnBatchParts(Host& host, SearchContext& context) : host_(host), context_(context) {}

  [[nodiscard]] std::shared_ptr<AttemptLedger> attempt_ledger(const List& indexed_batch) override;
  [[nodiscard]] Callable simulate(const Value& found_pnl_paths) override;
  [[nodiscard]] Callable completed_result_callback(bool stream_submissions,
                                                   const StreamedResults& streamed) override;
  [[nodiscard]] Callable pre_dispatch() override;
  [[nodiscard]] Callable lifecycle() override;
  [[nodiscard]] Callable progress() override;
  [[nodiscard]] Callable poll_backtest_boundaries() override;

 protected:
  // The ledger that all the operations are of.
  [[nodiscard]] virtual std::shared_ptr<AttemptLedger> make_ledger(const List& indexed_batch);

 private:
  Host& host_;
  SearchContext& context_;
  std::shared_ptr<AttemptLedger> ledger_;
};

}  // namespace varnholt::genetic
