// Goal: the attempt of every recorded candidate ends with its record, once, also where the search
// makes no attempt the current one; and a run that dies before it submits loses no submission.
// Method: real children, the search's recording, a store that is read back; a process that is
// killed between recording and enqueueing; the independent reader of invariants.
#include <csignal>

#include <gmock/gmock.h>
#include <sys/wait.h>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/search/attempt_end.hpp"
#include "search_templates/genetic/process/process_attempts.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/hosts/embedded/search/recording_fixture.hpp"
#include "tests/support/store_invariants.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class RecordedAttempts : public RecordingTest {
 protected:
  explicit RecordedAttempts(const GateThresholds& gates = open_gates())
      : RecordingTest(first_stays(), gates) {}
  ~RecordedAttempts() override { EXPECT_THAT(store_violations(database()), IsEmpty()); }

  // The row of a child that has been let into its backtest.
  Value begun(const Value& graph, std::int64_t candidate = 0) {
    const Value id = genetic::create_process_attempt(host_, context_, candidate, graph);
    context_.tracker()->mark_simulation_attempt_dispatched(id);
    context_.tracker()->mark_simulation_attempt_backtest_started(id);
    return id;
  }
  // A child's result, with its attempt, recorded.
  Mapping recorded_with(const Value& attempt, const Value& graph) {
    Mapping candidate = evaluated(graph);
    candidate.set(keys::kProcessAttempt, 0);
    candidate.set(keys::kSourceAttemptId, attempt);
    EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
    return candidate;
  }
  // What the search records of a worker that was lost: no attempt is made the current one.
  Mapping recorded_loss(const Value& graph) {
    Mapping candidate{{keys::kGraph, graph},
                      {keys::kPasses, false},
                      {keys::kFailures, Mapping{{"worker_failed", Mapping()}}},
                      {keys::kTrackingMetricKwargs, Mapping{{"failure_detail", "signal 9"}}}};
    EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
    return candidate;
  }
  AttemptRecord attempt(const Value& id) { return store_.attempts().find(id.integer()).value(); }
};

TEST_F(RecordedAttempts, TheContextTellsTheTrackerWhatItAsks) {
  const Value id = begun(ranked("close"), 5);
  const AttemptRecord row = attempt(id);
  EXPECT_EQ(row.start.run, 1);
  EXPECT_EQ(row.start.rotation_identifier, "candidate-5");
  EXPECT_EQ(row.start.market_id, 7);
  EXPECT_EQ(row.start.era_number, 3);
  EXPECT_THAT(row.start.expected_columns_json, HasSubstr(R"(["sharpe",)"));
  EXPECT_EQ(read_json(row.start.data_shape_json).mapping().at("columns").integer(), 12);
  genetic::finalize_process_failure_attempt(
      host_, context_, id, "worker_failed", "signal 9",
      {.dispatched = true, .backtest_started = true, .cancelled = false});
  const AttemptEndRow end = attempt(id).end.value();
  EXPECT_EQ(end.terminal_disposition, "backtest_failed");
  EXPECT_THAT(end.per_column_inventory_json, HasSubstr(R"("sharpe":"missing")"));
  EXPECT_THAT(end.threshold_gate_json, HasSubstr(R"("sharpe_min":)"));
}

TEST_F(RecordedAttempts, APassingCandidateEndsItsAttempt) {
  const Value id = begun(ranked("close"));
  const Mapping candidate = recorded_with(id, ranked("close"));
  const AttemptEndRow end = attempt(id).end.value();
  EXPECT_EQ(end.terminal_disposition, kPassed);
  EXPECT_TRUE(end.backtest_completed);
  EXPECT_EQ(end.eval_id, "1-1");
  EXPECT_EQ(end.failure_category, std::nullopt);
  EXPECT_EQ(end.failure_reason, std::nullopt);
  EXPECT_EQ(end.classification_source, "parent_recorder");
  EXPECT_EQ(end.generated_stats_json, row_of(candidate).statistics_json);
  EXPECT_THAT(end.per_column_inventory_json, HasSubstr(R"("sharpe":"present")"));
  EXPECT_THAT(end.threshold_gate_json, HasSubstr(R"("verdict":"passed")"));
  EXPECT_EQ(row_of(candidate).worker_pid, candidate.at(keys::kWorkerPid).integer());
}

TEST_F(RecordedAttempts, AnAttemptIsTheCurrentOneForOneRecord) {
  const Value first = begun(ranked("close"), 0);
  static_cast<void>(recorded_with(first, ranked("close")));
  const Value second = begun(ranked("open"), 1);
  static_cast<void>(recorded_loss(negated(ranked("high"))));
  EXPECT_EQ(attempt(first).ignored_ends, 0);
  EXPECT_EQ(attempt(second).end, std::nullopt) << "another graph's";
  static_cast<void>(recorded_loss(ranked("open")));
  EXPECT_TRUE(attempt(second).end.has_value());
}

