// What the pool makes of a candidate that passed its gates: it blocks what is like a member, and
// where it cannot be measured against it makes the candidate wait, not fail.
// Method: a store whose lock another connection holds, PnL series taken out of the file, and pools
// that ask for more days than there are.
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "tests/hosts/embedded/search/recording_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;
using ::testing::HasSubstr;

TEST_F(RecordingTest, AChildComparesItsSignalWithThePool) {
  const StatisticsObject* stats = nullptr;
  const Mapping first = joined(ranked("close"));
  stats = statistics_object(first.at(keys::kStats));
  EXPECT_TRUE(stats->pnl().has_value()) << "it is submitted with it";
  EXPECT_FALSE(stats->comparison().has_value()) << "there was nothing to compare with";

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
  EXPECT_EQ(stats->comparison()->measure.novelty, expected.novelty);
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

TEST_F(RecordingTest, APoolOfOtherDaysMakesACandidateWaitUntilTheyAreBack) {
  // Another process brings the member in, so that this one has not read its PnL.
  submit(recorded(ranked("close")));
  EXPECT_EQ(SignalSubmission(store_, evaluator_, pool_identity_, {}).sync().settled.size(), 1U);
  execute("ALTER TABLE submissions ADD COLUMN saved BLOB");
  execute("UPDATE submissions SET saved = pnl, pnl = substr(pnl, 1, length(pnl) - 8)");
  const Mapping candidate = recorded(unlike_the_others());
  EXPECT_TRUE(candidate.at(keys::kPasses).boolean());
  EXPECT_THAT(genetic::str(tracking_of(candidate).at(keys::kPoolMetricsPendingDetail)),
              HasSubstr("pool member 1-1 has the PnL of "));
  submit(candidate);
  const SyncReport waiting = submission_.sync();
  recorder_.settled(waiting);
  EXPECT_TRUE(waiting.settled.empty());
  EXPECT_EQ(recorder_.submissions().waiting, 1);
  ASSERT_EQ(observer_.logs.size(), 1U);
  EXPECT_THAT(observer_.logs[0], HasSubstr(" waits: pool member 1-1 has the PnL of "));
  recorder_.settled(submission_.sync());
  EXPECT_EQ(observer_.logs.size(), 1U) << "the same reason is told once";
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
  CorrelationRecordingTest() : RecordingTest({.novelty_min = 0.0, .replaces_weaker = false}) {}
};

TEST_F(CorrelationRecordingTest, CorrelationBlocksWhereMutualInformationDoesNot) {
  joined(ranked("close"));
  const Mapping twin = recorded(negated(ranked("close")));
  EXPECT_EQ(tracking_of(twin).at(keys::kMiVerdict).mapping().at("verdict").text(), "passed");
  const EvaluationRecord row = row_of(twin);
  EXPECT_EQ(row.failure_reason, "correlation_exceeded");
  EXPECT_THAT(row.failure_detail.value_or(""), HasSubstr("correlation 1 is above 0.7"));
}

}  // namespace
}  // namespace varnholt::embedded::test
