// From a child's result to a row of the store and a member of the pool: what crosses the process
// boundary is enough to record and submit a candidate, and a pool that cannot be measured against
// makes a candidate wait, not fail.
// Method: real children of the embedded pool, the library's recording and submitting, a store whose
// lock another connection holds, and PnL series taken out of the file.
#include "search_templates/genetic/submission/recording.hpp"

#include <functional>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/search/embedded_host.hpp"
#include "hosts/embedded/search/json_value.hpp"
#include "hosts/embedded/search/run_recorder.hpp"
#include "hosts/embedded/search/statistics_object.hpp"
#include "hosts/embedded/timing/backtest_timing.hpp"
#include "search_templates/genetic/process/batch_evaluation.hpp"
#include "search_templates/genetic/submission/submitting.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/search/search_fixture.hpp"

namespace varnholt::embedded {
namespace {

namespace keys = genetic::keys;
using genetic::List;
using genetic::Mapping;
using genetic::Value;
using ::testing::HasSubstr;

// Lets a test act at the moment between the measurement against the pool and the record.
class PausingRecorder : public ResultRecorder {
 public:
  explicit PausingRecorder(ResultRecorder& recorder) : recorder_(recorder) {}

  Value record(const Value& graph, bool passed, const Mapping& keywords) override {
    before_record();
    return recorder_.record(graph, passed, keywords);
  }
  void record_metrics(const Mapping& metrics) override { recorder_.record_metrics(metrics); }

  std::function<void()> before_record = [] {};

 private:
  ResultRecorder& recorder_;
};

class RecordingTest : public ContextTest {
 protected:
  explicit RecordingTest(const PoolSettings& pool = {}, const GateThresholds& gates = open_gates())
      : ContextTest(pool), gates_(gates) {
    RunStart start{1.0, 1, "{}", "prices.csv", "ab12", "0.1.0"};
    start.market_id = pool_identity_.market_id;
    start.era_number = pool_identity_.era_number;
    recorder_.begin(start);
    host_.embedded_engine().set_submission(submission_, {{"client", "test"}});
    host_.pool().set_context(context_);
  }

  static Value negated(const Value& graph) {
    return make_graph_node("arith_neg", kRotationType, List{graph});
  }
  // A long-short book, where those of ranks are long only.
  static Value unlike_the_others() {
    return make_graph_node("cross_demean", kRotationType, List{feature("returns")});
  }
  // The result of a child.
  Mapping evaluated(const Value& graph) {
    return genetic::evaluate_candidate_batch(host_, context_, List{graph}, Value()).at(0).mapping();
  }
  Mapping recorded(const Value& graph) {
    Mapping candidate = evaluated(graph);
    EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
    return candidate;
  }
  void submit(const Mapping& candidate) { genetic::submit_candidate(host_, context_, candidate); }
  // A member of the pool.
  Mapping joined(const Value& graph) {
    Mapping candidate = recorded(graph);
    submit(candidate);
    EXPECT_EQ(submission_.sync().settled.size(), 1U);
    EXPECT_EQ(submissions_of(candidate).at(0).state, SubmissionState::Submitted);
    return candidate;
  }
  std::vector<SubmissionRecord> submissions_of(const Mapping& candidate) {
    return store_.submissions().of_evaluation(genetic::str(candidate.at(keys::kEvalId)));
  }
  EvaluationRecord row_of(const Mapping& candidate) {
    return store_.find_evaluation(genetic::str(candidate.at(keys::kEvalId)))->evaluation;
  }
  static Mapping tracking_of(const Mapping& candidate) {
    return candidate.at(keys::kTrackingMetricKwargs).mapping();
  }

  GateThresholds gates_;
  RecordingObserver observer_;
  RealSystemCalls system_;
  EmbeddedHost host_{system_, evaluator_.vocabulary(), host_settings()};
  RunRecorder recorder_{store_, observer_, host_.lineage(), {10, gates_, {}}};
  PausingRecorder pausing_{recorder_};
  EmbeddedContext context_{evaluator_, context_settings(), stop_,
                           pausing_,   submission_,        host_.timings().recorded()};

