// Goal: one turn of the search makes exactly the host calls that it must, in their order.
// Method: whole runs over a scripted host; the log of each kind of turn is compared call by call.
#include "search_templates/genetic/driver/search_loop.hpp"

#include <gmock/gmock.h>

#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Not;
using testing::SizeIs;

TEST(SearchLoop, StopEventSetBeforeTheRunLeavesOneMetricsRecordOfZeros) {
  SearchHarness search;
  search.stop_event->on_is_set = always(true);
  search.run();

  // The workers are resolved, and a reduction logged, all the same.
  EXPECT_THAT(search.host.log.names(), ElementsAreArray(kSetUp + kTest + kStopped));
  ASSERT_THAT(search.metrics, SizeIs(1));
  const Mapping& metrics = search.metrics[0];
  EXPECT_EQ(metrics.at("terminal_reason"), "stopped");
  for (const char* count : {"candidate_count", "generated_graph_count", "unique_graph_count",
                            "duplicate_graph_count", "improvement_round_count", "failure_count"}) {
    EXPECT_EQ(metrics.at(count), 0) << count;
  }
  EXPECT_EQ(repr(metrics.at("elapsed_simulation_seconds")), "0.0");
  EXPECT_EQ(repr(metrics.at("unique_ratio")), "0.0");
  EXPECT_EQ(metrics.at("process_count"), 2);
}

TEST(SearchLoop, PassingGenerations) {
  SearchHarness search;
  search.stop_at_pause(2);
  search.run();

  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + kPassing + kReadStopEvent + kBredPassing + kStopped));
  ASSERT_THAT(search.metrics, SizeIs(1));
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 2);
  EXPECT_EQ(search.metrics[0].at("elapsed_simulation_seconds"), 1.0);
  EXPECT_THAT(search.host.log.lines(), Contains("stop_event.wait(0.01)").Times(2));
}

TEST(SearchLoop, FailingGenerationsAskForNoScore) {
  SearchHarness search;
  search.stop_at_pause(2);
  search.on_outcome = [](const Value& graph) { return failing_for(graph, "sharpe_min"); };
  search.run();

  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + kFailing + kReadStopEvent + kFailing + kStopped));
}

TEST(SearchLoop, EmptyBatchDoesNotEndTheRun) {
  SearchHarness search(2);
  search.stop_at_pause(2);
  search.draw_in_turn({List(), Tuple{graph_named("a"), graph_named("b")}});
  search.run();

  // The empty turn asks the pool nothing, and the next one is a restart: it wants one graph more.
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + kTest + kBatch + kPause + kReadStopEvent + kTest + kBatch +
                               kPoolOfMany + kRecordPassing + kRecordPassing + kScore + kScore +
                               kSubmit + kSubmit + kStreak + kTest + kNoRounds + times(4, kScore) +
                               kReadStopEvent + kTest + kPause + kStopped));
  EXPECT_THAT(search.draws(), ElementsAre("(2)", "(3)"));
}

TEST(SearchLoop, EmptyBatchesRaiseTheBatchIndexSoThatSeedsAreGivenOnce) {
  SearchHarness search(2);
  search.stop_at_pause(2);
  TemplateArguments arguments = search.module.default_arguments();
  arguments.batch_size = 2;
  arguments.initial_candidates = List();
  search.configure(arguments);
  search.run();

  // Batch 0 is the empty list of seeds, without a draw; batch 1 is a restart with fresh graphs.
  EXPECT_THAT(search.draws(), ElementsAre("(3)"));
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 2);
}

TEST(SearchLoop, SeedsAreEvaluatedAsTheyWereGiven) {
  SearchHarness search(2);
  search.stop_at_pause(1);
  TemplateArguments arguments = search.module.default_arguments();
  arguments.batch_size = 2;
  arguments.initial_candidates = graphs_named({"s1", "s2", "s3"});
  search.configure(arguments);
  std::vector<std::string> evaluated;
  search.on_outcome = [&evaluated](const Value& graph) {
    evaluated.push_back(name_of(graph));
    return passing(graph);
  };
  search.run();

  EXPECT_THAT(evaluated, ElementsAre("s1", "s2"));
  EXPECT_THAT(search.draws(), ElementsAre());
}

