// Structural deduplication: what is counted and when, how long a batch is refilled, and when the
// random stream is fetched and stored. Method: scripted sources of graphs and a log of every
// access.
#include "search_templates/genetic/population/deduplication.hpp"

#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/population/seen_graph_keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_config.hpp"
#include "tests/support/scripted_fresh.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::failing;
using test::in_turn;
using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(DeduplicateGraphs, KeepsTheFirstOfEachStructure) {
  const Value first = Mapping{{"a", 1}, {"b", 2}};
  const Value graphs = List{
      first, Mapping{{"a", 1.0}, {"b", 2}}, Mapping{{"b", 2}, {"a", 1}}, 5, List{}, 5.0, Mapping{}};
  const List unique = deduplicate_graphs(graphs);
  EXPECT_EQ(repr(unique), "[{'a': 1, 'b': 2}, {'b': 2, 'a': 1}, 5, [], {}]");
  EXPECT_TRUE(same_object(unique.at(0), first));
  EXPECT_EQ(length(graphs), 7U);
  EXPECT_EQ(repr(deduplicate_graphs(Tuple{})), "[]");
  EXPECT_EQ(test::error_of([] { return deduplicate_graphs(List{Tuple{}}); }),
            "TypeError: genetic initial candidates must contain only plain graph data");
}

// A set that logs what it is asked, in front of the library's own.
class LoggingSeen : public SeenGraphs {
 public:
  explicit LoggingSeen(test::CallLog& log) : log_(log) {}

  [[nodiscard]] bool contains(const Value& graph, const StructuralKey& key) override {
    log_.add("seen.contains", {graph});
    return keys.contains(graph, key);
  }
  void add(const Value& graph, const StructuralKey& key) override {
    log_.add("seen.add", {graph});
    keys.add(graph, key);
  }

  SeenGraphKeys keys;

 private:
  test::CallLog& log_;
};

// A set that forgets everything.
class ForgetfulSeen : public SeenGraphs {
 public:
  [[nodiscard]] bool contains(const Value& /*graph*/, const StructuralKey& /*key*/) override {
    return false;
  }
  void add(const Value& /*graph*/, const StructuralKey& /*key*/) override { ++added; }

  int added = 0;
};

class DeduplicatedBatchTest : public ::testing::Test {
 protected:
  DeduplicatedBatch run(const Value& batch_size, const Value& graphs, SeenGraphs& seen) {
    config_.settings.batch_size = batch_size;
    return run_deduplicated_batch(host_.context, config_, fresh_, graphs, seen);
  }
  // "graphs, generated, duplicates" of a run over the set of this test.
  std::string report(const Value& batch_size, const Value& graphs) {
    const DeduplicatedBatch batch = run(batch_size, graphs, seen_);
    return repr(batch.graphs) + ", " + std::to_string(batch.generated_count) + ", " +
           std::to_string(batch.duplicate_count);
  }

  ScriptedHost host_;
  test::ScriptedConfig config_{host_.log};
  test::ScriptedFresh fresh_{host_.log};
  SeenGraphKeys seen_;
};

