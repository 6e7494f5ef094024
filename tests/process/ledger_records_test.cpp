// Goal: the records of a ledger begin empty but for the batch's graphs, keyed by integers, and find
// the queue of a candidate. Method: batches of good, odd and bad pairs.
#include "search_templates/genetic/process/ledger_records.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

std::string graphs_of(const Value& batch) {
  std::string graphs;
  const std::string error = error_of([&] {
    graphs = repr(graphs_by_index(batch));
    return 0;
  });
  return error == "no error" ? graphs : error;
}

TEST(LedgerRecords, GraphsStandUnderIntegersInTheOrderOfTheBatch) {
  EXPECT_EQ(graphs_of(List{Value(Tuple{"1", "b"}), Value(Tuple{0, "a"})}), "{1: 'b', 0: 'a'}");
  EXPECT_EQ(graphs_of(List()), "{}");
}

TEST(LedgerRecords, OfTwoEqualIndexesTheLaterGraphCountsAtTheFirstPlace) {
  EXPECT_EQ(graphs_of(List{Value(Tuple{0.9, "a"}), Value(Tuple{1, "b"}), Value(Tuple{false, "c"})}),
            "{0: 'c', 1: 'b'}");
}

TEST(LedgerRecords, AGraphIsTheVeryObject) {
  const Mapping graph;
  EXPECT_TRUE(same_object(graphs_by_index(List{Value(Tuple{0, graph})}).at(0), graph));
}

TEST(LedgerRecords, PairsThatAreNone) {
  EXPECT_EQ(graphs_of(5), "TypeError: 'int' object is not iterable");
  EXPECT_EQ(graphs_of(List{5}), "TypeError: cannot unpack non-iterable int object");
  EXPECT_EQ(graphs_of(List{Value(Tuple{0})}),
            "ValueError: not enough values to unpack (expected 2, got 1)");
  EXPECT_EQ(graphs_of(List{Value(Tuple{"x", 0})}),
            "ValueError: invalid literal for int() with base 10: 'x'");
}

TEST(LedgerRecords, BeginEmpty) {
  ScriptedHost host;
  OwnLedgerRecords records(host.context, List{Value(Tuple{3, "g"})});
  EXPECT_EQ(records.context().get(), &host.context);
  EXPECT_EQ(repr(records.graphs()), "{3: 'g'}");
  EXPECT_TRUE(records.states().empty() && records.current_attempt().empty());
  EXPECT_EQ(records.backtest_boundary_queue(), nullptr);
  EXPECT_EQ(records.backtest_acknowledgement_queues(), nullptr);
}

TEST(LedgerRecords, FindTheQueueOfACandidate) {
  ScriptedHost host;
  OwnLedgerRecords records(host.context, List());
  const auto first = std::make_shared<ScriptedQueue>(host.log, "first");
  const auto second = std::make_shared<ScriptedQueue>(host.log, "second");
  records.set_backtest_boundary_queue(first);
  records.set_backtest_acknowledgement_queues({{5, first}, {2, second}});
  EXPECT_EQ(records.backtest_boundary_queue(), first);
  const auto queues = records.backtest_acknowledgement_queues();
  EXPECT_EQ(queues->at(2), second);
  EXPECT_EQ(queues->find(5.0), first) << "equal keys are one key";
  EXPECT_EQ(queues->find(7), nullptr);
  EXPECT_EQ(error_of([&] { return queues->at(7); }), "KeyError: 7");
}

}  // namespace
}  // namespace varnholt::genetic::test