TEST_F(RecordedAttempts, ALostWorkersOpenAttemptEndsWithTheRecordsReason) {
  const Value lost = begun(ranked("close"), 0);
  const Value other = begun(ranked("open"), 1);
  static_cast<void>(recorded_loss(ranked("close")));
  const AttemptEndRow end = attempt(lost).end.value();
  EXPECT_EQ(end.terminal_disposition, "backtest_failed");
  EXPECT_FALSE(end.backtest_completed);
  EXPECT_EQ(end.failure_category, "execution");
  EXPECT_EQ(end.failure_reason, "worker_failed");
  EXPECT_EQ(end.failure_detail, "signal 9");
  EXPECT_EQ(end.classification_source, "process_evaluation");
  EXPECT_EQ(end.eval_id, "1-1");
  EXPECT_EQ(attempt(other).end, std::nullopt);
  static_cast<void>(recorded_loss(ranked("open")));
}

TEST_F(RecordedAttempts, ALossBeforeTheBacktestHasNoAttemptToEnd) {
  static_cast<void>(recorded_loss(ranked("close")));
  EXPECT_EQ(store_.evaluation_count(1), 1);
  EXPECT_TRUE(store_.attempts().list({}).empty());
}

TEST_F(RecordedAttempts, AnEndBeforeTheRecordStands) {
  const Value id = begun(ranked("close"));
  genetic::finalize_process_failure_attempt(
      host_, context_, id, "worker_timeout", "after 60 s",
      {.dispatched = true, .backtest_started = true, .cancelled = false});
  Mapping candidate = recorded_loss(ranked("close"));
  EXPECT_EQ(attempt(id).end->failure_reason, "worker_timeout");
  EXPECT_EQ(attempt(id).ignored_ends, 0) << "it was not open any more";
}

TEST_F(RecordedAttempts, WhatPassedIsAnnouncedUntilItIsEnqueued) {
  const Mapping candidate = recorded(ranked("close"));
  EXPECT_EQ(store_.submissions().announced(1), 1);
  submit(candidate);
  EXPECT_EQ(store_.submissions().announced(1), 0);
  EXPECT_EQ(submissions_of(candidate).size(), 1U);
}

TEST_F(RecordedAttempts, ASubmissionThatAKilledRunOwesIsMadeByTheNextStoreOnce) {
  const std::string path = in_folder("killed.db").string();
  const Mapping candidate = evaluated(ranked("close"));
  const pid_t child = ::fork();
  if (child == 0) {
    // A run of its own that dies right after it has recorded what passed.
    SqliteRunStore store(path);
    RunRecorder recorder(store, observer_, lineage_, *stop_, {10, gates_, {}, pool_identity_},
                         run_start());
    Mapping keywords;
    for (const genetic::Key key : {keys::kStats, keys::kBacktestTiming})
      keywords.set(key, candidate.at(key));
    static_cast<void>(recorder.record(ranked("close"), true, keywords, {}));
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));

  SqliteRunStore store(path);
  EXPECT_EQ(store.swept().completed_submissions, 1);
  EXPECT_THAT(store_violations(path), IsEmpty());
  SignalPool pool(store, pool_identity_);
  SubmissionQueue queue(store, pool, {0.2, 0.7}, [] { return 9.0; });
  const SyncReport report = queue.sync();
  ASSERT_EQ(report.settled.size(), 1U);
  EXPECT_EQ(report.settled[0].eval_id, "1-1");
  EXPECT_FALSE(report.settled[0].refusal.has_value());
  const SubmissionRecord submitted = store.submissions().list({}).at(0);
  const Mapping payload = read_json(submitted.payload_json).mapping();
  EXPECT_TRUE(payload.at(keys::kGraph) == ranked("close"));
  EXPECT_EQ(payload.at(keys::kEvalId).text(), "1-1");
  EXPECT_EQ(payload.at(keys::kIsStats).mapping().at(keys::kSharpe).real(),
            evaluator_.evaluate(ranked("close")).backtest.statistics.sharpe);
  const SqliteRunStore again(path);
  EXPECT_EQ(again.swept().completed_submissions, 0);
}

class RejectedAttempts : public RecordedAttempts {
 protected:
  RejectedAttempts() : RecordedAttempts({.max_turnover = -1.0}) {}
};

TEST_F(RejectedAttempts, AFailingCandidateEndsItsAttemptWithItsGate) {
  const Value id = begun(ranked("close"));
  static_cast<void>(recorded_with(id, ranked("close")));
  const AttemptEndRow end = attempt(id).end.value();
  EXPECT_EQ(end.terminal_disposition, kRejected);
  EXPECT_TRUE(end.backtest_completed);
  EXPECT_EQ(end.failure_category, "risk");
  EXPECT_EQ(end.failure_reason, "turnover_max");
  EXPECT_THAT(end.failure_detail.value_or(""), HasSubstr("turnover"));
  EXPECT_EQ(end.classification_source, "parent_recorder");
  EXPECT_THAT(end.threshold_gate_json, HasSubstr(R"("verdict":"failed")"));
  EXPECT_EQ(store_.submissions().announced(1), 0);
}

}  // namespace
}  // namespace varnholt::embedded::test
