// Goal: near misses are repaired round by round within their limits, the rounds end for the reason
// that the rules name, and everything is recorded, submitted and counted once.
//
// Method: whole runs of one generation over a scripted host, one for each reason, with results,
// submissions and the metrics record written down; the reason itself shows in what becomes of the
// near misses, and in a run that it ends.
#include "search_templates/genetic/driver/improvement_rounds.hpp"

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/driver/search_harness.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// A generation of the graphs "g1", "g2", ...; "g1" has the plans "g1a", "g1b" and so on. A result
// misses the turnover by as much as `misses` says of its graph, and passes where it says nothing.
class ImprovementRoundsTest : public testing::Test {
 protected:
  explicit ImprovementRoundsTest(std::int64_t batch_size = 1) : search(batch_size) {
    search.stop_at_pause(1);
    search.on_outcome = [this](const Value& graph) { return outcome(name_of(graph)); };
    search.on_record([this](std::span<const Value> positional, const Mapping&) {
      recorded.push_back(name_of(positional[0]));
      return Value("id " + recorded.back());
    });
    search.on_enqueue([this](std::span<const Value> positional, const Mapping&) {
      enqueued.push_back(name_of(positional[0].mapping().at("graph")));
      return Value();
    });
    search.host.reaction_planning.on_derive_reaction_improvements =
        [this](const Value& result, const ReactionRequest& request) -> Value {
      List improvements;
      for (const std::string& name : plans[name_of(result.mapping().at("graph"))]) {
        improvements.append(Mapping{{"graph", graph_named(name)},
                                    {"source_result", result},
                                    {"reaction_plan", "plan of " + name},
                                    {"improvement_depth", request.improvement_depth}});
      }
      return improvements;
    };
    search.host.eliteness.on_score_candidate = [this](const Value& candidate, const Mapping&) {
      results[name_of(candidate.mapping().at("graph"))] = candidate.mapping();
      return Value(0.0);
    };
  }

  Mapping outcome(const std::string& name) {
    Mapping result = passing(graph_named(name));
    const auto missed = misses.find(name);
    if (missed == misses.end()) return result;
    result = failing_for(graph_named(name), "turnover_max");
    result.set("failures", Mapping{{"turnover_max",
                                    Mapping{{"value", 1.0 + missed->second}, {"threshold", 1.0}}}});
    result.set("sharpe", 1.0);
    results[name] = result;
    return result;
  }

  void limit(const std::function<void(TemplateArguments&)>& change) {
    TemplateArguments arguments = search.module.default_arguments();
    arguments.batch_size = 1;
    change(arguments);
    search.configure(arguments);
  }

  void run_two_generations() {
    search.stop_at_pause(2);
    search.run();
  }
  // Whether a batch was bred: it asks for the validator, as every request of plans does.
  [[nodiscard]] bool bred() const {
    return search.host.log.count("context.own_graph_validator") >
           search.host.log.count("reaction_planning.derive_reaction_improvements");
  }
  [[nodiscard]] Mapping metrics() const { return search.metrics.at(0); }
  [[nodiscard]] std::vector<Value> counts() const {
    return {metrics().at("candidate_count"), metrics().at("duplicate_graph_count"),
            metrics().at("generated_graph_count"), metrics().at("improvement_round_count")};
  }

  SearchHarness search;
  std::map<std::string, double> misses;
  std::map<std::string, std::vector<std::string>> plans;
  std::vector<std::string> recorded;
  std::vector<std::string> enqueued;
  // The records of results, by their graphs' names.
  std::map<std::string, Mapping> results;
};

TEST_F(ImprovementRoundsTest, RepairThatPassesIsRecordedSubmittedAndRescued) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"g1a"}}};
  search.run();
  EXPECT_THAT(recorded, ElementsAre("g1", "g1a"));
  EXPECT_THAT(enqueued, ElementsAre("g1a"));
  // In the second round the source is asked once more and has nothing new.
  EXPECT_THAT(counts(), ElementsAre(2, 1, 3, 1));
  EXPECT_EQ(metrics().at("elapsed_simulation_seconds"), 1.0);
  const Mapping child = results.at("g1a");
  EXPECT_EQ(child.at("candidate_index"), 1);
  EXPECT_EQ(child.at("improvement_depth"), 1);
  EXPECT_EQ(child.at("reaction_plan"), "plan of g1a");
  EXPECT_EQ(child.at("source_candidate_index"), 0);
  EXPECT_EQ(child.at("source_graph"), graph_named("g1"));
  EXPECT_EQ(child.at("rescued"), true);
}

