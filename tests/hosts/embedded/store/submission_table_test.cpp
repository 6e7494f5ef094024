// A payload is queued once for each structure of a pool and settled once. Method: a store in a
// temporary folder with a few evaluations, read back through a second connection.
#include "hosts/embedded/store/submission_table.hpp"

#include <array>
#include <cmath>
#include <limits>

#include <gmock/gmock.h>

#include "hosts/embedded/store/store_reader.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class SubmissionTableTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    store_.emplace(path_);
    const std::int64_t run = store_->begin_run(start());
    EvaluationRecord twin = passing(4, 1.0);
    twin.graph_key = "key1";
    store_->record_evaluations(run, {passing(1, 1.0), passing(2, 1.0), passing(3, 1.0), twin});
  }
  Enqueued enqueue(const std::string& eval_id, const PoolIdentity& pool) {
    return table().enqueue({pool, eval_id, {}, R"({"a":1})", pnl_, 100.0});
  }
  Enqueued enqueue(const std::string& eval_id) { return enqueue(eval_id, pool_); }
  SubmissionTable& table() { return store_->submissions(); }

  static Settlement accepted(double at) { return {0.75, 0.5, 0.25, 0.7, {}, {}, at}; }
  static Settlement refused(double at) { return {0.25, 0.5, 0.25, 0.7, "too close", "why", at}; }
  static std::vector<std::string> ids(const std::vector<SubmissionPnl>& submissions) {
    std::vector<std::string> found;
    for (const SubmissionPnl& submission : submissions)
      found.push_back(submission.eval_id);
    return found;
  }

  std::optional<SqliteRunStore> store_;
  const PoolIdentity pool_{"alpha", 1, 2, "data"};
  const std::vector<double> pnl_{0.5, -0.25, 0.0};
};

TEST_F(SubmissionTableTest, KeepsEveryFieldOfAQueuedPayload) {
  const Enqueued enqueued =
      table().enqueue({pool_, "1-2", "pool_metrics_refresh_required", R"({"a":1})", pnl_, 100.5});
  EXPECT_TRUE(enqueued.added);
  const std::optional<SubmissionRecord> found =
      SqliteRunStore(path_).submissions().find(enqueued.id);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->id, enqueued.id);
  EXPECT_EQ(found->run, 1);
  EXPECT_EQ(found->eval_id, "1-2");
  EXPECT_EQ(found->graph_key, "key2");
  EXPECT_EQ(found->pool, pool_);
  EXPECT_EQ(found->state, SubmissionState::Queued);
  EXPECT_STREQ(name_of(found->state), "queued");
  EXPECT_EQ(found->pending_reason, "pool_metrics_refresh_required");
  EXPECT_EQ(found->payload_json, R"({"a":1})");
  EXPECT_EQ(found->queued_at, 100.5);
  EXPECT_FALSE(found->settlement.has_value());
  EXPECT_FALSE(table().find(enqueued.id + 1).has_value());
}

TEST_F(SubmissionTableTest, KeepsEveryBitOfThePnl) {
  const std::vector<double> odd{0.1, -0.0, 5e-324, -1.7976931348623157e308,
                                std::numeric_limits<double>::infinity()};
  table().enqueue({pool_, "1-1", {}, "{}", odd, 1.0});
  const std::optional<SubmissionPnl> queued = table().queued(1, "data");
  ASSERT_TRUE(queued.has_value());
  ASSERT_TRUE(queued->pnl.has_value());
  EXPECT_EQ(*queued->pnl, odd);
  EXPECT_TRUE(std::signbit(queued->pnl->at(1)));
  // The bytes are those that the documentation tells other programs to expect.
  EXPECT_EQ(SqliteDatabase(path_, 0).query_text("SELECT substr(hex(pnl), 1, 16) FROM submissions",
                                                "reading"),
            "9A9999999999B93F");
}

