// Goal: which results become sources, which improvements are accepted, what is counted, and when a
// batch ends. Method: scripted planners with the expected outcome written down, limit by limit.
#include "search_templates/genetic/reaction/improvement_batch.hpp"

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/population/seen_graph_keys.hpp"
#include "tests/reaction/improvement_harness.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ImprovementBatchTest : public ImprovementTest {
 protected:
  ImprovementBatchTest() {
    host.reaction_planning.on_derive_reaction_improvements =
        [this](const Value& result, const ReactionRequest& request) -> Value {
      sources.push_back(name_of(result.mapping().at("graph")));
      peers.push_back(names_of(request.extra_data_graphs.list()));
      List plans;
      for (const std::string& name : planned[sources.back()])
        plans.append(plan_for(result, graph_named(name), request.improvement_depth));
      return plans;
    };
  }

  ImprovementBatch derive(const List& results, const ImprovementLimits& limits = {}) {
    return derive_improvement_batch(environment, results, evaluated, limits);
  }
  ImprovementBatch derive_with(const Value& max_depth, const Value& remaining,
                               const Value& max_plans, const List& results) {
    return derive(results, {max_depth, remaining, max_plans});
  }
  bool is_evaluated(const std::string& name) {
    return evaluated.contains(graph_named(name), structural_key(graph_named(name)));
  }
  void mark_evaluated(const std::string& name) {
    evaluated.add(graph_named(name), structural_key(graph_named(name)));
  }

  // The graphs that the planner makes of a source, by the source's name.
  std::map<std::string, std::vector<std::string>> planned;
  // The sources that it was asked for, and the peers that it was given for each.
  std::vector<std::string> sources;
  std::vector<std::vector<std::string>> peers;
  SeenGraphKeys evaluated;
};

using SourcePool = ImprovementBatchTest;

TEST_F(ImprovementBatchTest, OfNothingIsEmpty) {
  const ImprovementBatch batch = derive(List{});
  EXPECT_TRUE(batch.improvements.empty());
  EXPECT_EQ(batch.eligible_count, 0);
  EXPECT_EQ(batch.duplicate_count, 0);
  EXPECT_EQ(batch.depth_limited_count, 0);
  EXPECT_FALSE(batch.candidate_limit_reached);
}

TEST_F(ImprovementBatchTest, AsksForEachSourceInTheOrderOfItsRepairPriority) {
  planned = {{"far", {"x"}}, {"near", {"y"}}, {"sharp", {"z"}}};
  const ImprovementBatch batch =
      derive(List{failed_result("sharp", {{"sharpe_min", missed_by(-0.5)}}, 9.0),
                  turnover_miss("far", 0.75), turnover_miss("near", 0.25)});
  EXPECT_THAT(sources, ElementsAre("near", "far", "sharp"));
  EXPECT_THAT(names_of(batch.improvements), ElementsAre("y", "x", "z"));
  EXPECT_EQ(batch.eligible_count, 3);
  EXPECT_TRUE(is_evaluated("x"));
}

TEST_F(ImprovementBatchTest, EqualPrioritiesKeepTheirOrder) {
  static_cast<void>(derive(List{turnover_miss("b"), turnover_miss("a"), turnover_miss("c")}));
  EXPECT_THAT(sources, ElementsAre("b", "a", "c"));
}

TEST_F(ImprovementBatchTest, OnlyReactionFailuresAreEligible) {
  Mapping passing = turnover_miss("passing");
  passing.set("passes", true);
  const ImprovementBatch batch = derive(List{
      passing, failed_result("gate", {{"correlation_exceeded", Mapping()}}), turnover_miss("a")});
  EXPECT_EQ(batch.eligible_count, 1);
  EXPECT_THAT(sources, ElementsAre("a"));
}

TEST_F(ImprovementBatchTest, PeersAreAllOtherResultsPassingAndDeepOnesToo) {
  Mapping passing = turnover_miss("passing");
  passing.set("passes", true);
  Mapping deep = turnover_miss("deep");
  deep.set("improvement_depth", 8);
  static_cast<void>(derive_with(8, Value(), Value(), List{passing, turnover_miss("a"), deep}));
  ASSERT_THAT(sources, ElementsAre("a"));
  // All are as good; the shallower comes first.
  EXPECT_THAT(peers[0], ElementsAre("passing", "deep"));
}

