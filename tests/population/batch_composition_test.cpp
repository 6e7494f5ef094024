// The public breeding step: how fresh and bred items alternate, and what keeps an item out.
// Method: factories that log their calls, and a host that logs every request for a score.
#include "search_templates/genetic/population/batch_composition.hpp"

#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/recording_eliteness.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::RecordingEliteness;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What is no error to the host's language either, such as an interrupt.
struct Interrupt {};

// Items that can be walked only once, like a generator's; each step stands in the log.
class OneWalk : public HostObject {
 public:
  OneWalk(test::CallLog& log, List items) : log_(log), items_(std::move(items)) {}

  [[nodiscard]] std::string type_name() const override { return "generator"; }
  [[nodiscard]] std::unique_ptr<ValueIterator> iterate() const override {
    return std::make_unique<test::ScriptedIterator>(
        log_, "prior", [cursor = std::make_shared<ListCursor>(items_)] { return cursor->next(); });
  }

 private:
  test::CallLog& log_;
  List items_;
};

Mapping candidate(const std::string& id, double score) {
  return {{"graph", Mapping{{"node", id}}}, {"id", id}, {"score", score}};
}

class ComposeNextBatch : public ::testing::Test {
 protected:
  ComposeNextBatch() {
    settings_.batch_size = 4;
    settings_.elite_fraction = 0.5;
    settings_.diversity_weight = 0.5;
    settings_.parsimony_weight = 0.25;
    host_.eliteness.on_score_candidate = [](const Value& record, const Mapping&) {
      return record.mapping().get("score");
    };
  }

  // A factory of items "fresh0", "fresh1", ...
  FreshFactory fresh() {
    return [this]() -> Value {
      host_.log.add("fresh()");
      return Mapping{{"graph", Mapping{{"node", "fresh" + std::to_string(fresh_count_++)}}}};
    };
  }
  EliteFactory elite() {
    return [this](const List& parents, const std::shared_ptr<RandomGenerator>& rng) -> Value {
      host_.log.add("elite()");
      parents_.push_back(parents);
      rngs_.push_back(rng);
      return Mapping{{"graph", Mapping{{"node", "elite" + std::to_string(elite_count_++)}}}};
    };
  }
  List compose(const Value& prior, const FreshFactory& fresh_factory,
               const EliteFactory& elite_factory) {
    return compose_next_batch(host_.engine, host_.eliteness, prior, settings_, rng_, fresh_factory,
                              elite_factory);
  }
  static std::vector<std::string> nodes(const List& batch) {
    std::vector<std::string> nodes;
    for (std::size_t i = 0; i < batch.size(); ++i)
      nodes.push_back(str(batch.at(i).mapping().at("graph").mapping().at("node")));
    return nodes;
  }
  std::vector<std::string> composed() { return nodes(compose(prior_, fresh(), elite())); }

  test::ScriptedHost host_;
  CompositionSettings settings_;
  std::shared_ptr<RandomGenerator> rng_ =
      std::make_shared<test::ScriptedGenerator>(host_.log, MersenneTwister(1));
  const List prior_{candidate("a", 1.0), candidate("b", 2.0)};
  std::vector<List> parents_;
  std::vector<std::shared_ptr<RandomGenerator>> rngs_;
  int fresh_count_ = 0;
  int elite_count_ = 0;
};

TEST_F(ComposeNextBatch, ExploresFirstWithADiversityWeight) {
  EXPECT_THAT(composed(), ElementsAre("fresh0", "elite0", "fresh1", "elite1"));
  settings_.batch_size = 3;
  EXPECT_THAT(composed(), ElementsAre("fresh2", "elite2", "fresh3"));
}

TEST_F(ComposeNextBatch, BreedsFirstWithout) {
  for (const double weight : {0.0, -1.0}) {
    settings_.diversity_weight = weight;
    fresh_count_ = 0;
    elite_count_ = 0;
    settings_.batch_size = 4;
    EXPECT_THAT(composed(), ElementsAre("elite0", "fresh0", "elite1", "fresh1"));
    settings_.batch_size = 3;
    EXPECT_THAT(composed(), ElementsAre("elite2", "fresh2", "elite3"));
  }
}

TEST_F(ComposeNextBatch, MakesNoMoreItemsThanItNeeds) {
  settings_.batch_size = 1;
  EXPECT_THAT(composed(), ElementsAre("fresh0"));
  EXPECT_EQ(elite_count_, 0);
  settings_.diversity_weight = 0.0;
  EXPECT_THAT(composed(), ElementsAre("elite0"));
  EXPECT_EQ(fresh_count_, 1);
}

