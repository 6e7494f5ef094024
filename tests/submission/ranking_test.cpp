// Goal: passing candidates come best first, ties by index and then by graph.
// Method: a scripted score; orders compared by the candidates' names, random populations against
// an insertion sort that compares the keys pair by pair.
#include "search_templates/genetic/submission/ranking.hpp"

#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Names = std::vector<std::string>;

class Ranking : public testing::Test {
 protected:
  Ranking() {
    host.eliteness.on_score_candidate = [](const Value& candidate, const Mapping&) {
      return candidate.mapping().at("score");
    };
  }

  // The names in their order, or the error.
  Names ranked(const Value& candidates) {
    Names names;
    const std::string error = error_of([&] {
      const List ranking = rank_submittable_candidates(host.eliteness, candidates);
      for (const Value& item : ranking.native_items())
        names.push_back(str(item.mapping().get("name")));
      return 0;
    });
    return error == "no error" ? names : Names{error};
  }
  static Mapping candidate(const char* name, const Value& score, const Value& index = 0,
                           const Value& graph = Value()) {
    return {{"name", name},
            {"passes", true},
            {"score", score},
            {"candidate_index", index},
            {"graph", graph}};
  }

  ScriptedHost host;
};

TEST_F(Ranking, HighestScoreComesFirst) {
  EXPECT_THAT(ranked(List{candidate("a", 1), candidate("b", 2.5), candidate("c", -1),
                          candidate("d", true), candidate("e", 2)}),
              ElementsAre("b", "e", "a", "d", "c"));
}

TEST_F(Ranking, EqualScoresGoByIndexAndEqualIndicesByGraph) {
  const Value graph_a = Mapping{{"node", "a"}};
  const Value graph_b = Mapping{{"node", "b"}};
  EXPECT_THAT(ranked(List{candidate("a", 1, 10), candidate("b", 1.0, 9), candidate("c", 1, "9"),
                          candidate("d", true, 8.9)}),
              ElementsAre("d", "b", "c", "a"));
  EXPECT_THAT(ranked(List{candidate("a", 1, 0, graph_b), candidate("b", 1, 0, graph_a),
                          candidate("c", 1, 1, graph_a)}),
              ElementsAre("b", "a", "c"));
  // The text decides, not the graph: {"node":"a"} is before null.
  EXPECT_THAT(ranked(List{candidate("a", 1), candidate("b", 1, 0, graph_a)}),
              ElementsAre("a", "b"));
  // 0.0 and -0.0 are one score.
  EXPECT_THAT(ranked(List{candidate("a", 0.0, 2), candidate("b", -0.0, 1)}), ElementsAre("b", "a"));
}

TEST_F(Ranking, WhatIsAlikeKeepsItsOrder) {
  EXPECT_THAT(ranked(List{candidate("z", 1), candidate("a", 1), candidate("m", 1)}),
              ElementsAre("z", "a", "m"));
  // Also where there are many: an unstable sort keeps the order of a few only.
  List many;
  Names names;
  for (int i = 0; i < 100; ++i) {
    names.push_back(std::to_string((i * 37) % 100));
    many.append(candidate(names.back().c_str(), 1));
  }
  EXPECT_EQ(ranked(many), names);
}

TEST_F(Ranking, IndexMayBeMissingButNotAbsent) {
  Mapping without = candidate("without", 1);
  without.erase("candidate_index");
  EXPECT_THAT(ranked(List{candidate("one", 1, 1), without, candidate("below", 1, -1)}),
              ElementsAre("below", "without", "one"));
  EXPECT_THAT(ranked(List{candidate("absent", 1, Value())}),
              ElementsAre(testing::HasSubstr("TypeError: int() argument must be")));
  EXPECT_THAT(ranked(List{candidate("text", 1, "first")}),
              ElementsAre(testing::HasSubstr("ValueError: ")));
}

TEST_F(Ranking, IndicesOfAnySizeAreOrdered) {
  EXPECT_THAT(ranked(List{candidate("huge", 1, "100000000000000000000"), candidate("small", 1, 5),
                          candidate("negative", 1, "-100000000000000000000")}),
              ElementsAre("negative", "small", "huge"));
}

TEST_F(Ranking, OnlyPassingCandidatesAreScoredEachOnceWithoutWeights) {
  const Mapping failing = {{"name", "failing"}, {"passes", 0}};
  const Mapping missing = {{"name", "missing"}};
  const Mapping passing = {{"passes", "yes"}, {"score", 1}, {"correlation", 0.5}};
  const Mapping bare = {{"passes", 1}, {"score", 1}};
  EXPECT_EQ(ranked(List{failing, passing, missing, bare}).size(), 2U);
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("eliteness.score_candidate({'passes': 'yes', 'score': 1, 'correlation': 0.5}, "
                  "sibling_correlations=(), pool_correlation=0.5)",
                  "eliteness.score_candidate({'passes': 1, 'score': 1}, sibling_correlations=(), "
                  "pool_correlation=None)"));
}

TEST_F(Ranking, MarksOfTheParentMakeNoDifference) {
  Mapping done = candidate("done", 2);
  done.set("_submission_enqueued", true);
  EXPECT_THAT(ranked(List{candidate("new", 1), done}), ElementsAre("done", "new"));
}

TEST_F(Ranking, IndexAndGraphAreWorkedOutWithoutTies) {
  EXPECT_THAT(ranked(List{candidate("only", 1, 0, Mapping{{"node", Tuple()}})}),
              ElementsAre("TypeError: genetic initial candidates must contain only plain graph "
                          "data"));
  // Score, index and graph of one candidate come before those of the next.
  host.log.clear();
  EXPECT_THAT(ranked(List{candidate("first", 1, Value()), candidate("second", 1)}).at(0),
              testing::HasSubstr("TypeError"));
  EXPECT_EQ(host.log.lines().size(), 1U);
}

