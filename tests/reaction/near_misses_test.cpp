// Goal: which near misses are chosen, in which order, and what the host is asked for it. Method:
// small generations with the choice and the requests written down; random generations against the
// plain version of the rules.
#include "search_templates/genetic/reaction/near_misses.hpp"

#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/reaction/improvement_harness.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/plain_improvement.hpp"
#include "tests/support/random_results.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class NearMisses : public ImprovementTest {
 protected:
  std::vector<std::string> selected(const List& results, const Value& batch_size = 1) {
    return names_of(select_actionable_near_miss_parents(environment, results, batch_size));
  }
  // So many results that tie in everything but their place, each with a structure of its own.
  static List many(int count) {
    List results;
    for (int i = 0; i < count; ++i)
      results.append(turnover_miss("n" + std::to_string(100 + i)));
    return results;
  }
};

TEST_F(NearMisses, OfNothingAreNone) {
  EXPECT_THAT(selected(List{}), IsEmpty());
  EXPECT_THAT(selected(List{Mapping()}), IsEmpty());
  EXPECT_THAT(scored(), IsEmpty());
}

TEST_F(NearMisses, LimitIsFourTimesTheBatchSizeAndNeverBelowEight) {
  const List results = many(40);
  EXPECT_THAT(selected(results, 1), SizeIs(8));
  EXPECT_THAT(selected(results, 2), SizeIs(8));
  EXPECT_THAT(selected(results, 3), SizeIs(12));
  EXPECT_THAT(selected(results, "3"), SizeIs(12));
  EXPECT_THAT(selected(results, 2.9), SizeIs(8));
  EXPECT_THAT(selected(results, 100), SizeIs(40));
  EXPECT_THAT(selected(results, to_integer("1" + std::string(40, '0'))), SizeIs(40));
  for (const Value& none : {Value("x"), Value(), Value(List{}), Value(std::nan("")), Value(0),
                            Value(-5), to_integer("-1" + std::string(40, '0'))})
    EXPECT_THAT(selected(results, none), SizeIs(8)) << repr(none);
}

TEST_F(NearMisses, NeedAGraphAndAnActionableFailure) {
  Mapping passing = turnover_miss("passing");
  passing.set("passes", true);
  Mapping without_graph = turnover_miss("none");
  without_graph.set("graph", "text");
  EXPECT_THAT(selected(List{passing, without_graph, failed_result("other", {{"x", Mapping()}}),
                            failed_result("gate", {{"pnl_mi_below_threshold", missed_by(0.5)}}),
                            turnover_miss("reaction")}),
              ElementsAre("reaction", "gate"));
}

TEST_F(NearMisses, NeedASharpeAndAQualityAboveZero) {
  const auto with = [](const char* name, const Value& sharpe, const Value& quality) {
    Mapping result = turnover_miss(name);
    result.set("sharpe", sharpe);
    result.set("quality_score", quality);
    return result;
  };
  Mapping without_sharpe = turnover_miss("without");
  without_sharpe.erase("sharpe");
  EXPECT_THAT(selected(List{with("a", 0.0, 1.0), with("b", -1.0, 1.0), with("c", 1.0, 0.0),
                            with("d", 1.0, "x"), with("e", Value(), 1.0), without_sharpe,
                            with("nan sharpe", std::nan(""), 1.0),
                            with("nan quality", 1.0, std::nan("")), with("text", "0.5", "0.5")}),
              testing::UnorderedElementsAre("nan sharpe", "nan quality", "text"));
}

TEST_F(NearMisses, StronglyNegativeSharpeSurvives) {
  const auto with_sharpe = [](const char* name, double sharpe) {
    Mapping result = failed_result(name, {{"sharpe_min", Mapping{{"threshold", 1.0}}}}, -5.0);
    result.set("sharpe", sharpe);
    return result;
  };
  EXPECT_THAT(selected(List{with_sharpe("strong", -3.0), with_sharpe("weak", -0.5),
                            with_sharpe("equal", -1.0)}),
              testing::UnorderedElementsAre("strong", "equal"));
}

TEST_F(NearMisses, FirstOfAStructureStaysThoughALaterOneIsBetter) {
  const Mapping far = turnover_miss("a", 0.9);
  const Mapping near = turnover_miss("a", 0.1);
  const List chosen = select_actionable_near_miss_parents(environment, List{far, near}, 1);
  ASSERT_EQ(chosen.size(), 1U);
  EXPECT_TRUE(same_object(chosen.at(0), far));
}

