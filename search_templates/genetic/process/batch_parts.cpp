#include "search_templates/genetic/process/batch_parts.hpp"

#include <span>

#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/process/batch_results.hpp"
#include "search_templates/genetic/process/child_simulation.hpp"
#include "search_templates/genetic/process/ledger_records.hpp"

namespace varnholt::genetic {
namespace {

struct LedgerWithRecords {
  LedgerWithRecords(Host& host, SearchContext& context, const List& indexed_batch)
      : records(context, indexed_batch), ledger(host, records) {}
  LedgerWithRecords(const LedgerWithRecords&) = delete;
  LedgerWithRecords& operator=(const LedgerWithRecords&) = delete;
  ~LedgerWithRecords() = default;

  OwnLedgerRecords records;
  ProcessAttemptLedger ledger;
};

// An operation of the ledger that takes one event.
Callable on_event(const std::shared_ptr<AttemptLedger>& ledger,
                  void (AttemptLedger::*operation)(const Value&)) {
  return make_callable([ledger, operation](std::span<const Value> positional, const Mapping&) {
    ((*ledger).*operation)(positional[0]);
    return Value();
  });
}

}  // namespace

std::shared_ptr<AttemptLedger> OwnBatchParts::attempt_ledger(const List& indexed_batch) {
  ledger_ = make_ledger(indexed_batch);
  return ledger_;
}

std::shared_ptr<AttemptLedger> OwnBatchParts::make_ledger(const List& indexed_batch) {
  const auto both = std::make_shared<LedgerWithRecords>(host_, context_, indexed_batch);
  return {both, &both->ledger};
}

Callable OwnBatchParts::simulate(const Value& found_pnl_paths) {
  return make_callable([&host = host_, &context = context_, ledger = ledger_, found_pnl_paths](
                           std::span<const Value> positional, const Mapping&) {
    const Value& candidate = positional[0];
    OwnChildStandIns stand_ins(
        context, candidate, found_pnl_paths,
        {ledger->backtest_boundary_queue(), ledger->backtest_acknowledgement_queues()});
    return Value(process_simulate_candidate(host, context, candidate, stand_ins));
  });
}

Callable OwnBatchParts::completed_result_callback(bool stream_submissions,
                                                  const StreamedResults& streamed) {
  return make_callable([&host = host_, &context = context_, ledger = ledger_, stream_submissions,
                        streamed](std::span<const Value> positional, const Mapping&) {
    record_completed_process_result(host, context, *ledger, stream_submissions, streamed,
                                    positional[0]);
    return Value();
  });
}

Callable OwnBatchParts::pre_dispatch() {
  return on_event(ledger_, &AttemptLedger::pre_dispatch);
}

Callable OwnBatchParts::lifecycle() {
  return on_event(ledger_, &AttemptLedger::lifecycle);
}

Callable OwnBatchParts::progress() {
  return on_event(ledger_, &AttemptLedger::progress);
}

Callable OwnBatchParts::poll_backtest_boundaries() {
  return make_callable([ledger = ledger_](std::span<const Value>, const Mapping&) {
    ledger->poll_backtest_boundaries();
    return Value();
  });
}

}  // namespace varnholt::genetic