class Unlogged : public Eliteness {
 public:
  [[nodiscard]] Value score_candidate(const Value& /*candidate*/,
                                      const Mapping& /*keywords*/) override {
    return 1.0;
  }
};

TEST_F(Ranking, GraphWithoutATextFailsAlsoWhereNothingIsTied) {
  const auto ranked_alone = [this](const Value& graph) {
    return ranked(List{candidate("other", 2), candidate("one", 1, 0, graph)}).at(0);
  };
  EXPECT_EQ(ranked_alone(Mapping{{1, "a"}}),
            "TypeError: genetic initial candidate graph keys must be strings");
  EXPECT_EQ(ranked_alone(List{Value(List{Tuple()})}),
            "TypeError: genetic initial candidates must contain only plain graph data");
  EXPECT_EQ(ranked_alone(List{scripted_object(Mapping())}),
            "TypeError: genetic initial candidates must contain only plain graph data");
  Value deep;
  for (int i = 0; i < 2000; ++i)
    deep = List{deep};
  // The log could not show it either.
  Unlogged unlogged;
  EXPECT_EQ(error_of([&] {
              return rank_submittable_candidates(unlogged, List{candidate("one", 1, 0, deep)});
            }),
            "RecursionError: maximum recursion depth exceeded");
  List endless;
  endless.append(endless);
  EXPECT_EQ(ranked_alone(endless), "RecursionError: maximum recursion depth exceeded");
  endless.set(0, Value());  // Or it would never be freed.
  // The host's own containers are walked as well.
  EXPECT_EQ(ranked_alone(as_host_containers(List{Value(List{Tuple()})})),
            "TypeError: genetic initial candidates must contain only plain graph data");
  EXPECT_EQ(ranked_alone(Mapping{{"node", 1.5}, {"children", List{true, Value()}}}), "other");
}

TEST_F(Ranking, ResultIsANewListOfTheSameCandidates) {
  const Mapping first = candidate("first", 1);
  const Mapping second = candidate("second", 2);
  const List input{first, second};
  const List result = rank_submittable_candidates(host.eliteness, input);
  EXPECT_TRUE(same_object(result.at(0), second));
  EXPECT_TRUE(same_object(result.at(1), first));
  EXPECT_TRUE(same_object(input.at(0), first));
  EXPECT_EQ(input.size(), 2U);
  EXPECT_FALSE(same_object(rank_submittable_candidates(host.eliteness, List{first}), input));
  EXPECT_THAT(ranked(List()), IsEmpty());
  EXPECT_THAT(ranked(Tuple{first, second}), ElementsAre("second", "first"));
}

TEST_F(Ranking, WhatCannotBeRankedFails) {
  EXPECT_THAT(ranked(List{candidate("a", "high")}),
              ElementsAre("TypeError: bad operand type for unary -: 'str'"));
  EXPECT_THAT(ranked(List{candidate("a", Value())}),
              ElementsAre("TypeError: bad operand type for unary -: 'NoneType'"));
  EXPECT_THAT(ranked(List{"no record"}),
              ElementsAre("AttributeError: 'str' object has no attribute 'get'"));
  EXPECT_THAT(ranked(7), ElementsAre("TypeError: 'int' object is not iterable"));
  host.eliteness.on_score_candidate = failing(KeyError("odd"));
  EXPECT_THAT(ranked(List{candidate("a", 1)}), ElementsAre("KeyError: odd"));
}

// As CPython sorts these very keys.
TEST_F(Ranking, NanStaysWhereTheHostsSortLeavesIt) {
  const double nan = std::nan("");
  EXPECT_THAT(ranked(List{candidate("nan", nan, 1), candidate("low", -1e300, 2),
                          candidate("nan too", nan, 0), candidate("infinite", -HUGE_VAL)}),
              ElementsAre("nan", "low", "nan too", "infinite"));
}

TEST_F(Ranking, AgreesWithAnInsertionSort) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  RandomValues random(seed);
  const auto number = [&random](std::size_t bound) {
    return static_cast<std::int64_t>(random.below(bound));
  };
  for (int i = 0; i < 200; ++i) {
    List population;
    List expected;
    for (std::size_t count = random.below(12), made = 0; made < count; ++made) {
      const Value entry =
          Mapping{{"passes", number(4) > 0},
                  {"score", number(3) - 1},
                  {"candidate_index", number(3)},
                  {"graph", Mapping{{"node", std::string(1, static_cast<char>('a' + number(3)))}}},
                  {"name", static_cast<std::int64_t>(made)}};
      population.append(entry);
      if (!truth(entry.mapping().at("passes"))) continue;
      const auto key = [](const Value& candidate) {
        const Mapping record = candidate.mapping();
        return Value(Tuple{-record.at("score").integer(), record.at("candidate_index"),
                           record.at("graph").mapping().at("node")});
      };
      List longer;
      bool placed = false;
      for (const Value& other : expected.native_items()) {
        if (!placed && less(key(entry), key(other))) {
          longer.append(entry);
          placed = true;
        }
        longer.append(other);
      }
      if (!placed) longer.append(entry);
      expected = longer;
    }
    EXPECT_EQ(repr(rank_submittable_candidates(host.eliteness, population)), repr(expected));
  }
}

}  // namespace
}  // namespace varnholt::genetic::test