TEST_F(NearMisses, StructureIsSeenOnlyWithAResultThatPassedAllTests) {
  Mapping hopeless = turnover_miss("a");
  hopeless.set("sharpe", 0.0);
  const Mapping hopeful = turnover_miss("a");
  const List chosen = select_actionable_near_miss_parents(environment, List{hopeless, hopeful}, 1);
  ASSERT_EQ(chosen.size(), 1U);
  EXPECT_TRUE(same_object(chosen.at(0), hopeful));
}

TEST_F(NearMisses, BestOfEachSignatureComesFirstThenTheNearestOfTheRest) {
  const Mapping both_near =
      failed_result("both", {{"turnover_max", missed_by(0.1)}, {"max_weight_max", missed_by(0.1)}});
  const Mapping both_far = failed_result(
      "both far", {{"max_weight_max", missed_by(0.4)}, {"turnover_max", missed_by(0.4)}});
  EXPECT_THAT(selected(List{both_far, turnover_miss("t3", 0.3), turnover_miss("t1", 0.1), both_near,
                            failed_result("weight", {{"max_weight_max", missed_by(0.2)}}),
                            turnover_miss("t2", 0.2)}),
              ElementsAre("t1", "weight", "both", "t2", "t3", "both far"));
}

TEST_F(NearMisses, PoolFailuresAloneEnterByTheFillOnly) {
  List results;
  results.append(failed_result("pool", {{"correlation_exceeded", missed_by(0.0)}}, 99.0));
  const std::vector<std::string> reasons = {
      "turnover_max",       "turnover_exceeded",       "max_weight_max", "max_weight_exceeded",
      "delta_exposure_max", "delta_exposure_exceeded", "sharpe_min"};
  for (const std::string& reason : reasons)
    results.append(failed_result(reason, {{Value(reason), missed_by(0.5)}}));
  EXPECT_THAT(selected(results), SizeIs(8));
  EXPECT_EQ(selected(results).back(), "pool");
  results.append(failed_result("eighth", {{"gross_returns_sharpe_below_min", missed_by(-0.5)}}));
  EXPECT_THAT(selected(results), SizeIs(8));
  EXPECT_THAT(selected(results), testing::Not(testing::Contains("pool")));
}

TEST_F(NearMisses, MoreSignaturesThanPlacesAreCutInTheOrderOfTheirKeys) {
  List results;
  for (int i = 0; i < 12; ++i) {
    const std::string name = "n" + std::to_string(100 + i);
    results.append(failed_result(name, {{"turnover_max", missed_by(0.1 * (12 - i))},
                                        {Value("extra" + std::to_string(i)), missed_by(-1.0)}}));
  }
  EXPECT_THAT(selected(results),
              ElementsAre("n111", "n110", "n109", "n108", "n107", "n106", "n105", "n104"));
}

TEST_F(NearMisses, KeyIsProgressThenElitenessThenQualityThenDepthThenIndex) {
  scores({{"elite", 2.0}, {"good", 1.0}, {"deep", 1.0}, {"late", 1.0}, {"early", 1.0}});
  const auto with = [](const char* name, double violation, double quality, int depth, int index) {
    Mapping result = failed_result(name, {{"correlation_exceeded", missed_by(violation)}}, quality);
    result.set("improvement_depth", depth);
    result.set("candidate_index", index);
    return result;
  };
  EXPECT_THAT(selected(List{with("late", 0.5, 1.0, 0, 9), with("far", 0.75, 9.0, 0, 0),
                            with("early", 0.5, 1.0, 0, 1), with("deep", 0.5, 1.0, 1, 0),
                            with("good", 0.5, 2.0, 5, 5), with("elite", 0.5, 0.5, 9, 9)}),
              ElementsAre("elite", "good", "early", "late", "deep", "far"));
  const NearMissKey key = actionable_near_miss_key(environment, with("elite", 0.5, 0.25, 3, 7));
  EXPECT_EQ(key.progress.failure_count, 1);
  EXPECT_EQ(key.progress.total_violation, 0.5);
  EXPECT_EQ(key.negated_eliteness, -2.0);
  EXPECT_EQ(key.priority.negated_quality, -0.25);
  EXPECT_EQ(key.priority.improvement_depth, 3);
  EXPECT_EQ(key.priority.candidate_index, 7);
}

TEST_F(NearMisses, TieKeepsTheEarlierOfASignature) {
  EXPECT_THAT(selected(List{turnover_miss("a"), turnover_miss("b"), turnover_miss("c")}),
              ElementsAre("a", "b", "c"));
}

