// Goal: a host that wants to know is told where the graphs of each batch came from and when a
// generation ends, and the search makes no other call for it.
// Method: whole runs over a scripted host, with an observer and without; what is told is compared
// with what was evaluated.
#include "search_templates/genetic/host/generation_observer.hpp"

#include <algorithm>

#include <gmock/gmock.h>

#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class NotingObserver : public GenerationObserver {
 public:
  struct Offspring {
    Value graph;
    Names operators;
    Value elite;
    Value mate;
  };

  void on_seed(const Value& graph) override { seeds.push_back(graph); }
  void on_offspring(const Value& graph, std::span<const Key> operators, const Value& elite,
                    const Value& mate) override {
    Offspring noted{graph, {}, elite, mate};
    for (const Key name : operators)
      noted.operators.emplace_back(name.view());
    offspring.push_back(noted);
  }
  void on_batch(const List& graphs) override { batches.push_back(graphs); }
  void on_generation_end() override {
    ++generation_ends;
    if (log != nullptr) log->add("generation end", {});
  }

  // Whether this very graph was told of as bred.
  [[nodiscard]] bool is_offspring(const Value& graph) const {
    return std::any_of(offspring.begin(), offspring.end(), [&graph](const Offspring& noted) {
      return same_object(noted.graph, graph);
    });
  }

  std::vector<Value> seeds;
  std::vector<Offspring> offspring;
  std::vector<List> batches;
  int generation_ends = 0;
  CallLog* log = nullptr;
};

// Unlike the graphs of the first batch it has a child, so that no elite's root is put on it.
Value bred_graph(const std::string& name) {
  return Mapping{{"node", name}, {"children", List{Mapping{{"node", "x"}, {"type", "feature"}}}}};
}

// Without a diversity weight the places of a batch go to offspring and fresh graphs in turn.
void breed_in_turn(SearchHarness& search) {
  TemplateArguments arguments = search.module.default_arguments();
  arguments.batch_size = 4;
  arguments.diversity_weight = 0.0;
  search.configure(arguments);
  search.host.genetic_ops.on_crossover = [bred = 0](const auto&... /*arguments*/) mutable {
    return bred_graph("crossed" + std::to_string(++bred));
  };
  search.host.genetic_ops.on_point_mutation = [bred = 0](const auto&... /*arguments*/) mutable {
    return bred_graph("mutated" + std::to_string(++bred));
  };
}

TEST(GenerationObserver, MakesNoCallMoreAndNoneInAnotherOrder) {
  SearchHarness plain;
  breed_in_turn(plain);
  plain.run();
  SearchHarness observed;
  NotingObserver observer;
  observed.host.generation_observer = &observer;
  breed_in_turn(observed);
  observed.run();
  EXPECT_EQ(observed.host.log.lines(), plain.host.log.lines());
  EXPECT_THAT(observer.offspring, testing::Not(IsEmpty()));
}

TEST(GenerationObserver, IsToldOfEachBatchAsItIsEvaluated) {
  SearchHarness search(2);
  NotingObserver observer;
  search.host.generation_observer = &observer;
  Names evaluated;
  search.on_outcome = [&](const Value& graph) {
    evaluated.push_back(name_of(graph));
    return failing_for(graph, "sharpe_min");
  };
  search.stop_at_pause(2);
  search.run();
  ASSERT_THAT(observer.batches, SizeIs(2));
  Names told;
  for (const List& batch : observer.batches) {
    for (std::size_t i = 0; i < batch.size(); ++i)
      told.push_back(name_of(batch.at(i)));
  }
  EXPECT_EQ(told, evaluated);
  EXPECT_THAT(observer.offspring, IsEmpty());
  EXPECT_THAT(observer.seeds, IsEmpty());
}