// The attempts to replace duplicates: the generator is fetched before the first and stored after
// the last.
Names failed_backfill(int attempts) {
  Names names = {"random_generators.from_state"};
  for (int i = 0; i < attempts; ++i)
    names = names + Names{"fresh.draw", "rng.random"};
  return names + Names{"rng.getstate"};
}

TEST(SearchLoop, DuplicatesAfterCountedCandidatesEndTheRun) {
  SearchHarness search;
  *search.on_draw = [](std::int64_t) { return Value(graphs_named({"same"})); };
  search.run();

  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + kPassing + kReadStopEvent + kTest + kBredBatch +
                               failed_backfill(20) + kTest + kMetrics));
  ASSERT_THAT(search.metrics, SizeIs(1));
  const Mapping& metrics = search.metrics[0];
  EXPECT_EQ(metrics.at("terminal_reason"), "duplicate");
  EXPECT_EQ(metrics.at("candidate_count"), 1);
  EXPECT_EQ(metrics.at("duplicate_graph_count"), 21);
  EXPECT_EQ(metrics.at("unique_graph_count"), 1);
  EXPECT_EQ(metrics.at("generated_graph_count"), 22);
  EXPECT_EQ(metrics.at("unique_ratio"), 1.0 / 22.0);
}

TEST(SearchLoop, DuplicatesBeforeAnyCountedCandidateKeepTheRunGoing) {
  // The pool returns no result at all, so that the first batch leaves its keys but no candidate.
  SearchHarness search;
  *search.on_draw = [](std::int64_t) { return Value(graphs_named({"same"})); };
  search.host.process_evaluation.on_evaluate_candidate_batch =
      always(std::vector<ScriptedResult>{});
  search.run();

  const Names no_results =
      kTest + kBatch + kPool + kStreak + kTest + kNoRounds + kReadStopEvent + kTest + kPause;
  const Names duplicates = kTest + kBatch + failed_backfill(20) + kTest + kPause;
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + no_results + kReadStopEvent + duplicates + kReadStopEvent +
                               duplicates + kStopped));
  ASSERT_THAT(search.metrics, SizeIs(1));
  EXPECT_EQ(search.metrics[0].at("terminal_reason"), "stopped");
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 0);
  EXPECT_EQ(search.metrics[0].at("duplicate_graph_count"), 42);
  // Every turn of duplicates makes the next a restart.
  EXPECT_EQ(search.draws()[1], "(1)");
  EXPECT_THAT(search.draws(), Contains("(2)").Times(1));
}

TEST(SearchLoop, SeedsAreGivenOnceEvenWhenNothingCameOfThem) {
  SearchHarness search;
  TemplateArguments arguments = search.module.default_arguments();
  arguments.batch_size = 1;
  arguments.initial_candidates = graphs_named({"seed"});
  search.configure(arguments);
  search.stop_at_pause(2);
  search.host.process_evaluation.on_evaluate_candidate_batch =
      always(std::vector<ScriptedResult>{});
  search.run();
  EXPECT_THAT(search.draws(), ElementsAre("(1)"));  // Batch 1 alone: batch 0 is the seed.
}