TEST_F(ImprovementRoundsTest, RoundsFollowOneAnotherAsLongAsTheyImprove) {
  misses = {{"g1", 0.5}, {"g2", 0.4}, {"g3", 0.3}};
  plans = {{"g1", {"g2"}}, {"g2", {"g3"}}, {"g3", {"passes"}}};
  search.run();
  EXPECT_THAT(recorded, ElementsAre("g1", "g2", "g3", "passes"));
  // All sources so far are asked in every round: 1 + 2 + 3 duplicates.
  EXPECT_THAT(counts(), ElementsAre(4, 6, 10, 3));
  EXPECT_EQ(results.at("passes").at("improvement_depth"), 3);
  EXPECT_EQ(results.at("passes").at("candidate_index"), 3);
  EXPECT_EQ(results.at("g3").contains("rescued"), false);
}

TEST_F(ImprovementRoundsTest, WithoutPlansThereIsNoRoundAndNoReason) {
  misses = {{"g1", 0.5}, {"g2", 0.5}};
  run_two_generations();
  EXPECT_THAT(counts(), ElementsAre(2, 0, 2, 0));
  EXPECT_TRUE(bred());
}

TEST_F(ImprovementRoundsTest, NoImprovementEndsAfterARoundThatBringsNothing) {
  misses = {{"g1", 0.5}, {"worse", 0.6}, {"next", 0.1}, {"g2", 0.5}};
  plans = {{"g1", {"worse"}}, {"worse", {"next"}}};
  run_two_generations();
  EXPECT_THAT(recorded, ElementsAre("g1", "worse", "g2"));
  EXPECT_THAT(counts(), ElementsAre(3, 0, 3, 1));
  EXPECT_FALSE(bred());  // Such near misses are exhausted.
}

TEST_F(ImprovementRoundsTest, OneImprovedResultOfManyIsEnoughForTheNextRound) {
  misses = {{"g1", 0.5}, {"worse", 0.6}, {"better", 0.4}, {"third", 0.7}};
  plans = {{"g1", {"worse", "better"}}, {"better", {"third"}}};
  search.run();
  EXPECT_THAT(recorded, ElementsAre("g1", "worse", "better", "third"));
}

TEST_F(ImprovementRoundsTest, NoImprovementAlsoEndsALaterRoundWithoutPlans) {
  misses = {{"g1", 0.5}, {"better", 0.4}, {"g2", 0.5}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_rounds = Value(); });
  search.host.reaction_planning.on_derive_reaction_improvements =
      [asked = 0](const Value& result, const ReactionRequest& request) mutable -> Value {
    if (++asked > 1) return List{};
    return List{Mapping{{"graph", graph_named("better")},
                        {"source_result", result},
                        {"reaction_plan", "plan"},
                        {"improvement_depth", request.improvement_depth}}};
  };
  run_two_generations();
  EXPECT_THAT(counts(), ElementsAre(3, 0, 3, 1));
  EXPECT_FALSE(bred());
}

TEST_F(ImprovementRoundsTest, DuplicatesAloneEndTheRounds) {
  misses = {{"g1", 0.5}, {"g2", 0.5}};
  plans = {{"g1", {"g1"}}};
  run_two_generations();
  EXPECT_THAT(counts(), ElementsAre(2, 1, 3, 0));
  EXPECT_FALSE(bred());
}

TEST_F(ImprovementRoundsTest, ImprovementIsNeverEvaluatedTwiceInARun) {
  misses = {{"g1", 0.5}, {"better", 0.4}, {"g2", 0.5}};
  plans = {{"g1", {"better", "better"}}, {"better", {"g1"}}, {"g2", {"better"}}};
  run_two_generations();
  EXPECT_EQ(std::count(recorded.begin(), recorded.end(), "better"), 1);
  // One of the first round, one and two of the second, one of the second generation.
  EXPECT_EQ(metrics().at("duplicate_graph_count"), 5);
}

TEST_F(ImprovementRoundsTest, DepthLimitEndsTheRounds) {
  misses = {{"g1", 0.5}, {"g2", 0.4}, {"g3", 0.3}, {"fresh", 0.5}};
  plans = {{"g1", {"g2"}}, {"g2", {"g3"}}, {"g3", {"g4"}}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_depth = 1; });
  search.draw_in_turn({graphs_named({"g1"}), graphs_named({"fresh"})});
  // The first source has no new plan in the second round.
  plans["g1"] = {"g2"};
  search.host.reaction_planning.on_derive_reaction_improvements =
      [asked = 0](const Value& result, const ReactionRequest& request) mutable -> Value {
    if (++asked > 1) return List{};
    return List{Mapping{{"graph", graph_named("g2")},
                        {"source_result", result},
                        {"reaction_plan", "plan"},
                        {"improvement_depth", request.improvement_depth}}};
  };
  run_two_generations();
  EXPECT_THAT(recorded, ElementsAre("g1", "g2", "fresh"));
  EXPECT_FALSE(bred());
}

