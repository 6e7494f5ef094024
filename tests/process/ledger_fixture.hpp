// A ledger of two candidates on the hand-made host, with its queues made.
#pragma once

#include <initializer_list>

#include "search_templates/genetic/process/attempt_ledger.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/process/attempt_fixture.hpp"

namespace varnholt::genetic::test {

inline constexpr const char* kCrossed =
    "RuntimeError: finalized process state crossed the backtest boundary";

class LedgerTest : public AttemptTest {
 protected:
  LedgerTest() {
    ledger.prepare_for_processes();
    host.log.clear();
  }

  // A child's signal.
  void signal(const Value& message) {
    host.process_contexts.queues.at(0)->messages.push_back(message);
  }
  void signal(const Value& index, const Value& attempt) { signal(Tuple{index, attempt}); }
  // What the children of a candidate were answered.
  std::string answers(std::size_t candidate = 0) {
    std::string found;
    for (const Value& message : host.process_contexts.queues.at(candidate + 1)->messages)
      found += (found.empty() ? "" : " ") + repr(message);
    return found;
  }
  Mapping state(const Value& index = 0, const Value& attempt = 0) {
    return records.states().at(Tuple{index, attempt}).mapping();
  }
  // The keys whose value is neither absent nor false.
  std::string set_in(const Mapping& state) {
    std::string found;
    MappingCursor entries(state);
    while (const auto entry = entries.next())
      if (truth(entry->value)) found += (found.empty() ? "" : " ") + str(entry->key);
    return found;
  }
  // An attempt whose child has reached its backtest.
  Mapping started(const Value& index = 0, const Value& attempt = 0) {
    ledger.pre_dispatch(dispatch(index, attempt));
    signal(index, attempt);
    ledger.poll_backtest_boundaries();
    host.log.clear();
    return state(index, attempt);
  }

  OwnLedgerRecords records{host.context,
                           List{Value(Tuple{0, "graph a"}), Value(Tuple{1, "graph b"})}};
  ProcessAttemptLedger ledger{host.bundle(), records};
};

}  // namespace varnholt::genetic::test