TEST(GenerationObserver, SeesSeedsAsTheVeryGraphsOfTheFirstBatch) {
  SearchHarness search;
  NotingObserver observer;
  search.host.generation_observer = &observer;
  TemplateArguments arguments = search.module.default_arguments();
  arguments.batch_size = 2;
  arguments.initial_candidates = graphs_named({"s1", "s2", "s3"});
  search.configure(arguments);
  search.stop_at_pause(1);
  search.run();
  ASSERT_THAT(observer.seeds, SizeIs(2)) << "the third did not fit";
  ASSERT_THAT(observer.batches, SizeIs(1));
  EXPECT_TRUE(same_object(observer.batches[0].at(0), observer.seeds[0]));
  EXPECT_TRUE(same_object(observer.batches[0].at(1), observer.seeds[1]));
}

TEST(GenerationObserver, SeesOffspringAsTheVeryGraphsOfTheNextBatch) {
  SearchHarness search;
  NotingObserver observer;
  search.host.generation_observer = &observer;
  breed_in_turn(search);
  search.stop_at_pause(2);
  search.run();
  ASSERT_THAT(observer.batches, SizeIs(2));
  const List& second = observer.batches[1];
  ASSERT_EQ(second.size(), 4U);
  int bred = 0;
  for (std::size_t i = 0; i < second.size(); ++i) {
    const bool is_fresh = name_of(second.at(i)).front() == 'g';
    EXPECT_EQ(observer.is_offspring(second.at(i)), !is_fresh) << name_of(second.at(i));
    if (!is_fresh) ++bred;
  }
  EXPECT_GE(bred, 1);
  for (const NotingObserver::Offspring& noted : observer.offspring) {
    // The parents are graphs of the first batch; the results carry copies of them.
    const auto is_parent = [&](const Value& graph) {
      const List& first = observer.batches[0];
      for (std::size_t i = 0; i < first.size(); ++i) {
        if (first.at(i) == graph) return true;
      }
      return false;
    };
    EXPECT_TRUE(is_parent(noted.elite));
    EXPECT_TRUE(is_parent(noted.mate));
    ASSERT_GE(noted.operators.size(), 1U);
    ASSERT_LE(noted.operators.size(), 2U);
    if (noted.operators.size() == 2) {
      EXPECT_EQ(noted.operators[1], "crossover");
    }
    // What the last operator gave is what is told.
    if (noted.operators.back() == "crossover") {
      EXPECT_EQ(name_of(noted.graph).substr(0, 7), "crossed");
    }
  }
}

TEST(GenerationObserver, HearsOfTheEndOfAGenerationBeforeThePause) {
  SearchHarness search;
  NotingObserver observer;
  observer.log = &search.host.log;
  search.host.generation_observer = &observer;
  search.stop_at_pause(2);
  search.run();
  EXPECT_EQ(observer.generation_ends, 2);
  const Names names = search.host.log.names();
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(names[i] == "generation end",
              i + 1 < names.size() && names[i + 1] == "stop_event.wait");
  }
}

TEST(GenerationObserver, AGenerationWithoutABatchEndsTooAndOneThatIsStoppedDoesNot) {
  SearchHarness search;
  NotingObserver observer;
  search.host.generation_observer = &observer;
  search.draw_in_turn({List(), graphs_named({"g1"})});
  // Stopped by the test after the second generation's evaluation.
  search.stop_event->on_is_set = [tests = 0]() mutable { return ++tests > 2; };
  search.run();
  EXPECT_EQ(observer.generation_ends, 1);
  EXPECT_THAT(observer.batches, SizeIs(1));
}

TEST(GenerationObserver, ItsErrorEndsTheSearch) {
  class Failing : public GenerationObserver {
    void on_batch(const List& /*graphs*/) override { throw std::runtime_error("no room"); }
  };
  SearchHarness search;
  Failing observer;
  search.host.generation_observer = &observer;
  EXPECT_THROW(search.run(), std::runtime_error);
}

}  // namespace
}  // namespace varnholt::genetic::test