TEST_F(ImprovementRoundsTest, NoRoundsAtAllAreALimitOnlyWhereThereIsSomethingToRepair) {
  misses = {{"g1", 0.5}, {"g2", 0.5}};
  plans = {{"g1", {"a"}}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_rounds = 0; });
  run_two_generations();
  EXPECT_THAT(counts(), ElementsAre(2, 0, 2, 0));
  EXPECT_EQ(search.host.log.count("reaction_planning.derive_reaction_improvements"), 0U);
  // Without an improvement the limit does not exhaust the near misses.
  EXPECT_TRUE(search.host.log.count("context.own_graph_validator") > 0);
}

TEST_F(ImprovementRoundsTest, RoundLimitEndsAfterARoundThatLeavesFailures) {
  misses = {{"g1", 0.5}, {"a", 0.4}, {"b", 0.3}, {"g2", 0.5}};
  plans = {{"g1", {"a"}}, {"a", {"b"}}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_rounds = 1; });
  run_two_generations();
  EXPECT_THAT(recorded, ElementsAre("g1", "a", "g2"));
  EXPECT_FALSE(bred());
}

TEST_F(ImprovementRoundsTest, RoundLimitAfterARoundWithoutFailuresIsFoundAtTheTopOfTheNext) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"passes"}}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_rounds = 1; });
  search.run();
  // The pool is asked once more: each of the near misses is judged again.
  EXPECT_THAT(recorded, ElementsAre("g1", "passes"));
  EXPECT_EQ(search.host.log.count("reaction_planning.derive_reaction_improvements"), 1U);
}

TEST_F(ImprovementRoundsTest, CandidateLimitOfZeroAsksForNoPlan) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"a"}}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_candidates = 0; });
  search.run();
  EXPECT_THAT(recorded, ElementsAre("g1"));
  EXPECT_EQ(search.host.log.count("reaction_planning.derive_reaction_improvements"), 0U);
}

TEST_F(ImprovementRoundsTest, CandidateLimitIsForTheWholeGeneration) {
  misses = {{"g1", 0.5}, {"a", 0.4}, {"b", 0.3}, {"c", 0.2}, {"d", 0.1}, {"g2", 0.5}};
  plans = {{"g1", {"a"}}, {"a", {"b", "c", "d"}}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_candidates = 3; });
  run_two_generations();
  EXPECT_THAT(recorded, ElementsAre("g1", "a", "b", "c", "g2"));
  EXPECT_FALSE(bred());
}

TEST_F(ImprovementRoundsTest, CandidateLimitThatIsFilledExactlyEndsTheRoundsWithFailuresLeft) {
  misses = {{"g1", 0.5}, {"a", 0.4}, {"b", 0.3}, {"g2", 0.5}};
  plans = {{"g1", {"a"}}, {"a", {"b"}}};
  limit([](TemplateArguments& arguments) { arguments.max_improvement_candidates = 1; });
  run_two_generations();
  EXPECT_THAT(recorded, ElementsAre("g1", "a", "g2"));
  EXPECT_FALSE(bred());
}

TEST_F(ImprovementRoundsTest, StopDuringARoundIsMetAfterTheRoundIsRecordedAndSubmitted) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"passes"}}};
  const auto evaluate = search.on_outcome;
  bool is_stopped = false;
  search.on_outcome = [&](const Value& graph) {
    is_stopped = name_of(graph) == "passes";
    return evaluate(graph);
  };
  search.stop_event->on_is_set = [&] { return is_stopped; };
  search.stop_event->on_wait = [&](double) { return is_stopped; };
  search.run();
  EXPECT_THAT(recorded, ElementsAre("g1", "passes"));
  EXPECT_THAT(enqueued, ElementsAre("passes"));
  EXPECT_EQ(metrics().at("terminal_reason"), "stopped");
  EXPECT_EQ(metrics().at("candidate_count"), 2);
}

// An error of the pool for every batch that has this graph first.
void lose(SearchHarness& search, const std::string& name, const Mapping& attributes) {
  search.host.process_evaluation.on_evaluate_candidate_batch =
      [&search, name, attributes](const std::vector<ScriptedCandidate>& candidates, const auto&,
                                  const auto&) -> std::vector<ScriptedResult> {
    if (name_of(candidates[0].graph) == name) throw ScriptedProcessError("lost", attributes);
    return {{candidates[0].candidate_index, search.on_outcome(candidates[0].graph), 1, 0.5, 1}};
  };
}

