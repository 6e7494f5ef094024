// From a child's result to a row of the store and a member of the pool: what crosses the process
// boundary is enough to record and submit a candidate.
// Method: real children of the embedded pool, the library's recording and submitting.
#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/timing/backtest_timing.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/hosts/embedded/search/recording_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;
using ::testing::HasSubstr;

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

TEST_F(RecordingTest, ARepairIsRecordedWithItsPlanAndCounted) {
  EXPECT_EQ(recorder_.progress().round_under_way, 0);
  const RepairNote reversal{"reverse", "sharpe_min", "the opposite", 2};
  lineage_.note_repair(ranked("close"), {negated(ranked("close"))}, reversal);
  lineage_.note_repair(unlike_the_others(), {ranked("close")}, {"demean", "", "", 1});
  EXPECT_EQ(recorder_.progress().round_under_way, 1);
  const Mapping candidate = joined(ranked("close"));
  recorder_.settled({{{1, "1-1", {}, {}}}, {}});
  static_cast<void>(recorded(unlike_the_others()));
  EXPECT_EQ(row_of(candidate).lineage_json,
            R"({"depth":2,"explanation":"the opposite","origin":"repaired","parents":[")" +
                sha256_hex(genetic::canonical_graph_string(negated(ranked("close")))) +
                R"("],"plan":"reverse","reason":"sharpe_min"})");
  EXPECT_EQ(observer_.recorded.at(0).repaired_by, "reverse");
  EXPECT_FALSE(observer_.recorded.at(0).bred);

  const SearchProgress progress = recorder_.progress();
  EXPECT_EQ(progress.repair_rounds, 1);
  EXPECT_EQ(progress.round_under_way, 1);
  EXPECT_EQ(progress.repairs.at("reverse"), (RepairCount{1, 1, 1}));
  EXPECT_EQ(progress.repairs.at("demean"), (RepairCount{1, 1, 0}));
  EXPECT_EQ(progress.all_repairs(), (RepairCount{2, 2, 1}));

  // Another round of the same generation, and one of the next.
  lineage_.note_repair(ranked("returns"), {ranked("close")}, reversal);
  EXPECT_EQ(recorder_.progress().round_under_way, 2);
  static_cast<void>(recorded(ranked("returns")));
  EXPECT_EQ(recorder_.progress().repair_rounds, 2);
  recorder_.generation_done();
  EXPECT_EQ(observer_.generations.back().repaired_in_generation, 3);
  EXPECT_EQ(observer_.generations.back().fresh_in_generation, 0);
  EXPECT_EQ(observer_.generations.back().repair_rounds, 2);
  EXPECT_EQ(recorder_.progress().round_under_way, 0);
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

// The PnL that joins the pool is the one that the child sent: had the parent run a backtest of its
// own, the marked one could not be there.
TEST_F(RecordingTest, APassingCandidateIsBacktestedOnceAndInItsChild) {
  Mapping candidate = evaluated(ranked("close"));
  const StatisticsObject& sent = *statistics_object(candidate.at(keys::kStats));
  ASSERT_TRUE(sent.pnl().has_value());
  const Eigen::ArrayXd marked = *sent.pnl() * 2.0;
  candidate.set(keys::kStats, genetic::make_object<StatisticsObject>(sent.statistics(), marked));
  EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
  submit(candidate);
  EXPECT_EQ(submission_.sync().settled.size(), 1U);
  const std::vector<SubmissionPnl> members = store_.submissions().members(pool_identity_);
  ASSERT_EQ(members.size(), 1U);
  EXPECT_EQ(*members[0].pnl, std::vector<double>(marked.begin(), marked.end()));
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

class GatedRecordingTest : public RecordingTest {
 protected:
  GatedRecordingTest() : RecordingTest(first_stays(), {.max_turnover = -1.0, .min_sharpe = 1e6}) {}
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

TEST_F(GatedRecordingTest, TheNearestThatFailedEachGateIsKept) {
  std::vector<double> sharpes;
  for (const char* const feature : {"close", "volume", "returns"}) {
    const EvaluationRecord row = row_of(recorded(ranked(feature)));
    sharpes.push_back(row.sharpe.value_or(0.0));
  }
  const auto misses = recorder_.progress().nearest_misses;
  ASSERT_TRUE(misses.contains("sharpe_min") && misses.contains("turnover_max"));
  EXPECT_EQ(misses.at("sharpe_min").actual, *std::max_element(sharpes.begin(), sharpes.end()));
  EXPECT_EQ(misses.at("sharpe_min").threshold, 1e6);
  EXPECT_LT(misses.at("turnover_max").actual, 2.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
