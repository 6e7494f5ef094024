// Goal: a generation is recorded whole before any of it is submitted, best first, and what goes
// wrong in between ends the run with nothing submitted that is not recorded.
// Method: whole runs over a scripted host; the recorder and the queue write down what they get.
#include <algorithm>
#include <functional>
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
using testing::SizeIs;

// The graphs that the recorder and the queue get, in one order: "record g1", "enqueue g1".
class SearchSubmission : public testing::Test {
 protected:
  explicit SearchSubmission(std::int64_t batch_size = 3) : search(batch_size) {
    search.stop_at_pause(1);
    search.on_record([this](std::span<const Value> positional, const Mapping&) {
      events.push_back("record " + name_of(positional[0]));
      return on_record(positional[0]);
    });
    search.on_enqueue([this](std::span<const Value> positional, const Mapping&) {
      payloads.push_back(positional[0].mapping());
      events.push_back("enqueue " + name_of(payloads.back().at("graph")));
      return on_enqueue(positional[0]);
    });
  }

  // Scores by the graph's name.
  void scores(const Mapping& by_name) {
    search.host.eliteness.on_score_candidate = [by_name](const Value& candidate, const Mapping&) {
      return by_name.at(Value(name_of(candidate.mapping().at("graph"))));
    };
  }

  // A pool against which candidates can be measured.
  void pool() {
    search.host.context.on_attribute = [](std::string_view name) -> std::optional<Value> {
      if (name == "_backtester" || name == "_signal_pool_name") return Value(name);
      if (name == "_era_config") return Value(Mapping());
      return std::nullopt;
    };
    search.host.engine.on_find_recorded_failure_detail = [this] {
      return scripted_callable(search.host.log, "recorded_failure_detail", always(Value("detail")));
    };
    search.host.engine.on_find_submission_mi_threshold_and_pool = [this] {
      return scripted_callable(search.host.log, "mi_threshold", always(Value(Tuple{0.5, "pool"})));
    };
  }

  SearchHarness search;
  std::vector<std::string> events;
  std::vector<Mapping> payloads;
  std::function<Value(const Value&)> on_record = always(Value("id"));
  std::function<Value(const Value&)> on_enqueue = always(Value());
};

TEST_F(SearchSubmission, TheWholeBatchIsRecordedBeforeTheBestIsEnqueued) {
  scores({{"g1", 1.0}, {"g2", 3.0}, {"g3", 2.0}});
  search.run();
  EXPECT_THAT(events, ElementsAre("record g1", "record g2", "record g3", "enqueue g2", "enqueue g3",
                                  "enqueue g1"));
}

TEST_F(SearchSubmission, FailingResultsAreRecordedAndNeitherRankedNorEnqueued) {
  search.on_outcome = [](const Value& graph) {
    return name_of(graph) == "g2" ? failing_for(graph, "sharpe_min") : passing(graph);
  };
  search.run();
  EXPECT_THAT(events,
              ElementsAre("record g1", "record g2", "record g3", "enqueue g1", "enqueue g3"));
  // Two ranks and the generation's best, of two candidates.
  EXPECT_EQ(search.host.log.count("eliteness.score_candidate"), 6U);
}

TEST_F(SearchSubmission, WhatTheQueueDidNotTakeIsOfferedOnceMoreInItsGeneration) {
  search.stop_at_pause(2);
  on_enqueue = always(Value(false));
  search.run();
  const std::size_t generation = 3 + 2 * 3;
  ASSERT_THAT(events, SizeIs(2 * generation));
  EXPECT_THAT(std::vector(events.begin(), events.begin() + generation),
              ElementsAre("record g1", "record g2", "record g3", "enqueue g1", "enqueue g2",
                          "enqueue g3", "enqueue g1", "enqueue g2", "enqueue g3"));
  // The second generation does not come back to the first.
  EXPECT_EQ(std::count(events.begin(), events.end(), "enqueue g1"), 2);
}

TEST_F(SearchSubmission, WhatTheQueueTookIsNotOfferedAgain) {
  search.stop_at_pause(3);
  search.run();
  std::sort(events.begin(), events.end());
  EXPECT_EQ(std::adjacent_find(events.begin(), events.end()), events.end());
}

TEST_F(SearchSubmission, PayloadCarriesThePersistedId) {
  on_record = [](const Value& graph) { return Value("persisted " + name_of(graph)); };
  search.run();
  ASSERT_THAT(payloads, SizeIs(3));
  EXPECT_EQ(payloads[0].at("eval_id"), "persisted g1");
  EXPECT_EQ(payloads[2].at("eval_id"), "persisted g3");
}