TEST_F(NearMisses, ScoresAreAskedForEachComparisonThenForTheBestThenForAll) {
  // Of one signature: each later one is compared, itself first; then the best is scored once, and
  // then every candidate.
  static_cast<void>(
      selected(List{turnover_miss("a", 0.3), turnover_miss("b", 0.2), turnover_miss("c", 0.4),
                    failed_result("pool", {{"correlation_exceeded", Mapping()}})}));
  EXPECT_THAT(scored(), ElementsAre("b", "a", "c", "b",       // Comparisons.
                                    "b",                      // The best of each signature.
                                    "a", "b", "c", "pool"));  // The fill.
}

TEST_F(NearMisses, AllAreScoredEvenWhenThereIsNoPlaceLeft) {
  List results;
  for (int i = 0; i < 8; ++i) {
    results.append(failed_result(
        "n" + std::to_string(i),
        {{"turnover_max", missed_by(0.5)}, {Value("extra" + std::to_string(i)), Mapping()}}));
  }
  static_cast<void>(selected(results));
  EXPECT_THAT(scored(), SizeIs(8 + 8));
}

TEST_F(NearMisses, ScoreIsAskedWithTheModulesDefaultWeights) {
  static_cast<void>(selected(List{turnover_miss("a")}));
  EXPECT_THAT(
      host.log.lines(),
      testing::Contains(testing::HasSubstr("diversity_weight=0.5, parsimony_weight=0.125")));
}

TEST_F(NearMisses, ScoreThatHasNoSignFails) {
  host.eliteness.on_score_candidate = always(Value("score"));
  EXPECT_EQ(error_of([&] { return selected(List{turnover_miss("a")}); }),
            "TypeError: bad operand type for unary -: 'str'");
}

TEST_F(NearMisses, ResultsAreJudgedByAllGatesAndComeBackEnlarged) {
  host.engine.on_stats_gate_threshold_set = always(Value("set"));
  host.engine.on_evaluate_threshold_gates =
      always(scripted_object({{"failures", List{scripted_object(Mapping())}}}));
  const Mapping result = failed_result("a", {{"other", Mapping()}});
  const List chosen = select_actionable_near_miss_parents(environment, List{result}, 1);
  ASSERT_EQ(chosen.size(), 1U);
  EXPECT_FALSE(same_object(chosen.at(0), result));
  EXPECT_TRUE(chosen.at(0).mapping().at("failures").mapping().contains("sharpe_min"));
  EXPECT_FALSE(result.at("failures").mapping().contains("sharpe_min"));
  EXPECT_EQ(host.log.count("engine.evaluate_threshold_gates"), 1U);
}

TEST_F(NearMisses, WithoutAContextNothingIsJudgedAgain) {
  const ReactionEnvironment without = {host.bundle(), constants, host.context, false};
  EXPECT_EQ(select_actionable_near_miss_parents(without, List{turnover_miss("a")}, 1).size(), 1U);
  EXPECT_EQ(host.log.count("engine.stats_gate_threshold_set"), 0U);
}

TEST_F(NearMisses, GraphThatIsNoPlainDataFailsOnceItWouldBeChosen) {
  Mapping odd = turnover_miss("a");
  odd.set("graph", Mapping{{"node", Tuple{}}});
  EXPECT_EQ(error_of([&] { return selected(List{odd}); }),
            "TypeError: genetic initial candidates must contain only plain graph data");
  odd.set("sharpe", 0.0);
  EXPECT_THAT(selected(List{odd}), IsEmpty());
}

TEST_F(NearMisses, AgreeWithThePlainVersion) {
  host.eliteness.on_score_candidate = RandomResults::score_of;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    RandomResults random(seed);
    const std::vector<Value> results = random.results(seed % 60);
    const std::size_t batch_size = 1 + seed % 4;
    List list;
    for (const Value& result : results)
      list.append(result);
    host.log.clear();
    const List chosen = select_actionable_near_miss_parents(environment, list,
                                                            static_cast<std::int64_t>(batch_size));
    const std::vector<std::string> asked = host.log.lines();
    host.log.clear();
    const std::vector<Value> expected =
        PlainImprovement(environment).near_misses(results, batch_size);
    ASSERT_EQ(asked, host.log.lines());
    ASSERT_EQ(chosen.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
      ASSERT_TRUE(same_object(chosen.at(i), expected[i]));
  }
}

}  // namespace
}  // namespace varnholt::genetic::test