TEST_F(SubmissionTableTest, APnlThatIsLostOrTornIsAbsent) {
  enqueue("1-1");
  SqliteDatabase other(path_, 0);
  other.execute("UPDATE submissions SET pnl = x'00112233445566'", "tearing it");
  EXPECT_FALSE(table().queued(1, "data")->pnl.has_value());
  other.execute("UPDATE submissions SET pnl = NULL", "losing it");
  EXPECT_FALSE(table().queued(1, "data")->pnl.has_value());
}

TEST_F(SubmissionTableTest, AStructureIsThereOnceInAPool) {
  const Enqueued first = enqueue("1-1");
  EXPECT_TRUE(first.added);
  for (const char* same : {"1-1", "1-4"}) {
    const Enqueued again = enqueue(same);
    EXPECT_FALSE(again.added) << same;
    EXPECT_EQ(again.id, first.id) << same;
  }
  EXPECT_TRUE(table().settle(first.id, accepted(200)));
  EXPECT_FALSE(enqueue("1-4").added) << "submitted is there as well";
  EXPECT_EQ(table().list({}).size(), 1U);
  for (const PoolIdentity& same :
       {PoolIdentity{"alpha", 1, 3, "data"}, PoolIdentity{"alpha", 1, 2, "date"}}) {
    EXPECT_FALSE(enqueue("1-1", same).added) << "eras and prices come and go";
  }
  for (const PoolIdentity& other :
       {PoolIdentity{"beta", 1, 2, "data"}, PoolIdentity{"alpha", 2, 2, "data"}}) {
    EXPECT_TRUE(enqueue("1-1", other).added);
  }
}

TEST_F(SubmissionTableTest, ARefusedStructureMayBeEnqueuedAgain) {
  const Enqueued first = enqueue("1-1");
  table().settle(first.id, refused(200));
  const Enqueued second = enqueue("1-1");
  EXPECT_TRUE(second.added);
  EXPECT_NE(second.id, first.id);
  const std::vector<SubmissionRecord> both = table().of_evaluation("1-1");
  ASSERT_EQ(both.size(), 2U);
  EXPECT_EQ(both[0].state, SubmissionState::Refused);
  EXPECT_EQ(both[1].state, SubmissionState::Queued);
  EXPECT_TRUE(table().of_evaluation("1-4").empty());
}

TEST_F(SubmissionTableTest, NeedsAnEvaluation) {
  EXPECT_THAT(error_of([&] { enqueue("1-9"); }),
              HasSubstr("enqueueing a submission failed: there is no evaluation 1-9; record the "
                        "evaluation first"));
  SqliteDatabase other(path_, 0);
  other.execute("PRAGMA foreign_keys = ON", "setting it up");
  enqueue("1-1");
  EXPECT_THAT(error_of([&] { other.execute("DELETE FROM evaluations", "deleting"); }),
              HasSubstr("FOREIGN KEY"));
}

TEST_F(SubmissionTableTest, IsSettledOnce) {
  const std::int64_t first = enqueue("1-1").id;
  const std::int64_t second = enqueue("1-2").id;
  EXPECT_TRUE(table().settle(second, refused(200.5)));
  EXPECT_TRUE(table().settle(first, accepted(300.5)));
  EXPECT_FALSE(table().settle(first, refused(400)));
  EXPECT_FALSE(table().settle(77, accepted(400)));

  const SubmissionRecord submitted = *table().find(first);
  EXPECT_EQ(submitted.state, SubmissionState::Submitted);
  EXPECT_EQ(submitted.settlement->novelty, 0.75);
  EXPECT_EQ(submitted.settlement->novelty_threshold, 0.5);
  EXPECT_EQ(submitted.settlement->correlation, 0.25);
  EXPECT_EQ(submitted.settlement->correlation_threshold, 0.7);
  EXPECT_EQ(submitted.settlement->settled_at, 300.5);
  EXPECT_FALSE(submitted.settlement->refusal_reason.has_value());
  EXPECT_FALSE(submitted.settlement->refusal_detail.has_value());
  const SubmissionRecord turned_down = *table().find(second);
  EXPECT_EQ(turned_down.state, SubmissionState::Refused);
  EXPECT_EQ(turned_down.settlement->refusal_reason, "too close");
  EXPECT_EQ(turned_down.settlement->refusal_detail, "why");
}