TEST_F(ImprovementRoundsTest, LostRoundStandsInTheGenerationAsFailedAndUntimed) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"a"}}};
  lose(search, "a", {{"candidate_index", 0}, {"failure_count", 2}});
  search.run();
  EXPECT_THAT(recorded, ElementsAre("g1", "a"));
  EXPECT_THAT(counts(), ElementsAre(2, 0, 2, 1));
  EXPECT_EQ(metrics().at("elapsed_simulation_seconds"), 0.5);
  EXPECT_EQ(metrics().at("failure_count"), 2);
  EXPECT_EQ(metrics().at("terminal_reason"), "stopped");
  EXPECT_THAT(search.host.log.lines(), Contains(HasSubstr("safe_record({'node': 'a'}, False, "
                                                          "rejection_reason='worker_failed'")));
}

TEST_F(ImprovementRoundsTest, LostRoundsReasonMayEndTheSearch) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"a"}}};
  lose(search, "a", {{"candidate_index", 0}, {"terminal_reason", "fork_unavailable"}});
  search.stop_at_pause(9);
  search.run();
  EXPECT_THAT(recorded, ElementsAre("g1", "a"));
  EXPECT_EQ(metrics().at("terminal_reason"), "fork_unavailable");
  EXPECT_EQ(search.host.log.count("stop_event.wait"), 0U);
}

TEST_F(ImprovementRoundsTest, ReasonThatIsThereAndAbsentStaysAbsent) {
  misses = {{"g1", 0.5}, {"g2", 0.5}};
  plans = {{"g1", {"a"}}};
  lose(search, "a", {{"candidate_index", 0}, {"terminal_reason", Value()}});
  run_two_generations();
  EXPECT_TRUE(bred());
  EXPECT_EQ(metrics().at("failure_count"), 1);
}

TEST_F(ImprovementRoundsTest, FatalErrorRecordsTheMetricsAndLeavesTheRun) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"a"}}};
  lose(search, "a", {{"terminal_reason", "memory_budget_exceeded"}});
  EXPECT_THROW(search.run(), ScriptedProcessError);
  EXPECT_THAT(recorded, ElementsAre("g1"));
  EXPECT_EQ(metrics().at("terminal_reason"), "memory_budget_exceeded");
  EXPECT_EQ(metrics().at("candidate_count"), 1);
  EXPECT_EQ(metrics().at("improvement_round_count"), 0);
}

TEST_F(ImprovementRoundsTest, PriorityFailureLeavesNoMetrics) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"a"}}};
  lose(search, "a", {{"terminal_reason", "process_priority_failed"}, {"candidate_index", 0}});
  EXPECT_THROW(search.run(), ScriptedProcessError);
  EXPECT_THAT(search.metrics, IsEmpty());
}

TEST_F(ImprovementRoundsTest, RuntimeThatIsNotReadyEndsTheRunFromWithinARound) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"a"}}};
  search.host.engine.on_infrastructure_failure_threshold = always(1);
  const auto evaluate = search.on_outcome;
  search.on_outcome = [&](const Value& graph) {
    return name_of(graph) == "a" ? failing_for(graph, "sdk_runtime_not_ready") : evaluate(graph);
  };
  EXPECT_THROW(search.run(), ScriptedInfrastructureError);
  EXPECT_EQ(metrics().at("terminal_reason"), "sdk_runtime_not_ready");
  EXPECT_EQ(metrics().at("candidate_count"), 2);
  EXPECT_EQ(metrics().at("improvement_round_count"), 1);
}

TEST_F(ImprovementRoundsTest, PlannersErrorLeavesTheRun) {
  misses = {{"g1", 0.5}};
  search.host.reaction_planning.on_derive_reaction_improvements = failing(RuntimeError("no plan"));
  EXPECT_EQ(error_of([&] { return search.run(), 0; }), "RuntimeError: no plan");
  EXPECT_THAT(search.metrics, IsEmpty());
}

TEST_F(ImprovementRoundsTest, RepairedResultsBecomeParents) {
  misses = {{"g1", 0.5}};
  plans = {{"g1", {"passes"}}};
  run_two_generations();
  // The second batch is scored for its one parent.
  EXPECT_THAT(search.host.log.lines(), Contains(HasSubstr("'rescued': True")));
  EXPECT_THAT(search.metrics, SizeIs(1));
}

TEST_F(ImprovementRoundsTest, NearMissesResetTheCountOfStagnantGenerations) {
  // Every second generation has near misses; without them two in a row would force a restart.
  misses = {{"g1", 9.0}, {"g2", 0.5}, {"g3", 9.0}, {"g4", 0.5}};
  limit([](TemplateArguments& arguments) { arguments.restart_threshold = 2; });
  const auto evaluate = search.on_outcome;
  search.on_outcome = [&](const Value& graph) {
    Mapping result = evaluate(graph);
    if (misses[name_of(graph)] == 9.0) result.set("sharpe", -1.0);  // No near miss.
    return result;
  };
  search.stop_at_pause(4);
  search.run();
  EXPECT_THAT(search.draws(), testing::Not(Contains("(2)")));
}

}  // namespace
}  // namespace varnholt::genetic::test