TEST_F(ImprovementBatchTest, PeersAreRankedBeforeTheSourceIsJudgedAgain) {
  host.engine.on_stats_gate_threshold_set = always(Value("set"));
  host.engine.on_evaluate_threshold_gates = always(scripted_object({{"failures", List{}}}));
  const Mapping source = failed_result("a", {{"max_weight_max", missed_by(0.5)}});
  static_cast<void>(derive(List{source, turnover_miss("b", 9.0)}));
  std::vector<std::string> asked;
  for (const std::string& name : host.log.names()) {
    if (name == "engine.stats_gate_metrics" || name == "engine.evaluate_threshold_gates" ||
        name == "context.max_depth" || name == "reaction_planning.derive_reaction_improvements")
      asked.push_back(name.substr(name.find('.') + 1));
  }
  EXPECT_THAT(asked,
              ElementsAre("stats_gate_metrics", "evaluate_threshold_gates",  // Both are judged,
                          "stats_gate_metrics", "evaluate_threshold_gates",
                          "max_depth",                                       // the limit is read,
                          "stats_gate_metrics",                              // peers of the first,
                          "stats_gate_metrics", "evaluate_threshold_gates",  // judged again,
                          "max_depth",                                       // the rotations,
                          "derive_reaction_improvements", "stats_gate_metrics",
                          "evaluate_threshold_gates",  // and the second.
                          "max_depth", "derive_reaction_improvements"));
}

TEST_F(ImprovementBatchTest, DepthLimitStopsTheSourceAndStillCountsIt) {
  planned = {{"a", {"x"}}};
  Mapping source = turnover_miss("a");
  source.set("improvement_depth", 2);
  for (const Value& limit : {Value(2), Value(1), Value(0), Value(1.5), Value(true)}) {
    sources.clear();
    const ImprovementBatch batch = derive_with(limit, Value(), Value(), List{source});
    EXPECT_EQ(batch.eligible_count, 1) << repr(limit);
    EXPECT_EQ(batch.depth_limited_count, 1) << repr(limit);
    EXPECT_THAT(sources, IsEmpty()) << repr(limit);
  }
  EXPECT_EQ(derive_with(3, Value(), Value(), List{source}).depth_limited_count, 0);
  EXPECT_EQ(derive_with(Value(), Value(), Value(), List{source}).depth_limited_count, 0);
  EXPECT_EQ(derive_with(std::nan(""), Value(), Value(), List{source}).depth_limited_count, 0);
  EXPECT_EQ(error_of([&] { return derive_with("2", Value(), Value(), List{source}), 0; }),
            "TypeError: '>=' not supported between instances of 'int' and 'str'");
}

TEST_F(ImprovementBatchTest, TooDeepGraphsAreCountedAndNotKept) {
  planned = {{"a", {"deep", "flat"}}};
  host.context.on_max_depth = always(Value(3));
  host.engine.on_graph_depth_for_attempt_marker = [](const Value& graph) -> Value {
    return name_of(graph) == "deep" ? 4 : 3;
  };
  const ImprovementBatch batch = derive(List{turnover_miss("a")});
  EXPECT_EQ(batch.depth_limited_count, 1);
  EXPECT_THAT(names_of(batch.improvements), ElementsAre("flat"));
  EXPECT_FALSE(is_evaluated("deep"));
}

TEST_F(ImprovementBatchTest, ImprovementThatIsNoMappingCountsAsTooDeep) {
  host.reaction_planning.on_derive_reaction_improvements = always(Value(List{"text", 5}));
  EXPECT_EQ(derive(List{turnover_miss("a")}).depth_limited_count, 2);
}

TEST_F(ImprovementBatchTest, ImprovementWithoutGraphFails) {
  host.reaction_planning.on_derive_reaction_improvements = always(Value(List{Mapping()}));
  EXPECT_EQ(error_of([&] { return derive(List{turnover_miss("a")}), 0; }), "KeyError: 'graph'");
}