TEST_F(ComposeNextBatch, LabelsItems) {
  settings_.batch_size = 2;
  EXPECT_EQ(repr(compose(prior_, fresh(), elite())),
            "[{'graph': {'node': 'fresh0'}, 'lineage': 'fresh_random'}, "
            "{'graph': {'node': 'elite0'}, 'lineage': 'elite_derived'}]");
}

TEST_F(ComposeNextBatch, CopiesTheItemsOfItsFactories) {
  settings_.batch_size = 2;
  const Mapping own{{"lineage", "mine"}, {"graph", Mapping{{"node", "x"}}}, {"note", 1}};
  const List batch = compose(
      prior_, [&]() -> Value { return own; }, nullptr);
  EXPECT_EQ(repr(batch.at(1)), "{'lineage': 'fresh_random', 'graph': {'node': 'x'}, 'note': 1}");
  EXPECT_EQ(str(own.at("lineage")), "mine");
}

TEST_F(ComposeNextBatch, HasOneSourceWithoutTheOther) {
  EXPECT_THAT(nodes(compose(prior_, nullptr, elite())),
              ElementsAre("elite0", "elite1", "elite2", "elite3"));
  EXPECT_THAT(nodes(compose(prior_, fresh(), nullptr)),
              ElementsAre("fresh0", "fresh1", "fresh2", "fresh3"));
  settings_.diversity_weight = 0.0;
  EXPECT_THAT(nodes(compose(prior_, fresh(), nullptr)),
              ElementsAre("fresh4", "fresh5", "fresh6", "fresh7"));
  EXPECT_TRUE(compose(prior_, nullptr, nullptr).empty());
}

TEST_F(ComposeNextBatch, WithoutParentsIsFresh) {
  for (const Value& prior : {Value(), Value(List()), Value(Tuple()), Value(false),
                             Value(List{Mapping{{"score", 1.0}}})}) {
    fresh_count_ = 0;
    EXPECT_THAT(nodes(compose(prior, fresh(), elite())),
                ElementsAre("fresh0", "fresh1", "fresh2", "fresh3"));
    EXPECT_TRUE(compose(prior, nullptr, elite()).empty());
  }
  EXPECT_EQ(elite_count_, 0);
}

TEST_F(ComposeNextBatch, OfNoSizePicksThePoolAllTheSame) {
  for (const std::int64_t size : {0, -3}) {
    settings_.batch_size = size;
    host_.log.clear();
    EXPECT_THAT(composed(), IsEmpty());
    // Two for the order here, two for the order of the pool, two for the one pass.
    EXPECT_EQ(host_.log.count("eliteness.score_candidate"), 6U);
    EXPECT_EQ(host_.log.lines().size(), 6U);
  }
}

TEST_F(ComposeNextBatch, ScoresEveryItemOnceBeforeThePoolDoes) {
  RecordingEliteness eliteness;
  settings_.batch_size = 0;
  const Value without_graph = Mapping{{"id", "none"}, {"score", 9.0}};
  static_cast<void>(compose_next_batch(
      host_.engine, eliteness, List{candidate("a", 1.0), without_graph, candidate("b", 2.0)},
      settings_, rng_, nullptr, nullptr));
  EXPECT_THAT(eliteness.lines(), ElementsAre("a@0.5", "none@0.5", "b@0.5",  // The order here,
                                             "b@0.5", "a@0.5",              // of the pool,
                                             "a@0.0", "a@0.5"));            // and its one pass.
  EXPECT_EQ(eliteness.calls.at(0).parsimony_weight, 0.25);
}

TEST_F(ComposeNextBatch, AsksForAScoreInOneWay) {
  settings_.batch_size = 0;
  static_cast<void>(compose(List{Mapping{{"score", 1}, {"correlation", 0.5}}}, nullptr, nullptr));
  EXPECT_THAT(host_.log.lines(),
              ElementsAre("eliteness.score_candidate({'score': 1, 'correlation': 0.5}, "
                          "sibling_correlations=(), pool_correlation=0.5, diversity_weight=0.5, "
                          "parsimony_weight=0.25)"));
}

