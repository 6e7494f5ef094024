// The way of a signal into the pool: what is measured, when the measure is kept, and what becomes
// of it when the store is busy or the pool's data is not ready.
// Method: real backtests of a small universe, a second connection that holds the lock, and rows
// changed behind the store's back.
#include "hosts/embedded/host/signal_submission.hpp"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;
using ::testing::HasSubstr;

class SignalSubmissionTest : public ContextTest {
 protected:
  explicit SignalSubmissionTest(const PoolSettings& pool = first_stays()) : ContextTest(pool) {
    run_ = store_.begin_run({1.0, 1, "{}", "prices.csv", "ab12", "0.1.0"});
  }

  [[nodiscard]] Value stats_of(const Value& graph) const {
    const BacktestResult backtest = evaluator_.evaluate(graph).backtest;
    return genetic::make_object<StatisticsObject>(backtest.statistics, backtest.net_returns);
  }
  [[nodiscard]] static Value without_pnl() {
    return genetic::make_object<StatisticsObject>(BacktestStatistics());
  }
  // The payload of a recorded evaluation of the graph.
  Mapping recorded(const Value& graph) {
    EvaluationRecord record;
    record.candidate_number = ++candidates_;
    record.graph_json = genetic::canonical_graph_string(graph);
    record.graph_key = "key" + std::to_string(candidates_);
    record.passed = true;
    record.statistics_json = "null";
    store_.record_evaluations(run_, {record});
    return {{keys::kEvalId, eval_id_of(run_, candidates_)}, {keys::kGraph, graph}};
  }
  // Makes the graph's signal a member.
  std::string join(const Value& graph) { return join(graph, submission_); }
  // The same by another process, so that this one has not read its PnL.
  std::string join_elsewhere(const Value& graph) {
    SignalSubmission other(store_, evaluator_, pool_identity_, {});
    return join(graph, other);
  }
  std::string join(const Value& graph, SignalSubmission& submission) {
    const Mapping payload = recorded(graph);
    EXPECT_TRUE(submission.enqueue(payload));
    const SyncReport report = submission.sync();
    EXPECT_EQ(report.settled.size(), 1U);
    EXPECT_FALSE(report.settled.at(0).refusal.has_value());
    return std::string(payload.at(keys::kEvalId).text());
  }

  std::int64_t run_ = 0;
  std::int64_t candidates_ = 0;
};

TEST_F(SignalSubmissionTest, AnEmptyPoolNeedsNoPnl) {
  EXPECT_TRUE(submission_.refresh());
  EXPECT_FALSE(submission_.has_members());
  const PoolMeasure& measure = submission_.measure(without_pnl());
  EXPECT_EQ(measure.novelty, 1.0);
  EXPECT_EQ(measure.correlation, 0.0);
  EXPECT_FALSE(measure.nearest_by_correlation.has_value());
}

TEST_F(SignalSubmissionTest, MembersAreComparedByTheirPnl) {
  const std::string member = join(ranked("close"));
  EXPECT_TRUE(submission_.refresh());
  EXPECT_TRUE(submission_.has_members());
  EXPECT_THROW(static_cast<void>(submission_.measure(without_pnl())), genetic::ValueError);
  EXPECT_THROW(static_cast<void>(submission_.measure(7)), genetic::ValueError);
  const PoolMeasure itself = submission_.measure(stats_of(ranked("close")));
  EXPECT_NEAR(itself.correlation, 1.0, 1e-12);
  EXPECT_LT(itself.novelty, 0.1);
  EXPECT_EQ(itself.nearest_by_information, member);
  const PoolMeasure other = submission_.measure(stats_of(ranked("volume")));
  EXPECT_LT(other.correlation, itself.correlation);
  EXPECT_GT(other.novelty, itself.novelty);
}