TEST_F(DeduplicatedBatchTest, AnEmptyBatchTouchesNothing) {
  EXPECT_EQ(report(8, List{}), "[], 0, 0");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(DeduplicatedBatchTest, ABatchOfDifferentGraphsTouchesNoGenerator) {
  EXPECT_EQ(report(4, List{1, 2, 3}), "[1, 2, 3], 3, 0");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
  EXPECT_EQ(seen_.size(), 3U);
}

TEST_F(DeduplicatedBatchTest, ABatchSizeOfZeroTakesNothingButCounts) {
  EXPECT_EQ(report(0, List{1, 1}), "[], 2, 0");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(DeduplicatedBatchTest, ALongBatchIsCutAndItsRestNeitherExaminedNorCountedAsDuplicate) {
  // A graph that is not plain data would fail if it were examined.
  EXPECT_EQ(report(2, List{1, 1, 2, 1, Tuple{}}), "[1, 2], 5, 1");
  EXPECT_EQ(seen_.size(), 2U);
}

TEST_F(DeduplicatedBatchTest, DuplicatesAreReplacedInsideTheBatchAlone) {
  fresh_.on_draw = in_turn({Value(List{1}), Value(List{5}), Value(List{5}), Value(List{6})});
  EXPECT_EQ(report(8, List{1, 1, 2, 1}), "[1, 2, 5, 6], 8, 4");
  EXPECT_THAT(
      host_.log.lines(),
      ElementsAre("config.rng_for_batch()", "fresh.draw(1, 'rng')", "fresh.draw(1, 'rng')",
                  "fresh.draw(1, 'rng')", "fresh.draw(1, 'rng')", "config.store_rng_state('rng')"));
  EXPECT_EQ(config_.stored, fresh_.last_rng);
}

TEST_F(DeduplicatedBatchTest, OnlyDuplicatesOfAnEarlierBatchAreDroppedToo) {
  EXPECT_EQ(report(4, List{1, 2}), "[1, 2], 2, 0");
  fresh_.on_draw = in_turn({Value(List{2}), Value(List{4})});
  EXPECT_EQ(report(4, List{2.0, 3}), "[3, 4], 4, 2");
}

TEST_F(DeduplicatedBatchTest, BackfillEndsAfterTwentyAttemptsForEachOfTheBatchSize) {
  fresh_.on_draw = always(Value(List{1}));
  // The limit goes by the batch size, not by the length of the batch.
  EXPECT_EQ(report(8, List{1, 1, 1, 1}), "[1], 164, 163");
  EXPECT_EQ(host_.log.count("fresh.draw"), 160U);
  EXPECT_EQ(host_.log.count("config.rng_for_batch"), 1U);
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 1U);
}

TEST_F(DeduplicatedBatchTest, BackfillGetsTwentyAttemptsForTheSmallestBatch) {
  seen_.add(1, structural_key(1));
  fresh_.on_draw = always(Value(List{1}));
  EXPECT_EQ(report(1, List{1}), "[], 21, 21");
  EXPECT_EQ(host_.log.count("fresh.draw"), 20U);
}

TEST_F(DeduplicatedBatchTest, TheAttemptLimitIsTestedBeforeTheGeneratorIsFetched) {
  // The twentieth attempt succeeds, and so the batch is full at the limit.
  int draws = 0;
  fresh_.on_draw = [&draws](std::int64_t) { return Value(List{++draws < 20 ? 1 : 2}); };
  EXPECT_EQ(report(1, List{1}), "[1], 1, 0");
  EXPECT_EQ(report(1, List{1}), "[2], 21, 20");
}

TEST_F(DeduplicatedBatchTest, AnEmptyAnswerEndsTheBackfillAndTheStreamIsStored) {
  fresh_.on_draw = in_turn({Value(List{2}), Value(List{})});
  EXPECT_EQ(report(8, List{1, 1, 1}), "[1, 2], 4, 2");
  EXPECT_EQ(host_.log.lines().back(), "config.store_rng_state('rng')");
  EXPECT_EQ(host_.log.count("fresh.draw"), 2U);
}

TEST_F(DeduplicatedBatchTest, GraphsBeyondTheFirstAreCountedAndDropped) {
  fresh_.on_draw = in_turn({Value(List{2, 3, 4}), Value(Tuple{2, 5}), Value(List{6})});
  EXPECT_EQ(report(3, List{1, 1, 1}), "[1, 2, 6], 9, 3");
}

TEST_F(DeduplicatedBatchTest, AGraphMeetsTheBatchsOwnSetFirst) {
  LoggingSeen seen(host_.log);
  fresh_.on_draw = always(Value(List{}));
  static_cast<void>(run(4, List{1, 1, 2}, seen));
  EXPECT_THAT(host_.log.lines(),
              ElementsAre("seen.contains(1)", "seen.add(1)", "seen.contains(2)", "seen.add(2)",
                          "config.rng_for_batch()", "fresh.draw(1, 'rng')",
                          "config.store_rng_state('rng')"));
}

TEST_F(DeduplicatedBatchTest, TheBatchsOwnSetHoldsWhateverTheOtherForgets) {
  ForgetfulSeen seen;
  const DeduplicatedBatch batch = run(4, List{1, 1.0, 2}, seen);
  EXPECT_EQ(repr(batch.graphs), "[1, 2]");
  EXPECT_EQ(batch.duplicate_count, 1);
  EXPECT_EQ(seen.added, 2);
}

TEST_F(DeduplicatedBatchTest, AFailureKeepsTheKeysAndDoesNotStoreTheStream) {
  EXPECT_EQ(test::error_of([&] {
              return run(4, List{1, 2, Tuple{}, 3}, seen_).generated_count;
            }),
            "TypeError: genetic initial candidates must contain only plain graph data");
  EXPECT_EQ(seen_.size(), 2U);
  fresh_.on_draw = failing(ValueError("no graph"));
  EXPECT_EQ(test::error_of([&] {
              return run(4, List{1, 7}, seen_).generated_count;
            }),
            "ValueError: no graph");
  EXPECT_EQ(seen_.size(), 3U);
  EXPECT_EQ(host_.log.count("config.rng_for_batch"), 1U);
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 0U);
}

TEST_F(DeduplicatedBatchTest, AMissingGeneratorIsAskedForAgainAndNeverStored) {
  config_.on_rng_for_batch = always(nullptr);
  fresh_.on_draw = in_turn({Value(List{1}), Value(List{2})});
  EXPECT_EQ(report(4, List{1, 1}), "[1, 2], 4, 2");
  EXPECT_THAT(host_.log.lines(), ElementsAre("config.rng_for_batch()", "fresh.draw(1, None)",
                                             "config.rng_for_batch()", "fresh.draw(1, None)"));
}

TEST_F(DeduplicatedBatchTest, AcceptsTheGraphItself) {
  const Value graph = Mapping{{"a", 1}};
  const Value graphs = Tuple{graph};
  EXPECT_TRUE(same_object(run(4, graphs, seen_).graphs.at(0), graph));
  EXPECT_EQ(report(4, test::as_host_containers(List{Mapping{{"b", 1}}})), "[{'b': 1}], 1, 0");
}

TEST_F(DeduplicatedBatchTest, TheBatchMayChangeUnderTheRun) {
  // The batch is copied into a list before anything else happens.
  const auto host = std::make_shared<test::HostList>();
  host->items = {1, 1, 2};
  fresh_.on_draw = [host](std::int64_t) {
    host->items.clear();
    return Value(List{3});
  };
  EXPECT_EQ(report(4, test::list_of(host)), "[1, 2, 3], 4, 1");
}

TEST_F(DeduplicatedBatchTest, BatchSizesBeyond64BitsAreNoLimit) {
  // Far more attempts are allowed than a small batch gets.
  int draws = 0;
  fresh_.on_draw = [&draws](std::int64_t) { return Value(++draws < 50 ? List{1} : List{}); };
  EXPECT_EQ(report(to_integer("100000000000000000000"), List{1, 1}), "[1], 51, 50");
  EXPECT_EQ(host_.log.count("fresh.draw"), 50U);
}

}  // namespace
}  // namespace varnholt::genetic