TEST_F(ImprovementBatchTest, DuplicatesAreCountedWhetherOldOrOfThisBatch) {
  planned = {{"a", {"old", "new", "new"}}, {"b", {"new", "other"}}};
  mark_evaluated("old");
  const ImprovementBatch batch = derive(List{turnover_miss("a"), turnover_miss("b")});
  EXPECT_EQ(batch.duplicate_count, 3);
  EXPECT_THAT(names_of(batch.improvements), ElementsAre("new", "other"));
}

TEST_F(ImprovementBatchTest, CandidateLimitIsReachedByOneMoreNewPlan) {
  planned = {{"a", {"x", "y"}}};
  EXPECT_FALSE(derive_with(Value(), 2, Value(), List{turnover_miss("a")}).candidate_limit_reached);
  planned = {{"a", {"p", "q", "r"}}, {"b", {"s"}}};
  const ImprovementBatch batch =
      derive_with(Value(), 2, Value(), List{turnover_miss("a"), turnover_miss("b")});
  EXPECT_TRUE(batch.candidate_limit_reached);
  EXPECT_THAT(names_of(batch.improvements), ElementsAre("p", "q"));
  EXPECT_FALSE(is_evaluated("r"));
  EXPECT_EQ(batch.eligible_count, 1);  // The second source is not looked at.
  EXPECT_EQ(sources.back(), "a");
}

TEST_F(ImprovementBatchTest, CandidateLimitOfZeroOrBelowTakesNothing) {
  planned = {{"a", {"x"}}};
  for (const Value& limit : {Value(0), Value(-1), Value(-0.5), Value(false)}) {
    const ImprovementBatch batch = derive_with(Value(), limit, Value(), List{turnover_miss("a")});
    EXPECT_TRUE(batch.improvements.empty()) << repr(limit);
    EXPECT_TRUE(batch.candidate_limit_reached) << repr(limit);
  }
  EXPECT_EQ(evaluated.size(), 0U);
  planned = {};
  EXPECT_FALSE(derive_with(Value(), 0, Value(), List{turnover_miss("a")}).candidate_limit_reached);
}

TEST_F(ImprovementBatchTest, DuplicatesBeyondTheCandidateLimitAreStillDuplicates) {
  planned = {{"a", {"x", "x", "x"}}};
  const ImprovementBatch batch = derive_with(Value(), 1, Value(), List{turnover_miss("a")});
  EXPECT_EQ(batch.duplicate_count, 2);
  EXPECT_FALSE(batch.candidate_limit_reached);
}

TEST_F(ImprovementBatchTest, LimitOfPlansCountsWhatIsAccepted) {
  planned = {{"a", {"old", "p", "q", "r"}}, {"b", {"s"}}};
  mark_evaluated("old");
  const ImprovementBatch batch =
      derive_with(Value(), Value(), 2, List{turnover_miss("a"), turnover_miss("b")});
  EXPECT_THAT(names_of(batch.improvements), ElementsAre("p", "q", "s"));
  EXPECT_EQ(batch.duplicate_count, 1);
}

TEST_F(ImprovementBatchTest, LimitOfPlansIsEightUnlessItIsAPositiveNumberOrAbsent) {
  std::vector<std::string> names;
  for (int i = 0; i < 20; ++i)
    names.push_back("n" + std::to_string(i));
  const auto accepted = [&](const Value& limit) {
    planned = {{"a", names}};
    evaluated = SeenGraphKeys();
    return derive_with(Value(), Value(), limit, List{turnover_miss("a")}).improvements.size();
  };
  EXPECT_EQ(accepted(Value()), 20U);
  EXPECT_EQ(accepted(3), 3U);
  EXPECT_EQ(accepted("3"), 3U);
  EXPECT_EQ(accepted(2.9), 2U);
  EXPECT_EQ(accepted(to_integer("1" + std::string(40, '0'))), 20U);
  for (const Value& eight : {Value(0), Value(-1), Value("x"), Value(List{}), Value(std::nan("")),
                             Value(0.5), Value(HUGE_VAL)})
    EXPECT_EQ(accepted(eight), 8U) << repr(eight);
  evaluated = SeenGraphKeys();
  EXPECT_EQ(derive(List{turnover_miss("a")}).improvements.size(), 8U);
}