TEST_F(SignalSubmissionTest, TheMeasureOfTheLastStatisticsIsKept) {
  join(ranked("close"));
  EXPECT_TRUE(submission_.refresh());
  const Value stats = stats_of(ranked("volume"));
  const PoolMeasure first = submission_.measure(stats);
  // Another process adds the very signal: it is not seen before the next refresh.
  SqliteRunStore other_store(database());
  SignalSubmission other(other_store, evaluator_, pool_identity_,
                         {.correlation_max = 1.0, .novelty_min = 0.0});
  EXPECT_TRUE(other.enqueue(recorded(ranked("volume"))));
  ASSERT_EQ(other.sync().settled.size(), 1U);
  EXPECT_EQ(submission_.measure(stats).correlation, first.correlation);
  EXPECT_TRUE(submission_.refresh());
  EXPECT_NEAR(submission_.measure(stats).correlation, 1.0, 1e-12);
}

TEST_F(SignalSubmissionTest, ASyncThatBringsMembersInDropsTheMeasureToo) {
  EXPECT_TRUE(submission_.refresh());
  const Value stats = stats_of(ranked("close"));
  EXPECT_EQ(submission_.measure(stats).correlation, 0.0);
  join(ranked("close"));
  EXPECT_TRUE(submission_.has_members()) << "without a refresh";
  EXPECT_NEAR(submission_.measure(stats).correlation, 1.0, 1e-12);
}

TEST_F(SignalSubmissionTest, TheMeasureOfOtherStatisticsIsNotTaken) {
  join(ranked("close"));
  EXPECT_TRUE(submission_.refresh());
  const double of_close = submission_.measure(stats_of(ranked("close"))).correlation;
  EXPECT_NE(submission_.measure(stats_of(ranked("volume"))).correlation, of_close);
}

TEST_F(SignalSubmissionTest, ABusyStoreConfirmsNothingAndTakesNothing) {
  const Mapping payload = recorded(ranked("close"));
  {
    SqliteDatabase other(database(), 0);
    const SqliteTransaction held(other, "holding the lock");
    EXPECT_FALSE(submission_.refresh());
    EXPECT_FALSE(submission_.enqueue(payload));
  }
  EXPECT_TRUE(store_.submissions().list({}).empty());
  EXPECT_TRUE(submission_.enqueue(payload));
  {
    SqliteDatabase other(database(), 0);
    const SqliteTransaction held(other, "holding the lock");
    EXPECT_TRUE(submission_.sync().store_was_busy);
  }
  EXPECT_EQ(submission_.sync().settled.size(), 1U);
}

TEST_F(SignalSubmissionTest, AMemberWithoutPnlIsToldByTheSyncAndLeavesTheRestAlone) {
  const std::string member = join_elsewhere(ranked("close"));
  execute("UPDATE submissions SET pnl = NULL");
  const SyncReport report = submission_.sync();
  ASSERT_EQ(report.set_aside.size(), 1U);
  EXPECT_EQ(report.set_aside[0].eval_id, member);
  EXPECT_EQ(submission_.measure(stats_of(ranked("volume"))).novelty, 1.0);
}

TEST_F(SignalSubmissionTest, APoolOfOtherDaysIsPoolDataNotReady) {
  const std::string member = join_elsewhere(ranked("close"));
  execute("UPDATE submissions SET pnl = substr(pnl, 1, length(pnl) - 8)");
  EXPECT_TRUE(submission_.refresh());
  try {
    static_cast<void>(submission_.measure(stats_of(ranked("volume"))));
    FAIL() << "a pool without its PnL cannot be measured against";
  } catch (const PoolDataNotReady& error) {
    EXPECT_THAT(error.what(), HasSubstr("pool member " + member + " has the PnL of "));
  }
}

TEST_F(SignalSubmissionTest, AFailedMeasureIsNotKept) {
  join_elsewhere(ranked("close"));
  execute("ALTER TABLE submissions ADD COLUMN saved BLOB");
  execute("UPDATE submissions SET saved = pnl, pnl = substr(pnl, 1, length(pnl) - 8)");
  const Value stats = stats_of(ranked("volume"));
  EXPECT_TRUE(submission_.refresh());
  EXPECT_THROW(static_cast<void>(submission_.measure(stats)), PoolDataNotReady);
  execute("UPDATE submissions SET pnl = saved");
  EXPECT_TRUE(submission_.refresh());
  EXPECT_GT(submission_.measure(stats).correlation, 0.0);
}

