// Goal: the results of a generation carry their index, their depth and their lineage, in place.
// Method: hand-made results and improvements, read back.
#include "search_templates/genetic/reaction/lineage.hpp"

#include <limits>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic::test {
namespace {

Mapping improvement() {
  return {{"source_result", Mapping{{"candidate_index", 5}, {"graph", "source graph"}}},
          {"reaction_plan", "plan"},
          {"improvement_depth", 3},
          {"graph", "new graph"}};
}

TEST(AnnotateCandidateResults, WritesIndexAndDepthInPlaceAndReturnsTheSameList) {
  const Mapping first{{"passes", true}};
  const Mapping second{{"candidate_index", 77}};
  const List results{first, second};
  const Value returned = annotate_candidate_results(results, 0, 0);
  EXPECT_TRUE(same_object(returned, results));
  EXPECT_EQ(repr(first), "{'passes': True, 'candidate_index': 0, 'improvement_depth': 0}");
  EXPECT_EQ(repr(second), "{'candidate_index': 1, 'improvement_depth': 0}");
}

TEST(AnnotateCandidateResults, ConvertsIndexAndDepth) {
  const Mapping first;
  const Mapping second;
  annotate_candidate_results(List{first, second}, "10", 2.9);
  EXPECT_EQ(repr(second), "{'candidate_index': 11, 'improvement_depth': 2}");
  EXPECT_THROW(annotate_candidate_results(List{Mapping()}, "x", 0), ValueError);
  EXPECT_THROW(annotate_candidate_results(List{Mapping()}, 0, Value()), TypeError);
  // Without results nothing is converted.
  EXPECT_NO_THROW(annotate_candidate_results(List(), "x", "y"));
}

TEST(AnnotateCandidateResults, LineageIsForTheResultsThatHaveAnImprovement) {
  const Mapping first{{"passes", true}};
  const Mapping second{{"passes", true}};
  annotate_candidate_results(List{first, second}, 4, 1, List{improvement()});
  EXPECT_EQ(repr(first),
            "{'passes': True, 'candidate_index': 4, 'improvement_depth': 3, 'reaction_plan': "
            "'plan', 'source_candidate_index': 5, 'source_graph': 'source graph', 'rescued': "
            "True}");
  EXPECT_EQ(repr(second), "{'passes': True, 'candidate_index': 5, 'improvement_depth': 1}");
}

TEST(AnnotateCandidateResults, OnlyWhatPassesIsRescued) {
  for (const Value& passes : {Value(false), Value(0), Value()}) {
    const Mapping result{{"passes", passes}};
    annotate_candidate_results(List{result}, 0, 1, Tuple{improvement()});
    EXPECT_FALSE(result.contains("rescued"));
    EXPECT_EQ(result.at("reaction_plan"), "plan");
  }
  const Mapping without;
  annotate_candidate_results(List{without}, 0, 1, Tuple{improvement()});
  EXPECT_FALSE(without.contains("rescued"));
}

TEST(AnnotateCandidateResults, MissingEntriesOfTheSourceAreAbsent) {
  Mapping sparse = improvement();
  sparse.set("source_result", Mapping());
  const Mapping result;
  annotate_candidate_results(List{result}, 0, 1, List{sparse});
  EXPECT_TRUE(result.at("source_candidate_index").is_absent());
  EXPECT_TRUE(result.at("source_graph").is_absent());
}

TEST(AnnotateCandidateResults, EveryEntryOfAnImprovementMustBeThere) {
  for (const char* entry : {"source_result", "reaction_plan", "improvement_depth"}) {
    Mapping lacking = improvement();
    lacking.erase(entry);
    EXPECT_THROW(annotate_candidate_results(List{Mapping()}, 0, 1, List{lacking}), KeyError)
        << entry;
  }
}

TEST(AnnotateCandidateResults, FalseImprovementsAreNone) {
  for (const Value& none : {Value(), Value(0), Value(false), Value(List()), Value("")}) {
    const Mapping result;
    annotate_candidate_results(List{result}, 0, 0, none);
    EXPECT_EQ(result.size(), 2U);
  }
}

TEST(AnnotateCandidateResults, MoreImprovementsThanResults) {
  const Mapping result;
  annotate_candidate_results(List{result}, 0, 1, List{improvement(), 5});
  EXPECT_EQ(result.at("reaction_plan"), "plan");
}

TEST(AnnotateCandidateResults, IndexesAreIntegersOfAnySize) {
  const Mapping first;
  const Mapping second;
  annotate_candidate_results(List{first, second}, "9223372036854775807", 0);
  EXPECT_EQ(first.at("candidate_index"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(str(second.at("candidate_index")), "9223372036854775808");
}

TEST(ElapsedCandidateSeconds, IsTheSumOfWhatIsANumber) {
  EXPECT_TRUE(elapsed_candidate_seconds(List()).is_integer());
  EXPECT_TRUE(elapsed_candidate_seconds(List{Mapping()}).is_real());
  EXPECT_EQ(
      elapsed_candidate_seconds(List{Mapping{{"elapsed_simulation_seconds", 0.25}},
                                     Mapping{{"elapsed_simulation_seconds", "1.5"}},
                                     Mapping{{"elapsed_simulation_seconds", true}},
                                     Mapping{{"elapsed_simulation_seconds", "soon"}},
                                     Mapping{{"elapsed_simulation_seconds", Value()}}, Mapping()}),
      2.75);
}

TEST(ElapsedCandidateSeconds, IsAddedUpFromLeftToRight) {
  List results;
  for (const double seconds : {1e16, 1.0, 1.0, -1e16})
    results.append(Mapping{{"elapsed_simulation_seconds", seconds}});
  EXPECT_EQ(elapsed_candidate_seconds(results), 0.0);
}

}  // namespace
}  // namespace varnholt::genetic::test