TEST_F(SubmissionTableTest, DoesNotSettleWithoutMeasuredValues) {
  const std::int64_t id = enqueue("1-1").id;
  Settlement unmeasured = accepted(1);
  unmeasured.novelty = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(error_of([&] { table().settle(id, unmeasured); }), HasSubstr("CHECK constraint"));
  EXPECT_EQ(table().find(id)->state, SubmissionState::Queued);
}

TEST_F(SubmissionTableTest, ListsMembersInTheOrderOfSettlement) {
  const std::int64_t first = enqueue("1-1").id;
  const std::int64_t second = enqueue("1-2").id;
  const std::int64_t third = enqueue("1-3").id;
  enqueue("1-1", {"beta", 1, 2, "data"});
  EXPECT_TRUE(table().members(pool_).empty());
  table().settle(third, accepted(1));
  table().settle(second, refused(2));
  table().settle(first, accepted(3));
  const std::vector<SubmissionPnl> members = table().members(pool_);
  EXPECT_THAT(ids(members), ElementsAre("1-3", "1-1"));
  EXPECT_EQ(members[0].pnl, pnl_);
  EXPECT_LT(members[0].settled_order, members[1].settled_order);
  EXPECT_THAT(ids(table().members(pool_, members[0].settled_order)), ElementsAre("1-1"));
  EXPECT_THAT(table().member_numbers(pool_), ElementsAre(third, first));
  EXPECT_TRUE(table().member_numbers({"beta", 1, 2, "data"}).empty());
  // The number of a row that is gone is not given again.
  SqliteDatabase(path_, 0).execute("DELETE FROM submissions", "deleting");
  EXPECT_GT(enqueue("1-1").id, third);
}

TEST_F(SubmissionTableTest, TheVersionOfTheMembersChangesWithThem) {
  const std::int64_t at_first = table().members_version();
  const std::int64_t id = enqueue("1-1").id;
  EXPECT_EQ(table().members_version(), at_first) << "queued is no member";
  table().settle(id, accepted(5.0));
  const std::int64_t settled = table().members_version();
  EXPECT_NE(settled, at_first);
  EXPECT_EQ(table().members_version(), settled);
  SqliteDatabase(path_, 1000).execute("UPDATE submissions SET pnl = NULL", "changing it");
  EXPECT_NE(table().members_version(), settled) << "by another connection";
}

TEST_F(SubmissionTableTest, WalksTheQueueInOrder) {
  const std::int64_t first = enqueue("1-3").id;
  const std::int64_t second = enqueue("1-1").id;
  EXPECT_THAT(table().queued_numbers(pool_), ElementsAre(second, first))
      << "as they were evaluated";
  EXPECT_EQ(table().queued(first, "data")->eval_id, "1-3");
  table().settle(first, accepted(1));
  EXPECT_THAT(table().queued_numbers(pool_), ElementsAre(second));
  EXPECT_FALSE(table().queued(first, "data").has_value());
  EXPECT_THAT(table().queued_numbers({"beta", 1, 2, "data"}), IsEmpty());
}

TEST_F(SubmissionTableTest, TheBestSignalsOfAGenerationComeFirst) {
  const std::int64_t run = store_->begin_run(start());
  std::vector<EvaluationRecord> records;
  const auto add = [&](std::int64_t number, std::int64_t generation, double quality) {
    records.push_back(passing(number, quality));
    records.back().generation = generation;
    records.back().graph_key = "key-of-" + std::to_string(number);
  };
  add(1, 0, 0.5);
  add(2, 0, 0.9);
  add(3, 1, 2.0);
  add(4, 0, 0.5);
  store_->record_evaluations(run, records);
  std::vector<std::int64_t> numbers;
  for (const int number : {4, 3, 2, 1})
    numbers.push_back(enqueue(eval_id_of(run, number)).id);
  EXPECT_THAT(table().queued_numbers(pool_),
              ElementsAre(numbers[2], numbers[3], numbers[0], numbers[1]));
}