 private:
  [[nodiscard]] HostSettings host_settings() const {
    HostSettings settings;
    settings.gates = gates_;
    settings.log = [](LogLevel, std::string_view) {};
    settings.on_tick = [](std::int64_t) {};
    settings.seed = 5;
    return settings;
  }
  [[nodiscard]] ContextSettings context_settings() const {
    ContextSettings settings;
    settings.gates = gates_;
    settings.pool = pool_identity_;
    return settings;
  }
};

TEST_F(RecordingTest, AChildsResultCarriesItsOwnTimingOnEveryRoad) {
  const Mapping candidate = evaluated(ranked("close"));
  EXPECT_TRUE(candidate.at(keys::kPasses).boolean());
  const Mapping timing = candidate.at(keys::kBacktestTiming).mapping();
  EXPECT_TRUE(timing.at("process_id") == candidate.at(keys::kWorkerPid));
  EXPECT_NE(timing.at("process_id").integer(), getpid());
  EXPECT_EQ(timing.at("graph_key").text(), graph_timing_key(ranked("close")));
  const Mapping evidence = candidate.at(keys::kAttemptEvidence).mapping();
  EXPECT_TRUE(evidence.at(keys::kBacktestCompleted).boolean());
  EXPECT_TRUE(evidence.at(keys::kBacktestTiming) == Value(timing));
}

TEST_F(RecordingTest, AChildsResultIsRecordedAndItsPayloadMade) {
  const Mapping candidate = recorded(ranked("close"));
  EXPECT_EQ(candidate.at(keys::kEvalId).text(), "1-1");
  const EvaluationRecord row = row_of(candidate);
  EXPECT_TRUE(row.passed);
  EXPECT_EQ(row.failures_json, "{}");
  EXPECT_EQ(row.market_id, 7);
  EXPECT_EQ(row.era_number, 3);
  // What the parent finds for the same graph, to the last bit.
  const BacktestStatistics statistics = evaluator_.evaluate(ranked("close")).backtest.statistics;
  EXPECT_TRUE(read_json(row.statistics_json) == Value(statistics_mapping(statistics)));

  const Mapping payload = candidate.at(keys::kSubmissionPayload).mapping();
  EXPECT_EQ(payload.at(keys::kEvalId).text(), "1-1") << "not the made-up one";
  EXPECT_EQ(payload.at(keys::kSubmissionType).text(), "signal");
  EXPECT_TRUE(payload.at(keys::kGraph) == ranked("close"));
  EXPECT_EQ(payload.at(keys::kSignalPoolName).text(), "alpha");
  EXPECT_EQ(payload.at(keys::kNamedUniverse).text(), "all");
  EXPECT_EQ(payload.at(keys::kMarketId).integer(), 7);
  EXPECT_EQ(payload.at(keys::kEraNumber).integer(), 3);
  EXPECT_EQ(payload.at("client_manifest").mapping().at("client").text(), "test");
  EXPECT_TRUE(payload.at(keys::kBacktestTiming) == candidate.at(keys::kBacktestTiming));
  const Mapping stats = payload.at(keys::kIsStats).mapping();
  EXPECT_EQ(stats.at(keys::kSharpe).real(), statistics.sharpe);
  EXPECT_EQ(stats.at(keys::kIsPnlMi).real(), 1.0);
  EXPECT_EQ(stats.at(keys::kCorrelation).real(), 0.0);
}

TEST_F(RecordingTest, ARecordIsWrittenOnce) {
  const Mapping candidate = recorded(ranked("close"));
  EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
  EXPECT_EQ(store_.evaluation_count(1), 1);
  EXPECT_EQ(observer_.recorded.size(), 1U);
}

TEST_F(RecordingTest, TimingsThatDisagreeAreNotRecorded) {
  Mapping candidate = evaluated(ranked("close"));
  Mapping evidence = candidate.at(keys::kAttemptEvidence).mapping();
  evidence.at(keys::kBacktestTiming).mapping().set("cpu_seconds", 1e6);
  EXPECT_THROW(
      static_cast<void>(genetic::record_candidate_result_in_parent(host_, context_, candidate)),
      genetic::RuntimeError);
  EXPECT_EQ(store_.evaluation_count(1), 0);
}

TEST_F(RecordingTest, TheTimingOfAnotherGraphIsNotRecorded) {
  Mapping candidate = evaluated(ranked("close"));
  candidate.set(keys::kGraph, ranked("returns"));
  EXPECT_THROW(
      static_cast<void>(genetic::record_candidate_result_in_parent(host_, context_, candidate)),
      genetic::RuntimeError);
  EXPECT_EQ(store_.evaluation_count(1), 0);
}

TEST_F(RecordingTest, AChildComparesItsSignalWithThePool) {
  const StatisticsObject* stats = nullptr;
  const Mapping first = joined(ranked("close"));
  stats = statistics_object(first.at(keys::kStats));
  EXPECT_FALSE(stats->pnl().has_value()) << "there was nothing to compare with";

  const Mapping second = evaluated(unlike_the_others());
  stats = statistics_object(second.at(keys::kStats));
  const Eigen::ArrayXd pnl = evaluator_.evaluate(unlike_the_others()).backtest.net_returns;
  ASSERT_TRUE(stats->pnl().has_value());
  EXPECT_TRUE((*stats->pnl() == pnl).all());
  ASSERT_TRUE(stats->comparison().has_value());
  // What the parent would have found itself.
  SignalPool pool(store_, pool_identity_);
  EXPECT_TRUE(pool.refresh());
  const PoolMeasure expected = pool.measure(pnl);
  EXPECT_EQ(stats->comparison()->members, 1);
  EXPECT_EQ(stats->comparison()->measure.score, expected.score);
  EXPECT_EQ(stats->comparison()->measure.correlation, expected.correlation);
  EXPECT_EQ(stats->comparison()->measure.nearest_by_information, "1-1");
}

TEST_F(RecordingTest, AMemberThatJoinedAfterTheForkCountsToo) {
  joined(unlike_the_others());
  // Compared with the one member, then its twin joins.
  const Mapping candidate = evaluated(negated(ranked("close")));
  joined(ranked("close"));
  EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
  EXPECT_EQ(row_of(candidate).failure_reason, "pnl_mi_below_threshold");
}

TEST_F(RecordingTest, ASignalJoinsThePoolAndItsDoubleIsBlocked) {
  const Mapping member = joined(ranked("close"));
  const Mapping twin = recorded(negated(ranked("close")));
  EXPECT_FALSE(twin.at(keys::kPasses).boolean());
  EXPECT_EQ(twin.at(keys::kSubmissionBlockedReason).text(), "pnl_mi_below_threshold");
  EXPECT_EQ(tracking_of(twin).at(keys::kMiVerdict).mapping().at("verdict").text(), "failed");
  const EvaluationRecord row = row_of(twin);
  EXPECT_FALSE(row.passed);
  EXPECT_EQ(row.failure_reason, "pnl_mi_below_threshold");
  EXPECT_THAT(row.failure_detail.value_or(""), HasSubstr("below 0.2"));
  const Value evidence = read_json(row.failures_json).mapping().at("pnl_mi_below_threshold");
  EXPECT_EQ(evidence.mapping().at(keys::kThreshold).real(), 0.2);
  EXPECT_EQ(evidence.mapping().at(keys::kGate).text(), "is_pnl_mi_threshold");
  submit(twin);
  EXPECT_EQ(store_.submissions().list({}).size(), 1U);
}

TEST_F(RecordingTest, TheSubmissionHoldsThePnlAndThePayload) {
  const Mapping candidate = joined(ranked("close"));
  const Value payload = read_json(submissions_of(candidate).at(0).payload_json);
  EXPECT_TRUE(payload == candidate.at(keys::kSubmissionPayload));
  EXPECT_FALSE(payload.mapping().contains(keys::kSubmissionPendingReason));
  const std::vector<SubmissionPnl> members = store_.submissions().members(pool_identity_);
  ASSERT_EQ(members.size(), 1U);
  const Eigen::ArrayXd expected = evaluator_.evaluate(ranked("close")).backtest.net_returns;
  EXPECT_EQ(*members[0].pnl, std::vector<double>(expected.begin(), expected.end()));
}

TEST_F(RecordingTest, AnEnqueueThatTheBusyStoreRefusesIsTriedAgain) {
  const Mapping candidate = recorded(ranked("close"));
  {
    SqliteDatabase other(database(), 0);
    const SqliteTransaction held(other, "holding the lock");
    submit(candidate);
  }
  EXPECT_FALSE(candidate.contains(keys::kSubmissionEnqueued));
  submit(candidate);
  submit(candidate);
  EXPECT_EQ(submissions_of(candidate).size(), 1U);
}

// While the candidate is measured another process holds the lock; it lets go before the record.
class BusyPoolTest : public RecordingTest {
 protected:
  Mapping recorded_while_busy(const Value& graph) {
    Mapping candidate = evaluated(graph);
    auto other = std::make_unique<SqliteDatabase>(database(), 0);
    auto held = std::make_unique<SqliteTransaction>(*other, "holding the lock");
    pausing_.before_record = [&held] { held.reset(); };
    EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
    EXPECT_EQ(held, nullptr);
    pausing_.before_record = [] {};
    return candidate;
  }
};

TEST_F(BusyPoolTest, UnconfirmedMembershipMakesTheCandidateWaitAndTheSyncSubmitsIt) {
  const Mapping candidate = recorded_while_busy(ranked("close"));
  EXPECT_TRUE(candidate.at(keys::kPasses).boolean());
  EXPECT_EQ(candidate.at(keys::kSubmissionPendingReason).text(), "pool_metrics_refresh_required");
  EXPECT_EQ(tracking_of(candidate).at(keys::kPoolMetricsPendingDetail).text(),
            "found signal membership is not confirmed");
  EXPECT_TRUE(row_of(candidate).passed);
  submit(candidate);
  const SubmissionRecord queued = submissions_of(candidate).at(0);
  EXPECT_EQ(queued.state, SubmissionState::Queued);
  EXPECT_EQ(queued.pending_reason, "pool_metrics_refresh_required");
  const Value payload = read_json(queued.payload_json);
  EXPECT_EQ(payload.mapping().at(keys::kSubmissionPendingReason).text(),
            "pool_metrics_refresh_required");
  EXPECT_EQ(submission_.sync().settled.size(), 1U);
  EXPECT_EQ(submissions_of(candidate).at(0).state, SubmissionState::Submitted);
}

TEST_F(BusyPoolTest, TheSyncRefusesByTheGatesThatItWaitedFor) {
  joined(ranked("close"));
  const Mapping twin = recorded_while_busy(negated(ranked("close")));
  submit(twin);
  const SyncReport report = submission_.sync();
  recorder_.settled(report);
  ASSERT_EQ(report.settled.size(), 1U);
  EXPECT_EQ(report.settled[0].refusal->reason, "pnl_mi_below_threshold");
  EXPECT_EQ(submissions_of(twin).at(0).state, SubmissionState::Refused);
  ASSERT_EQ(observer_.settled.size(), 1U);
  EXPECT_FALSE(observer_.settled[0].submitted);
  EXPECT_EQ(observer_.settled[0].refusal_reason, "pnl_mi_below_threshold");
  EXPECT_EQ(recorder_.submissions().refused.at("pnl_mi_below_threshold"), 1);
  EXPECT_EQ(recorder_.submissions().submitted, 0);
  // The evaluation stays what it was recorded as: it passed when it was measured.
  EXPECT_TRUE(row_of(twin).passed);
}

TEST_F(RecordingTest, AMembersMissingPnlMakesACandidateWaitUntilItIsBack) {
  joined(ranked("close"));
  execute("ALTER TABLE submissions ADD COLUMN saved BLOB");
  execute("UPDATE submissions SET saved = pnl, pnl = NULL");
  const Mapping candidate = recorded(unlike_the_others());
  EXPECT_TRUE(candidate.at(keys::kPasses).boolean());
  EXPECT_THAT(genetic::str(tracking_of(candidate).at(keys::kPoolMetricsPendingDetail)),
              HasSubstr("pool member 1-1 has no PnL"));
  submit(candidate);
  const SyncReport waiting = submission_.sync();
  recorder_.settled(waiting);
  EXPECT_TRUE(waiting.settled.empty());
  EXPECT_EQ(recorder_.submissions().waiting, 1);
  EXPECT_EQ(submissions_of(candidate).at(0).pending_reason, "pool_metrics_refresh_required");
  execute("UPDATE submissions SET pnl = saved WHERE saved IS NOT NULL");
  const SyncReport report = submission_.sync();
  recorder_.settled(report);
  ASSERT_EQ(report.settled.size(), 1U);
  EXPECT_EQ(recorder_.submissions().waiting, 0);
  EXPECT_EQ(submissions_of(candidate).at(0).state, SubmissionState::Submitted);
}

class FewDaysRecordingTest : public RecordingTest {
 protected:
  FewDaysRecordingTest() : RecordingTest({.minimum_days = 1000}) {}
};

TEST_F(FewDaysRecordingTest, TooFewDaysMakeACandidateWaitUntilFewerAreEnough) {
  joined(ranked("close"));
  const Mapping candidate = recorded(unlike_the_others());
  EXPECT_THAT(genetic::str(tracking_of(candidate).at(keys::kPoolMetricsPendingDetail)),
              HasSubstr("199 days in common"));
  submit(candidate);
  EXPECT_EQ(submission_.sync().waiting.size(), 1U);
  EXPECT_EQ(submissions_of(candidate).at(0).state, SubmissionState::Queued);
  SignalSubmission lenient(store_, evaluator_, pool_identity_, {.minimum_days = 100});
  EXPECT_EQ(lenient.sync().settled.size(), 1U);
  EXPECT_EQ(submissions_of(candidate).at(0).state, SubmissionState::Submitted);
}

class CorrelationRecordingTest : public RecordingTest {
 protected:
  CorrelationRecordingTest() : RecordingTest({.pnl_mi_min = 0.0}) {}
};

TEST_F(CorrelationRecordingTest, CorrelationBlocksWhereMutualInformationDoesNot) {
  joined(ranked("close"));
  const Mapping twin = recorded(negated(ranked("close")));
  EXPECT_EQ(tracking_of(twin).at(keys::kMiVerdict).mapping().at("verdict").text(), "passed");
  const EvaluationRecord row = row_of(twin);
  EXPECT_EQ(row.failure_reason, "correlation_exceeded");
  EXPECT_THAT(row.failure_detail.value_or(""), HasSubstr("correlation 1 is above 0.7"));
}

class GatedRecordingTest : public RecordingTest {
 protected:
  GatedRecordingTest() : RecordingTest({}, {.max_turnover = -1.0, .min_sharpe = 1e6}) {}
};

TEST_F(GatedRecordingTest, AFailureIsRecordedWithAllOfItsReasonsAndItsTiming) {
  const Mapping candidate = recorded(ranked("close"));
  EXPECT_FALSE(candidate.at(keys::kPasses).boolean());
  EXPECT_TRUE(candidate.at(keys::kBacktestTiming).is_mapping());
  const EvaluationRecord row = row_of(candidate);
  EXPECT_EQ(row.failure_reason, "turnover_max");
  EXPECT_THAT(row.failure_detail.value_or(""), HasSubstr("is above -1"));
  const Mapping failures = read_json(row.failures_json).mapping();
  EXPECT_EQ(failures.at("sharpe_min").mapping().at(keys::kThreshold).real(), 1e6);
  EXPECT_EQ(failures.at("turnover_max").mapping().at(keys::kThreshold).real(), -1.0);
  submit(candidate);
  EXPECT_TRUE(store_.submissions().list({}).empty());
}

}  // namespace
}  // namespace varnholt::embedded
