// Goal: an error of the pool ends the run or one generation, as its attributes say, and any other
// error ends the run as it is.
// Method: a scripted pool throws; the log, the metrics and the error that leaves are compared.
#include <gmock/gmock.h>

#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::SizeIs;

const Names kBeforeError = kSetUp + kTest + kBatch + kPool;
const Names kIsProcessError = {"process_evaluation.as_error"};
// Whether an error ends the whole search; the second question is not asked where the first says so.
const Names kIsPriorityError = {"process_evaluation.terminal_process_priority_failed"};
const Names kIsFatal =
    kIsPriorityError + Names{"process_evaluation.terminal_memory_budget_exceeded"};

void fail_with(SearchHarness& search, const Mapping& attributes,
               const std::string& text = "the pool failed") {
  search.host.process_evaluation.on_evaluate_candidate_batch =
      failing(ScriptedProcessError(text, attributes));
}

TEST(SearchFailure, FatalErrorIsCountedReportedAndThrownOn) {
  SearchHarness search(2);
  fail_with(search, {{"terminal_reason", "memory_budget_exceeded"},
                     {"candidate_index", 1},
                     {"failure_count", 3}});
  try {
    search.run();
    FAIL() << "the error must leave the run";
  } catch (const ScriptedProcessError& error) {
    EXPECT_EQ(error.text(), "the pool failed");
  }

  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + kTest + kBatch + kPoolOfMany + kIsProcessError + kIsFatal +
                               kIsProcessError + kIsFatal + kIsPriorityError + kIsPriorityError +
                               kMetrics));
  ASSERT_THAT(search.metrics, SizeIs(1));
  EXPECT_EQ(search.metrics[0].at("terminal_reason"), "memory_budget_exceeded");
  EXPECT_EQ(search.metrics[0].at("failure_count"), 3);
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 0);  // Its candidates are not counted.
}

TEST(SearchFailure, ErrorThatCannotBeTiedToACandidateIsFatal) {
  SearchHarness search;
  fail_with(search, Mapping());
  EXPECT_THROW(search.run(), ScriptedProcessError);
  ASSERT_THAT(search.metrics, SizeIs(1));
  EXPECT_EQ(search.metrics[0].at("terminal_reason"), "worker_failed");
  EXPECT_EQ(search.metrics[0].at("failure_count"), 1);
  EXPECT_EQ(search.host.log.count("safe_record"), 0U);
}

TEST(SearchFailure, PriorityFailureLeavesNoMetricsAndCountsNothing) {
  SearchHarness search;
  fail_with(search, {{"terminal_reason", "process_priority_failed"},
                     {"candidate_index", 0},
                     {"failure_count", 9}});
  EXPECT_THROW(search.run(), ScriptedProcessError);
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kBeforeError + kIsProcessError + kIsPriorityError + kIsProcessError +
                               times(3, kIsPriorityError)));
  EXPECT_THAT(search.metrics, SizeIs(0));
}

// An error without a reason is none that the batch takes as one candidate's own.
TEST(SearchFailure, ErrorOfOneCandidateFailsTheBatchAndTheRunGoesOn) {
  SearchHarness search;
  search.stop_at_pause(2);
  search.host.process_evaluation.on_evaluate_candidate_batch =
      [calls = 0](const std::vector<ScriptedCandidate>& candidates, const auto&,
                  const auto&) mutable -> std::vector<ScriptedResult> {
    if (++calls == 1) throw ScriptedProcessError("child lost", {{"candidate_index", 0}});
    return {{candidates[0].candidate_index, passing(candidates[0].graph), 1, 0.5, 1}};
  };
  search.run();

  const Names verdict = {"evaluation_verdicts.not_evaluated_verdict"};
  const Names in_the_batch = kIsProcessError + kIsFatal +
                             Names{"process_evaluation.terminal_worker_failed",
                                   "process_evaluation.terminal_worker_timeout"};
  const Names made_up = kIsProcessError + kIsFatal +
                        Names{"process_evaluation.terminal_worker_failed"} + times(3, verdict);
  // The error is counted after the recording, in place of the streak.
  const Names counted = {"process_evaluation.terminal_worker_failed",
                         "process_evaluation.terminal_process_priority_failed"};
  // The text of the failure might be JSON that tells how far it missed.
  const Names rounds =
      kTest + times(3, kJudge) + Names{"json_reader.read", "context.max_depth"} + kTest;
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kBeforeError + in_the_batch + made_up + kRecordFailing + counted +
                               kTest + rounds + kJudge + kReadStopEvent + kTest + kPause +
                               kReadStopEvent + kPassing + kStopped));
  ASSERT_THAT(search.metrics, SizeIs(1));
  EXPECT_EQ(search.metrics[0].at("failure_count"), 1);
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 2);
  EXPECT_EQ(search.metrics[0].at("elapsed_simulation_seconds"), 0.5);
}