TEST_F(SubmissionTableTest, ListsByRunAndState) {
  const std::int64_t other_run = store_->begin_run(start());
  EvaluationRecord other = passing(1, 1.0);
  other.graph_key = "other";
  store_->record_evaluations(other_run, {other});
  table().settle(enqueue("1-1").id, accepted(1));
  enqueue("1-2");
  enqueue("2-1");
  const auto listed = [&](const SubmissionFilter& filter) {
    std::vector<std::string> found;
    for (const SubmissionRecord& record : table().list(filter))
      found.push_back(record.eval_id);
    return found;
  };
  EXPECT_THAT(listed({}), ElementsAre("1-1", "1-2", "2-1"));
  EXPECT_THAT(listed({1, {}}), ElementsAre("1-1", "1-2"));
  EXPECT_THAT(listed({{}, SubmissionState::Queued}), ElementsAre("1-2", "2-1"));
  EXPECT_THAT(listed({1, SubmissionState::Submitted}), ElementsAre("1-1"));
  EXPECT_THAT(listed({2, SubmissionState::Refused}), ElementsAre());
}

TEST_F(SubmissionTableTest, ALockedStoreIsToldFromOtherTroubles) {
  SqliteRunStore quick(path_, {.busy_timeout_milliseconds = 20});
  SqliteDatabase other(path_, 0);
  SqliteTransaction held(other, "holding the lock");
  EXPECT_THROW(quick.submissions().enqueue({pool_, "1-1", {}, "{}", pnl_, 1.0}), StoreBusyError);
  const auto unexpected = []() -> RunStore::LockedWork {
    throw std::logic_error("it has no lock");
  };
  EXPECT_THROW(quick.under_lock("locking", unexpected), StoreBusyError);
  EXPECT_TRUE(quick.submissions().list({}).empty()) << "reading goes on";
}

TEST_F(SubmissionTableTest, WorkUnderTheLockIsKeptOrUndoneAsItSays) {
  const std::int64_t id = enqueue("1-1").id;
  const auto settle_and = [&](RunStore::LockedWork end) {
    store_->under_lock("settling", [&] {
      EXPECT_TRUE(table().settle(id, accepted(1)));
      return end;
    });
    return table().find(id)->state;
  };
  EXPECT_EQ(settle_and(RunStore::LockedWork::Undo), SubmissionState::Queued);
  EXPECT_EQ(settle_and(RunStore::LockedWork::Keep), SubmissionState::Submitted);
}

TEST_F(SubmissionTableTest, WorkUnderTheLockThatThrowsLeavesNothing) {
  const std::int64_t id = enqueue("1-1").id;
  const auto work = [&]() -> RunStore::LockedWork {
    EXPECT_TRUE(table().settle(id, accepted(1)));
    throw std::runtime_error("halfway");
  };
  EXPECT_THROW(store_->under_lock("settling", work), std::runtime_error);
  EXPECT_EQ(table().find(id)->state, SubmissionState::Queued);
  EXPECT_TRUE(table().settle(id, accepted(1))) << "the lock is free again";
}

// The second run has other prices.
class MeasuresTest : public SubmissionTableTest {
 protected:
  NewMeasure measure(std::int64_t submission, std::vector<double> pnl, double at) const {
    NewMeasure made{submission, other_.data_key, 1,  R"({"sharpe":2.5})",
                    2.5,        std::move(pnl),  {}, at};
    return made;
  }
  const PoolIdentity other_{"alpha", 1, 3, "date"};
};