TEST_F(SearchSubmission, NothingIsEnqueuedWhenOneOfTheBatchIsNotRecorded) {
  on_record = [](const Value& graph) { return name_of(graph) == "g3" ? Value() : Value("id"); };
  EXPECT_EQ(error_of([&] { return search.run(), 0; }),
            "RuntimeError: genetic candidate parent evaluation persistence failed");
  EXPECT_THAT(events, ElementsAre("record g1", "record g2", "record g3"));
  EXPECT_THAT(search.metrics, SizeIs(0));
}

TEST_F(SearchSubmission, MissingQueueEndsTheRunAfterTheRecording) {
  search.host.context.on_enqueue_deferred_submission_payload = always(Callable());
  EXPECT_EQ(error_of([&] { return search.run(), 0; }),
            "RuntimeError: genetic search requires canonical submission enqueue");
  EXPECT_THAT(events, ElementsAre("record g1", "record g2", "record g3"));
  EXPECT_THAT(search.metrics, SizeIs(0));
}

TEST_F(SearchSubmission, MissingQueueIsNoticedOnlyBySomethingToSubmit) {
  search.host.context.on_enqueue_deferred_submission_payload = always(Callable());
  search.on_outcome = [](const Value& graph) { return failing_for(graph, "sharpe_min"); };
  EXPECT_EQ(error_of([&] { return search.run(), 0; }), "no error");
  EXPECT_EQ(search.host.log.count("context.enqueue_deferred_submission_payload"), 0U);
}

TEST_F(SearchSubmission, PassingResultOfAWorkerWithoutTimingIsNeverWritten) {
  search.on_outcome = [](const Value& graph) {
    Mapping result = passing(graph);
    if (name_of(graph) == "g2") result.erase("backtest_timing");
    return result;
  };
  EXPECT_EQ(error_of([&] { return search.run(), 0; }),
            "RuntimeError: genetic candidate is missing serialized backtest timing");
  EXPECT_THAT(events, ElementsAre("record g1"));
}

TEST_F(SearchSubmission, WhatThePoolBlocksIsRecordedAsFailedAndIsNoParent) {
  pool();
  search.host.engine.on_submission_pnl_mi_from_backtest_or_compute =
      always(Value(Tuple{0.25, false}));
  search.run();
  EXPECT_THAT(events, ElementsAre("record g1", "record g2", "record g3"));
  EXPECT_THAT(search.host.log.lines(),
              Contains(HasSubstr("safe_record({'node': 'g3'}, False, "
                                 "rejection_reason='pnl_mi_below_threshold'")));
  EXPECT_EQ(search.host.log.count("eliteness.score_candidate"), 0U);
}

TEST_F(SearchSubmission, WhatIsPendingIsEnqueuedWithItsMark) {
  pool();
  search.host.engine.on_refresh_submission_manifest_membership = always(false);
  search.run();
  ASSERT_THAT(payloads, SizeIs(3));
  for (const Mapping& payload : payloads)
    EXPECT_EQ(payload.at("_submission_pending_reason"), "pool_metrics_refresh_required");
  // Nothing measures it again.
  EXPECT_EQ(search.host.log.count("engine.refresh_submission_manifest_membership"), 3U);
}

TEST_F(SearchSubmission, RecordingAndSubmissionComeBeforeTheStreakIsCounted) {
  search.run();
  const Names names = search.host.log.names();
  const auto last_enqueue = std::find(names.rbegin(), names.rend(), "enqueue").base();
  const auto streak =
      std::find(names.begin(), names.end(), "engine.infrastructure_failure_threshold");
  ASSERT_NE(streak, names.end());
  EXPECT_LE(last_enqueue, streak);
}

TEST_F(SearchSubmission, LostBatchIsRecordedAndNotEnqueued) {
  search.host.process_evaluation.on_evaluate_candidate_batch =
      failing(ScriptedProcessError("child lost", {{"candidate_index", 0}}));
  search.run();
  EXPECT_THAT(events, ElementsAre("record g1", "record g2", "record g3"));
  EXPECT_THAT(search.host.log.lines(), Contains(HasSubstr("backtest_timing=None")).Times(3));
}

}  // namespace
}  // namespace varnholt::genetic::test