TEST(SearchLoop, WithoutStopEventItSleepsAndNeverWaits) {
  SearchHarness search;
  search.host.context.on_stop_event = always(nullptr);
  search.on_outcome = [](const Value& graph) { return failing_for(graph, "sharpe_min"); };
  search.draw_in_turn(
      {graphs_named({"a"}), graphs_named({"b"}), List(), graphs_named({"a"}), List()});
  search.run();

  // Without the tests by which the rounds begin and end.
  const Names rounds(kFruitlessRound.begin() + 1, kFruitlessRound.end() - 1);
  const Names untested = kBatch + kPool + kRecordFailing + kStreak + rounds + kNoNearMiss +
                         kReadStopEvent + Names{"pause.sleep"} + kReadStopEvent;
  // The run ends with the duplicate, whose one backfill returns nothing.
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + untested + untested + kBatch + Names{"pause.sleep"} +
                               kReadStopEvent + kBatch + kBatch + kMetrics));
  EXPECT_THAT(search.host.log.lines(), Contains("pause.sleep(0.01)").Times(3));
  EXPECT_EQ(search.metrics[0].at("terminal_reason"), "duplicate");
}

TEST(SearchLoop, ResultsAreAnnotatedBeforeTheyAreRecorded) {
  SearchHarness search(2);
  search.stop_at_pause(1);
  List recorded;
  search.on_record([&](std::span<const Value> positional, const Mapping&) {
    recorded.append(positional[0]);
    return Value("id");
  });
  std::vector<Value> scored;
  search.host.eliteness.on_score_candidate = [&scored](const Value& candidate, const Mapping&) {
    scored.push_back(candidate);
    return Value(1.0);
  };
  search.run();

  ASSERT_THAT(scored, SizeIs(6));  // Two ranks and the best score, of two candidates.
  EXPECT_EQ(repr(recorded), "[{'node': 'g1'}, {'node': 'g2'}]");
  for (std::int64_t index : {0, 1}) {
    const Mapping record = scored[static_cast<std::size_t>(index)].mapping();
    EXPECT_EQ(record.at("candidate_index"), index);
    EXPECT_EQ(record.at("improvement_depth"), 0);
    EXPECT_EQ(record.at("worker_pid"), 4321);
    EXPECT_EQ(record.at("_parent_recorded"), true);
    EXPECT_EQ(record.at("eval_id"), "id");
    EXPECT_FALSE(record.contains("rescued"));
  }
}

TEST(SearchLoop, EachResultIsRecordedOnceAlthoughTheGenerationIsRecordedAgain) {
  SearchHarness search(3);
  search.stop_at_pause(1);
  search.run();
  EXPECT_EQ(search.host.log.count("safe_record"), 3U);
}

TEST(SearchLoop, ResultThatFailsToBeRecordedEndsTheRunWithoutMetrics) {
  SearchHarness search(2);
  search.on_record(always(Value()));
  EXPECT_THROW(search.run(), RuntimeError);
  EXPECT_EQ(search.host.log.count("safe_record"), 1U);
  EXPECT_THAT(search.metrics, SizeIs(0));
}

TEST(SearchLoop, MissingPassesCountsAsFailed) {
  SearchHarness search(2);
  search.stop_at_pause(1);
  search.on_outcome = [](const Value& graph) {
    if (name_of(graph) == "g1") return Mapping{{"graph", graph}};
    Mapping result = passing(graph);
    result.set("passes", "yes");  // A truth test.
    return result;
  };
  search.run();
  EXPECT_EQ(search.host.log.count("eliteness.score_candidate"), 3U);
  EXPECT_EQ(search.host.log.count("enqueue"), 1U);
}

TEST(SearchLoop, CandidatesWithoutResultAreNotCounted) {
  SearchHarness search(3);
  search.stop_at_pause(1);
  search.host.process_evaluation.on_resolve_process_worker_count_details = always(3);
  // The last of three; those that are left are tried again, and the pool gives nothing more.
  search.host.process_evaluation
      .on_evaluate_candidate_batch = [](const std::vector<ScriptedCandidate>& candidates,
                                        const auto&, const auto&) {
    std::vector<ScriptedResult> results;
    if (candidates.size() == 3) {
      results.push_back({candidates[2].candidate_index, passing(candidates[2].graph), 1, 0.25, 1});
    }
    return results;
  };
  search.run();
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 1);
  EXPECT_EQ(search.metrics[0].at("unique_graph_count"), 1);
  EXPECT_EQ(search.metrics[0].at("generated_graph_count"), 1);  // Reconciled, though 3 were drawn.
  EXPECT_EQ(search.metrics[0].at("elapsed_simulation_seconds"), 0.25);
}