TEST_F(MeasuresTest, AMemberHasThePnlOfTheDaysThatAreAskedFor) {
  const std::int64_t id = enqueue("1-1").id;
  table().settle(id, accepted(200));
  EXPECT_EQ(table().members(pool_).at(0).pnl, pnl_);
  const std::vector<SubmissionPnl> unknown = table().members(other_);
  ASSERT_EQ(unknown.size(), 1U);
  EXPECT_EQ(unknown[0].measured, Measured::NotYet);
  EXPECT_FALSE(unknown[0].pnl.has_value());
  EXPECT_TRUE(table().unmeasured(pool_).empty());
  const std::vector<UnmeasuredSubmission> wanted = table().unmeasured(other_);
  ASSERT_EQ(wanted.size(), 1U);
  EXPECT_EQ(wanted[0].id, id);
  EXPECT_EQ(wanted[0].eval_id, "1-1");
  EXPECT_EQ(wanted[0].graph_json, R"({"node":"close"})");

  const std::int64_t version = table().members_version();
  table().record_measure(measure(id, {1.0, 2.0}, 300));
  EXPECT_NE(table().members_version(), version);
  EXPECT_EQ(table().members(other_).at(0).pnl, (std::vector<double>{1.0, 2.0}));
  EXPECT_EQ(table().members(other_).at(0).measured, Measured::Yes);
  EXPECT_TRUE(table().unmeasured(other_).empty());
  // Both figures are there.
  EXPECT_EQ(table().members(pool_).at(0).pnl, pnl_);
  const std::vector<NewMeasure> kept = SqliteRunStore(path_).submissions().measures(id);
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(kept[0].data_key, "date");
  EXPECT_EQ(kept[0].run, 1);
  EXPECT_EQ(kept[0].statistics_json, R"({"sharpe":2.5})");
  EXPECT_EQ(kept[0].sharpe, 2.5);
  EXPECT_EQ(kept[0].measured_at, 300);
}

TEST_F(MeasuresTest, AMemberThatCannotBeComputedHasAReasonUntilItCan) {
  const std::int64_t id = enqueue("1-1").id;
  table().settle(id, accepted(200));
  NewMeasure problem{id, "date", 1, {}, {}, {}, "no volume", 300};
  table().record_measure(problem);
  const SubmissionPnl member = table().members(other_).at(0);
  EXPECT_EQ(member.measured, Measured::Never);
  EXPECT_EQ(member.problem, "no volume");
  EXPECT_EQ(table().unmeasured(other_).size(), 1U) << "a later run may be able to";
  table().record_measure(measure(id, {1.0}, 400));
  EXPECT_EQ(table().members(other_).at(0).measured, Measured::Yes);
  EXPECT_EQ(table().members(other_).at(0).problem, "");
  EXPECT_EQ(table().measures(id).size(), 1U);
}

TEST_F(MeasuresTest, WhatIsQueuedIsMeasuredTooAndWhatIsRefusedIsNot) {
  const std::int64_t queued = enqueue("1-1").id;
  table().settle(enqueue("1-2").id, refused(200));
  ASSERT_EQ(table().unmeasured(other_).size(), 1U);
  EXPECT_EQ(table().unmeasured(other_)[0].id, queued);
  EXPECT_EQ(table().queued_numbers(other_), std::vector<std::int64_t>{queued});
  EXPECT_EQ(table().queued(queued, "date")->measured, Measured::NotYet);
  table().record_measure(measure(queued, {4.0}, 300));
  EXPECT_EQ(table().queued(queued, "date")->pnl, std::vector<double>{4.0});
  EXPECT_EQ(table().queued(queued, "data")->pnl, pnl_);
}

TEST_F(MeasuresTest, APoolKeepsItsFirstHoldOut) {
  EXPECT_FALSE(stored_holdout_from(path_, pool_).has_value());
  EXPECT_EQ(store_->keep_holdout_from(pool_, "2011-05-02"), "2011-05-02");
  SqliteRunStore second(path_);
  EXPECT_EQ(second.keep_holdout_from(other_, "2012-05-02"), "2011-05-02");
  EXPECT_EQ(second.keep_holdout_from({"beta", 1, 1, ""}, "2012-05-02"), "2012-05-02");
  EXPECT_EQ(second.keep_holdout_from({"alpha", 2, 1, ""}, "2013-05-02"), "2013-05-02");
  EXPECT_EQ(stored_holdout_from(path_, other_), "2011-05-02");
  EXPECT_FALSE(stored_holdout_from(path_, {"gamma", 1, 1, ""}).has_value());
  EXPECT_FALSE(stored_holdout_from(folder_ / "none.db", pool_).has_value());
}

}  // namespace
}  // namespace varnholt::embedded::test