TEST_F(ImprovementBatchTest, MaximumOfPlansIsNotHandedToThePlanner) {
  static_cast<void>(derive_with(Value(), Value(), 2, List{turnover_miss("a")}));
  EXPECT_THAT(host.log.lines().back(), testing::HasSubstr("max_plans=None"));
}

TEST_F(ImprovementBatchTest, SourceWithoutPlansLeavesTheOthersToRun) {
  planned = {{"b", {"x"}}};
  EXPECT_EQ(derive(List{turnover_miss("a"), turnover_miss("b")}).improvements.size(), 1U);
  host.reaction_planning.on_derive_reaction_improvements = always(Value());
  EXPECT_EQ(derive(List{turnover_miss("a"), turnover_miss("b")}).improvements.size(), 0U);
}

TEST_F(ImprovementBatchTest, ImprovementsAreTheVeryObjectsOfThePlanner) {
  const Value improvement = plan_for(turnover_miss("a"), graph_named("x"));
  host.reaction_planning.on_derive_reaction_improvements = always(Value(Tuple{improvement}));
  EXPECT_TRUE(same_object(derive(List{turnover_miss("a")}).improvements.at(0), improvement));
}

TEST_F(ImprovementBatchTest, WhatThePlannerThrowsPassesAndLeavesWhatWasAccepted) {
  planned = {{"a", {"x"}}};
  const auto plan = host.reaction_planning.on_derive_reaction_improvements;
  host.reaction_planning.on_derive_reaction_improvements =
      [&](const Value& result, const ReactionRequest& request) -> Value {
    if (sources.size() == 1) throw RuntimeError("no plan");
    return plan(result, request);
  };
  EXPECT_EQ(error_of([&] {
              return derive(List{turnover_miss("a"), turnover_miss("b")}), 0;
            }),
            "RuntimeError: no plan");
  EXPECT_TRUE(is_evaluated("x"));
}

TEST_F(SourcePool, HasTheNearMissesFirstThenTheRoundsResults) {
  Mapping hopeless = turnover_miss("hopeless");
  hopeless.set("sharpe", 0.0);
  Mapping passing = turnover_miss("passing");
  passing.set("passes", true);
  const Mapping far = turnover_miss("far", 0.9);
  const Mapping near = turnover_miss("near", 0.1);
  const List pool = improvement_source_pool(environment, List{far, hopeless, near},
                                            List{passing, hopeless, far}, 1);
  EXPECT_THAT(names_of(pool), ElementsAre("near", "far", "passing", "hopeless"));
}

TEST_F(SourcePool, LaterResultOfAStructureIsDroppedEvenIfItIsTheBetter) {
  const Mapping parent = turnover_miss("a", 0.9);
  const Mapping better = turnover_miss("a", 0.1);
  const List pool = improvement_source_pool(environment, List{parent}, List{better}, 1);
  ASSERT_EQ(pool.size(), 1U);
  EXPECT_TRUE(same_object(pool.at(0), parent));
}

TEST_F(SourcePool, LeavesOutWhatHasNoGraphAndWhatIsNoResult) {
  const List pool = improvement_source_pool(
      environment, List{},
      List{5, "text", Mapping(), Mapping{{"graph", List{}}}, List{}, turnover_miss("a")}, 1);
  EXPECT_THAT(names_of(pool), ElementsAre("a"));
}

TEST_F(SourcePool, JudgesEachResultAsOftenAsItIsMet) {
  host.engine.on_stats_gate_threshold_set = always(Value("set"));
  host.engine.on_evaluate_threshold_gates = always(scripted_object({{"failures", List{}}}));
  const Mapping result = turnover_miss("a");
  static_cast<void>(improvement_source_pool(environment, List{result}, List{result}, 1));
  EXPECT_EQ(host.log.count("engine.evaluate_threshold_gates"), 3U);
}

}  // namespace
}  // namespace varnholt::genetic::test