TEST(SearchLoop, PoolGetsTheConfiguredTimeOutAndTheRequestedJobs) {
  SearchHarness search;
  TemplateArguments arguments = search.module.default_arguments();
  arguments.process_timeout_seconds = "12.5";
  search.configure(arguments);
  search.stop_at_pause(1);
  search.host.process_evaluation.on_resolve_process_worker_count_details = always(4);
  search.host.context.on_n_jobs = always(Value(7));
  search.host.context.on_worker_memory_limit_bytes = always(Value(1000));
  search.run();
  EXPECT_THAT(search.host.log.lines(),
              Contains("process_evaluation.evaluate_candidate_batch(4, n_jobs=7, max_retries=1, "
                       "timeout_seconds=12.5, worker_memory_limit_bytes=1000)"));
  EXPECT_THAT(search.host.log.lines(),
              Contains("process_evaluation.resolve_process_worker_count_details(7, 4)"));
}

TEST(SearchLoop, ASecondRunOfATemplateGoesOnWithItsRandomStreamButForgetsWhatItHasSeen) {
  SearchHarness search;
  search.stop_at_pause(1);
  *search.on_draw = [](std::int64_t) { return Value(graphs_named({"same"})); };
  search.run();
  const Value state = search.config->rng_state();
  search.stop_at_pause(1);
  search.run();

  EXPECT_THAT(search.host.log.lines(),
              Contains("random_generators.from_state(" + repr(state) + ")"));
  EXPECT_FALSE(search.config->rng_state() == state);
  ASSERT_THAT(search.metrics, SizeIs(2));
  EXPECT_EQ(search.metrics[1].at("duplicate_graph_count"), 0);
  EXPECT_EQ(search.metrics[1].at("candidate_count"), 1);
}

TEST(SearchLoop, DuplicatesWithinABatchAreReplaced) {
  SearchHarness search(2);
  search.stop_at_pause(1);
  search.draw_in_turn({graphs_named({"a", "a"}), graphs_named({"a"}), graphs_named({"b", "c"})});
  search.run();
  EXPECT_THAT(search.draws(), ElementsAre("(2)", "(1)", "(1)"));
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 2);
  EXPECT_EQ(search.metrics[0].at("duplicate_graph_count"), 2);
  EXPECT_EQ(search.metrics[0].at("generated_graph_count"), 4);  // Not 5: c was dropped.
}

TEST(SearchLoop, DefaultSourceIsTheHostsGeneratorOfRandomGraphs) {
  SearchHarness search;
  Module module(search.host.bundle());
  search.host.process_evaluation.on_resolve_process_worker_count_details = always(4);
  search.host.random_weighted.on_next = [](RandomGenerator* rng) {
    return std::optional<Value>(Mapping{{"weight", rng->random()}});
  };
  GeneticTemplate config = module.with_config(module.default_arguments());
  search.stop_at_pause(1);
  search.host.log.clear();
  module.run(search.host.context, config);

  const Names draw = {"random_graphs.next", "rng.random"};
  const Names walk =
      Names{"random_generators.from_state", "random_weighted.random_weighted_graphs"} + draw +
      draw + draw + draw + Names{"random_graphs.release", "rng.getstate"};
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + kTest + walk + kPoolOfMany + times(4, kRecordPassing) +
                               times(4, kScore) + times(4, kSubmit) + kStreak + kTest + kNoRounds +
                               times(8, kScore) + kReadStopEvent + kTest + kPause + kStopped));
  EXPECT_THAT(search.host.log.lines(),
              Contains("random_weighted.random_weighted_graphs(rng='rng', log_context="
                       "{'template': 'genetic', 'stage': 'fresh_candidates', 'generator': "
                       "'random_weighted_graphs'}, template_name='genetic')"));
}

}  // namespace
}  // namespace varnholt::genetic::test