// Equal scores keep the order of the prior results all the way into the pool.
TEST_F(ComposeNextBatch, HandsThePoolOverBestFirst) {
  settings_.batch_size = 2;
  settings_.elite_fraction = 1.0;
  const List prior{candidate("a", 1.0), candidate("b", 2.0), candidate("c", 2.0),
                   candidate("d", 0.0)};
  static_cast<void>(compose(prior, fresh(), elite()));
  ASSERT_EQ(parents_.size(), 1U);
  std::vector<std::string> ids;
  for (std::size_t i = 0; i < parents_[0].size(); ++i)
    ids.push_back(str(parents_[0].at(i).mapping().at("id")));
  EXPECT_THAT(ids, ElementsAre("b", "c", "a", "d"));
  EXPECT_EQ(rngs_.at(0), rng_);
  EXPECT_EQ(host_.log.count("rng.random"), 0U);
}

// A walk that can be made only once is read to its end before the first score.
TEST_F(ComposeNextBatch, ReadsThePriorResultsBeforeItScoresThem) {
  settings_.batch_size = 0;
  const Value prior = make_object<OneWalk>(host_.log, prior_);
  static_cast<void>(compose(prior, nullptr, nullptr));
  const std::vector<std::string> names = host_.log.names();
  EXPECT_THAT(std::vector<std::string>(names.begin(), names.begin() + 5),
              ElementsAre("prior.next", "prior.next", "prior.next", "prior.release",
                          "eliteness.score_candidate"));
}

TEST_F(ComposeNextBatch, HandsTheSamePoolToEveryCall) {
  static_cast<void>(composed());
  ASSERT_EQ(parents_.size(), 2U);
  EXPECT_TRUE(same_object(parents_[0], parents_[1]));
  // A pool that has been emptied breeds no more.
  const std::shared_ptr<int> calls = std::make_shared<int>(0);
  const EliteFactory once = [calls](List parents,
                                    const std::shared_ptr<RandomGenerator>&) -> Value {
    ++*calls;
    const auto nobody = std::make_shared<test::HostList>();
    static_cast<void>(parents.adopt(std::make_unique<test::HostListStorage>(nobody)));
    return Mapping{{"graph", Mapping{{"node", "bred"}}}};
  };
  EXPECT_THAT(nodes(compose(prior_, fresh(), once)),
              ElementsAre("fresh2", "bred", "fresh3", "fresh4"));
  EXPECT_EQ(*calls, 1);
}

TEST_F(ComposeNextBatch, FiltersItemsByDepth) {
  settings_.max_depth = 3;
  host_.engine.on_graph_depth_for_attempt_marker = test::in_turn({3, 4, 4, 3, 2, 1});
  EXPECT_THAT(composed(), ElementsAre("fresh0", "elite1", "fresh2", "elite2"));
  EXPECT_EQ(fresh_count_, 3);
}

TEST_F(ComposeNextBatch, FiltersItemsByTheValidator) {
  settings_.validator = test::scripted_callable(
      host_.log, "validator", [](std::span<const Value> arguments, const Mapping&) {
        return Value(str(arguments[0].mapping().at("node")) != "fresh0");
      });
  // The rejected item costs its round one slot and no more.
  EXPECT_THAT(composed(), ElementsAre("elite0", "fresh1", "elite1", "fresh2"));
}

TEST_F(ComposeNextBatch, EndsWithARoundThatAddsNothing) {
  settings_.validator = test::scripted_callable(
      host_.log, "validator", [](std::span<const Value>, const Mapping&) { return Value(false); });
  EXPECT_THAT(composed(), IsEmpty());
  EXPECT_EQ(fresh_count_, 1);
  EXPECT_EQ(elite_count_, 1);
  settings_.diversity_weight = 0.0;
  EXPECT_THAT(composed(), IsEmpty());
  EXPECT_EQ(fresh_count_, 2);
  EXPECT_TRUE(compose(List(), fresh(), elite()).empty());
  EXPECT_EQ(fresh_count_, 3);
}

// One slot is enough to go on.
TEST_F(ComposeNextBatch, GoesOnWithOneSourceThatYieldsNothing) {
  const FreshFactory none = []() -> Value { throw IndexError("list index out of range"); };
  const EliteFactory no_child = [](const auto&, const auto&) -> Value {
    throw ValueError("no child");
  };
  EXPECT_THAT(nodes(compose(prior_, none, elite())),
              ElementsAre("elite0", "elite1", "elite2", "elite3"));
  EXPECT_THAT(nodes(compose(prior_, fresh(), no_child)),
              ElementsAre("fresh0", "fresh1", "fresh2", "fresh3"));
  settings_.diversity_weight = 0.0;
  EXPECT_THAT(nodes(compose(prior_, none, elite())),
              ElementsAre("elite4", "elite5", "elite6", "elite7"));
  EXPECT_THAT(nodes(compose(prior_, fresh(), no_child)),
              ElementsAre("fresh4", "fresh5", "fresh6", "fresh7"));
}