TEST_F(SignalSubmissionTest, TheKeptPnlOfAnEvaluationIsThatOfItsSubmission) {
  const Mapping payload = recorded(ranked("close"));
  // Told apart from what a backtest of the payload's graph would give.
  const Eigen::ArrayXd marked = required_pnl(stats_of(ranked("close"))) * 2.0;
  submission_.keep_pnl("1-77", stats_of(ranked("volume")));
  submission_.keep_pnl(payload.at(keys::kEvalId),
                       genetic::make_object<StatisticsObject>(BacktestStatistics(), marked));
  EXPECT_TRUE(submission_.enqueue(payload));
  EXPECT_EQ(submission_.sync().settled.size(), 1U);
  const std::vector<SubmissionPnl> members = store_.submissions().members(pool_identity_);
  ASSERT_EQ(members.size(), 1U);
  EXPECT_EQ(*members[0].pnl, std::vector<double>(marked.begin(), marked.end()));
}

TEST_F(SignalSubmissionTest, WithoutAKeptPnlTheGraphIsEvaluated) {
  const Mapping payload = recorded(ranked("close"));
  submission_.keep_pnl(payload.at(keys::kEvalId), without_pnl());
  submission_.keep_pnl(payload.at(keys::kEvalId), Value());
  EXPECT_TRUE(submission_.enqueue(payload));
  EXPECT_EQ(submission_.sync().settled.size(), 1U);
  const std::vector<SubmissionPnl> members = store_.submissions().members(pool_identity_);
  ASSERT_EQ(members.size(), 1U);
  const Eigen::ArrayXd expected = evaluator_.evaluate(ranked("close")).backtest.net_returns;
  EXPECT_EQ(*members[0].pnl, std::vector<double>(expected.begin(), expected.end()));
}

TEST_F(SignalSubmissionTest, WhatIsNotRecordedCannotBeSubmitted) {
  const Mapping payload{{keys::kEvalId, "1-99"}, {keys::kGraph, ranked("close")}};
  EXPECT_THROW(static_cast<void>(submission_.enqueue(payload)), StoreError);
  EXPECT_TRUE(store_.submissions().list({}).empty());
}

// Signals that are like a member may join.
class OpenPoolTest : public SignalSubmissionTest {
 protected:
  OpenPoolTest()
      : SignalSubmissionTest(
            {.correlation_max = 1.0, .novelty_min = 0.0, .replaces_weaker = false}) {}
};

TEST_F(OpenPoolTest, TellsWhatItsMembersDoBesideTheMarket) {
  join(ranked("close"));
  const Eigen::ArrayXd pnl = required_pnl(stats_of(ranked("close")));
  const Eigen::ArrayXd market = Eigen::ArrayXd::LinSpaced(pnl.size(), -0.01, 0.02).cos();
  const std::vector<Behaviour> members = submission_.member_behaviours(market);
  ASSERT_EQ(members.size(), 1U);
  const Behaviour expected =
      behaviour_of(pnl, market, evaluator_.options().book.periods_per_year).value();
  EXPECT_EQ(members[0].residual_sharpe, expected.residual_sharpe);
  EXPECT_NEAR(members[0].likeness(expected), 1.0, 1e-12);
  join(ranked("volume"));
  const std::vector<Behaviour> later = submission_.member_behaviours(market);
  ASSERT_EQ(later.size(), 2U);
  EXPECT_EQ(later[0].residual_sharpe, expected.residual_sharpe);
  EXPECT_NE(later[1].residual_sharpe, expected.residual_sharpe);
}

class FewDaysTest : public SignalSubmissionTest {
 protected:
  FewDaysTest() : SignalSubmissionTest({.minimum_days = 1000}) {}
};

TEST_F(FewDaysTest, TooFewDaysInCommonAreNotReadyEither) {
  join(ranked("close"));
  EXPECT_TRUE(submission_.refresh());
  EXPECT_THROW(static_cast<void>(submission_.measure(stats_of(ranked("volume")))),
               PoolDataNotReady);
}

}  // namespace
}  // namespace varnholt::embedded::test
