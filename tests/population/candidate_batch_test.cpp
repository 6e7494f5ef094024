// The graphs of a batch: seeds, a fresh start, a restart with its dropped first graph, and when the
// random stream is fetched and stored. Method: a scripted source of graphs and settings.
#include "search_templates/genetic/population/candidate_batch.hpp"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_config.hpp"
#include "tests/support/scripted_fresh.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::failing;
using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CandidateBatch : public ::testing::Test {
 protected:
  CandidateBatch() {
    config_.settings.batch_size = 3;
    host_.log.clear();
  }

  [[nodiscard]] std::string batch(std::int64_t index, const Value& prior = List{},
                                  bool force_restart = false) {
    return repr(candidate_batch(environment_, host_.context, config_, index, prior, force_restart));
  }
  // A source that gives exactly as many numbered graphs as it is asked for, or `more`.
  void give_numbers(std::int64_t more = 0) {
    fresh_.on_draw = [more](std::int64_t count) {
      List graphs;
      for (std::int64_t i = 0; i < count + more; ++i)
        graphs.append(i);
      return Value(graphs);
    };
  }
  void set_seeds(const Value& seeds) {
    config_.settings.initial_candidates = plain_initial_candidates(seeds);
  }

  ScriptedHost host_;
  test::ScriptedConfig config_{host_.log};
  test::ScriptedFresh fresh_{host_.log};
  LoadedConstants constants_{host_.search_settings, host_.process_evaluation};
  SearchEnvironment environment_{host_.bundle(), constants_, fresh_};
};

TEST_F(CandidateBatch, SeedsAreTheFirstOfTheBatchSizeInOrder) {
  set_seeds(List{Mapping{{"a", List{1}}}, 2, 3, 4, 5});
  EXPECT_EQ(batch(0), "[{'a': [1]}, 2, 3]");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
  config_.settings.batch_size = 9;
  EXPECT_EQ(batch(0), "[{'a': [1]}, 2, 3, 4, 5]");
  config_.settings.batch_size = to_integer("100000000000000000000");
  EXPECT_EQ(batch(0), "[{'a': [1]}, 2, 3, 4, 5]");
}

TEST_F(CandidateBatch, SeedsAreThawedAnewEachTime) {
  set_seeds(List{Mapping{{"a", 1}}});
  const Value first = candidate_batch(environment_, host_.context, config_, 0, List{}, false);
  first.list().at(0).mapping().set("a", 2);
  EXPECT_EQ(batch(0), "[{'a': 1}]");
}

TEST_F(CandidateBatch, AnEmptySequenceOfSeedsIsAnEmptyBatch) {
  set_seeds(List{});
  give_numbers();
  EXPECT_EQ(batch(0), "[]");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(CandidateBatch, SeedsComeBeforeARestartAndAreForTheFirstBatchAlone) {
  set_seeds(List{7});
  give_numbers();
  EXPECT_EQ(batch(0, List{}, true), "[7]");
  EXPECT_EQ(batch(4, List{}, true), "[1, 2, 3]");
  EXPECT_EQ(batch(1, List{}, false), "[0, 1, 2]");
}

TEST_F(CandidateBatch, TheFirstBatchAsksForExactlyTheBatchSize) {
  give_numbers();
  EXPECT_EQ(batch(0), "[0, 1, 2]");
  EXPECT_THAT(host_.log.lines(), ElementsAre("config.rng_for_batch()", "fresh.draw(3, 'rng')",
                                             "config.store_rng_state('rng')"));
  // The generator that drew is the one that is stored.
  EXPECT_EQ(config_.stored, fresh_.last_rng);
}

TEST_F(CandidateBatch, ARestartDrawsOneMoreAndDropsTheFirst) {
  give_numbers();
  EXPECT_EQ(batch(5, List{1}, true), "[1, 2, 3]");
  EXPECT_THAT(host_.log.lines(), ElementsAre("config.rng_for_batch()", "fresh.draw(4, 'rng')",
                                             "config.store_rng_state('rng')"));
  EXPECT_EQ(batch(0, List{}, true), "[1, 2, 3]");
}

TEST_F(CandidateBatch, ARestartThatGetsNoMoreThanTheBatchSizeKeepsAll) {
  give_numbers(-1);
  EXPECT_EQ(batch(5, List{}, true), "[0, 1, 2]");
  give_numbers(-3);
  EXPECT_EQ(batch(5, List{}, true), "[0]");
}

TEST_F(CandidateBatch, ASourceThatReturnsTooManyIsCutOnAFreshStart) {
  give_numbers(2);
  EXPECT_EQ(batch(0), "[0, 1, 2]");
  EXPECT_EQ(batch(5, List{}, true), "[1, 2, 3]");
}

TEST_F(CandidateBatch, ABatchWithoutHistoryIsWhatTheSourceReturns) {
  give_numbers(2);
  EXPECT_EQ(batch(3), "[0, 1, 2, 3, 4]");
  EXPECT_THAT(host_.log.lines(), ElementsAre("config.rng_for_batch()", "fresh.draw(3, 'rng')",
                                             "config.store_rng_state('rng')"));
  // The very object that the source gave.
  const Value given = Tuple{1};
  fresh_.on_draw = always(given);
  EXPECT_TRUE(
      same_object(candidate_batch(environment_, host_.context, config_, 3, Value(), false), given));
}

TEST_F(CandidateBatch, AFailureLeavesTheStreamAsItWas) {
  fresh_.on_draw = failing(ValueError("no graph"));
  EXPECT_EQ(test::error_of([&] { return batch(0); }), "ValueError: no graph");
  EXPECT_EQ(test::error_of([&] { return batch(2); }), "ValueError: no graph");
  EXPECT_EQ(test::error_of([&] { return batch(2, List{}, true); }), "ValueError: no graph");
  EXPECT_EQ(host_.log.count("config.rng_for_batch"), 3U);
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 0U);
}

TEST_F(CandidateBatch, AnEmptyFreshStartStoresTheStream) {
  EXPECT_EQ(batch(0), "[]");
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 1U);
}

TEST_F(CandidateBatch, TheLargestBatchSizeDoesNotOverflow) {
  config_.settings.batch_size = std::numeric_limits<std::int64_t>::max();
  fresh_.on_draw = always(Value(List{1, 2}));
  EXPECT_EQ(batch(2, List{}, true), "[1, 2]");
  EXPECT_EQ(host_.log.lines()[1], "fresh.draw(9223372036854775807, 'rng')");
}

}  // namespace
}  // namespace varnholt::genetic