TEST_F(ComposeNextBatch, PassesAnInterruptOn) {
  const FreshFactory interrupted = []() -> Value { throw Interrupt(); };
  EXPECT_THROW(static_cast<void>(compose(prior_, interrupted, nullptr)), Interrupt);
}

TEST_F(ComposeNextBatch, PassesTheHostsFailureOn) {
  host_.eliteness.on_score_candidate = test::failing(RuntimeError("no score"));
  EXPECT_EQ(error_of([&] { return compose(prior_, fresh(), elite()); }), "RuntimeError: no score");
  EXPECT_EQ(error_of([&] { return compose(List{3}, fresh(), elite()); }),
            "AttributeError: 'int' object has no attribute 'get'");
}

// Random sizes, weights, failing factories, depth limits and validators: a batch is never too long,
// its items pass both filters, and they are what a plain walk through the rounds gives.
TEST_F(ComposeNextBatch, EqualsAPlainWalkThroughItsRounds) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 draw(seed);
    settings_.batch_size = static_cast<std::int64_t>(draw() % 9);
    settings_.diversity_weight = draw() % 2 == 0 ? 0.5 : 0.0;
    settings_.max_depth = draw() % 2 == 0 ? Value(3) : Value();
    const bool has_fresh = draw() % 4 > 0;
    const bool has_elite = draw() % 4 > 0;
    const bool has_prior = draw() % 4 > 0;
    const std::uint64_t failures = draw() % 4;
    // What the factories make: absent is a failure, otherwise a graph with a depth.
    std::vector<Value> made[2];
    for (std::vector<Value>& items : made)
      for (int i = 0; i < 10; ++i)
        items.push_back(draw() % 4 < failures ? Value()
                                              : Value(static_cast<std::int64_t>(draw() % 6)));
    std::size_t next[2] = {0, 0};
    const auto make = [&](int source) -> Value {
      const Value depth = made[source].at(next[source]++);
      if (depth.is_absent()) throw ValueError("no item");
      return Mapping{{"graph", Mapping{{"depth", depth}, {"source", source}}}};
    };
    host_.engine.on_graph_depth_for_attempt_marker = [](const Value& graph) {
      return graph.mapping().at("depth");
    };
    const bool validated = draw() % 2 == 0;
    settings_.validator = validated ? test::scripted_callable(
                                          host_.log, "validator",
                                          [](std::span<const Value> arguments, const Mapping&) {
                                            return Value(truth(arguments[0].mapping().at("depth")));
                                          })
                                    : Callable();
    const auto passes = [&](const Value& depth) {
      if (depth.is_absent() || (validated && depth.integer() == 0)) return false;
      return settings_.max_depth.is_absent() || depth.integer() <= 3;
    };

    std::vector<std::pair<int, std::int64_t>> expected;
    std::size_t expected_next[2] = {0, 0};
    const auto size = static_cast<std::size_t>(settings_.batch_size.integer());
    for (bool added = true; added && expected.size() < size;) {
      added = false;
      for (const int slot : {0, 1}) {
        const int source = settings_.diversity_weight.real() > 0.0 ? slot : 1 - slot;
        if (source == 0 ? !has_fresh : !(has_elite && has_prior)) continue;
        const Value& depth = made[source].at(expected_next[source]++);
        if (!passes(depth)) continue;
        expected.emplace_back(source, depth.integer());
        added = true;
        if (expected.size() == size) break;
      }
    }

    const List batch =
        compose(has_prior ? prior_ : List(),
                has_fresh ? FreshFactory([&] { return make(0); }) : FreshFactory(),
                has_elite ? EliteFactory([&](const auto&, const auto&) { return make(1); })
                          : EliteFactory());
    std::vector<std::pair<int, std::int64_t>> actual;
    for (std::size_t i = 0; i < batch.size(); ++i) {
      const Mapping graph = batch.at(i).mapping().at("graph").mapping();
      const auto source = static_cast<int>(graph.at("source").integer());
      actual.emplace_back(source, graph.at("depth").integer());
      EXPECT_TRUE(passes(graph.at("depth")));
      EXPECT_EQ(str(batch.at(i).mapping().at("lineage")),
                source == 0 ? "fresh_random" : "elite_derived");
    }
    EXPECT_LE(batch.size(), size);
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(next[0], expected_next[0]);
    EXPECT_EQ(next[1], expected_next[1]);
  }
}

}  // namespace
}  // namespace varnholt::genetic