TEST(SearchFailure, EveryGraphOfTheLostBatchIsRecordedAsFailed) {
  SearchHarness search(2);
  search.stop_at_pause(1);
  fail_with(search, {{"candidate_index", 1},
                     {"terminal_reason", "worker_odd"},
                     {"detail", "after 600 s"},
                     {"failure_count", "2"}});
  search.run();
  EXPECT_THAT(
      search.host.log.lines(),
      Contains("safe_record({'node': 'g1'}, False, rejection_reason='worker_odd', stats=None, "
               "per_column_stats=None, expression_elapsed_seconds=None, backtest_timing=None, "
               "tracking_metric_kwargs="
               "{'failure_reason': 'worker_odd', 'failure_detail': 'after 600 s', "
               "'stats_verdict': {'verdict': 'not_evaluated'}, 'correlation_verdict': "
               "{'verdict': 'not_evaluated'}, 'mi_verdict': {'verdict': 'not_evaluated'}})"));
  EXPECT_EQ(search.host.log.count("safe_record"), 2U);
  EXPECT_EQ(search.metrics.at(0).at("failure_count"), 2);
  EXPECT_EQ(search.metrics.at(0).at("candidate_count"), 2);
}

// Under the threshold the near-miss branch overwrites the error's wish for a restart.
TEST(SearchFailure, TheRestartAfterALostBatchIsLostWhereTheThresholdIsNotReached) {
  SearchHarness search(1, 2);
  search.stop_at_pause(4);
  fail_with(search, {{"candidate_index", 0}});
  search.run();
  EXPECT_THAT(search.draws(), ElementsAre("(1)", "(1)", "(2)", "(1)"));
}

TEST(SearchFailure, ALostBatchLeavesTheStreakAlone) {
  SearchHarness search;
  search.stop_at_pause(10);
  search.host.engine.on_infrastructure_failure_threshold = always(2);
  search.on_outcome = [turn = 0](const Value& graph) mutable {
    if (++turn == 2) throw ScriptedProcessError("lost", {{"candidate_index", 0}});
    return failing_for(graph, "sdk_runtime_not_ready");
  };
  EXPECT_THROW(search.run(), ScriptedInfrastructureError);
  EXPECT_EQ(search.metrics.at(0).at("candidate_count"), 3);
}

TEST(SearchFailure, OtherErrorsOfThePoolLeaveWithoutMetrics) {
  SearchHarness search;
  search.host.process_evaluation.on_evaluate_candidate_batch = failing(ValueError("odd"));
  EXPECT_THROW(search.run(), ValueError);
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kBeforeError + kIsProcessError + kIsProcessError));
}

// What is no ordinary error, an interrupt for example.
struct Interrupt {};

TEST(SearchFailure, InterruptPassesUntouched) {
  SearchHarness search;
  search.host.process_evaluation.on_evaluate_candidate_batch = failing(Interrupt());
  EXPECT_THROW(search.run(), Interrupt);
  EXPECT_THAT(search.host.log.names(), ElementsAreArray(kSetUp + kTest + kBatch + kPool));
}

TEST(SearchFailure, PoolErrorsOutsideTheEvaluationAreNotCaught) {
  SearchHarness search;
  search.on_record([](const auto&, const Mapping&) -> Value {
    throw ScriptedProcessError("from the recorder", {{"candidate_index", 0}});
  });
  EXPECT_THROW(search.run(), ScriptedProcessError);
  EXPECT_THAT(search.metrics, SizeIs(0));
  EXPECT_EQ(search.host.log.count("process_evaluation.as_error"), 0U);
}

TEST(SearchFailure, RecorderOfMetricsThatFailsIsNotCalledAgain) {
  SearchHarness search;
  search.stop_event->on_is_set = always(true);
  search.host.context.on_record_search_run_metrics = always(scripted_callable(
      search.host.log, "record_metrics",
      [](const auto&, const Mapping&) -> Value { throw RuntimeError("disk full"); }));
  EXPECT_THROW(search.run(), RuntimeError);
  EXPECT_EQ(search.host.log.count("record_metrics"), 1U);
}

TEST(SearchFailure, RuntimeThatIsNeverReadyEndsTheRunWithMetrics) {
  SearchHarness search(2);
  search.host.engine.on_infrastructure_failure_threshold = always(3);
  search.on_outcome = [](const Value& graph) {
    return failing_for(graph, "sdk_runtime_not_ready");
  };
  search.host.context.on_fatal_callback =
      always(scripted_callable(search.host.log, "fatal", always(Value())));
  try {
    search.run();
    FAIL() << "the error must leave the run";
  } catch (const ScriptedInfrastructureError& error) {
    EXPECT_EQ(error.text(),
              "search runtime was not ready for 4 consecutive candidates; the runtime, not the "
              "candidate, is what fails, so the search stops instead of recording more candidate "
              "rejections");
  }
  const Names first = kTest + kBatch + kPoolOfMany + kRecordFailing + kRecordFailing + kStreak +
                      kTest + no_rounds_for(2) + kJudge + kJudge + kReadStopEvent + kTest + kPause +
                      kReadStopEvent;
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kSetUp + first + kTest + kBatch + kPoolOfMany + kRecordFailing +
                               kRecordFailing + kStreak + Names{"logger.error"} + kMetrics +
                               Names{"context.fatal_callback", "fatal",
                                     "engine.raise_background_infrastructure_error"}));
  ASSERT_THAT(search.metrics, SizeIs(1));
  EXPECT_EQ(search.metrics[0].at("terminal_reason"), "sdk_runtime_not_ready");
  EXPECT_EQ(search.metrics[0].at("candidate_count"), 4);
}

}  // namespace
}  // namespace varnholt::genetic::test
