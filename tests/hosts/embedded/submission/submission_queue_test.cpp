// What is enqueued counts as submitted only when a sync has found it new beside the pool as it is
// then. Method: series of known likeness through a queue on a store in a temporary folder.
#include "hosts/embedded/submission/submission_queue.hpp"

#include <limits>
#include <stdexcept>
#include <tuple>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/hosts/embedded/submission/queue_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using genetic::Mapping;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class SubmissionQueueTest : public QueueTest {
 protected:
  // The text of the std::invalid_argument that an enqueue gives.
  std::string refused(const Mapping& payload, const ArrayXd& pnl) {
    try {
      static_cast<void>(party()->queue.enqueue(payload, pnl));
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "no error";
  }
  const ArrayXd base_ = normal_series(kDays, 1);
};

TEST_F(SubmissionQueueTest, SubmitsTheFirstAndKeepsItsPayload) {
  const auto own = party();
  const std::string id = evaluate();
  EXPECT_TRUE(own->queue.enqueue(payload(id), base_));
  EXPECT_EQ(state_of(id), "queued");
  EXPECT_FALSE(own->pool.has_members());
  const SyncReport report = own->queue.sync();
  ASSERT_THAT(ids(report), ElementsAre(id));
  EXPECT_FALSE(report.settled[0].refusal.has_value());
  EXPECT_EQ(report.settled[0].measure.novelty, 1.0);
  EXPECT_THAT(report.waiting, IsEmpty());
  EXPECT_FALSE(report.store_was_busy);

  const SubmissionRecord record = record_of(id);
  EXPECT_EQ(record.state, SubmissionState::Submitted);
  EXPECT_EQ(record.payload_json, "{\"era_number\":2,\"eval_id\":\"" + id +
                                     "\",\"market_id\":1,\"signal_pool_name\":\"alpha\","
                                     "\"submission_type\":\"signal\"}");
  EXPECT_EQ(record.queued_at, kNow);
  EXPECT_EQ(record.settlement->settled_at, kNow);
  EXPECT_EQ(record.settlement->novelty, 1.0);
  EXPECT_EQ(record.settlement->novelty_threshold, 0.3);
  EXPECT_EQ(record.settlement->correlation, 0.0);
  EXPECT_EQ(record.settlement->correlation_threshold, 0.7);
  EXPECT_TRUE(own->pool.refresh());
  EXPECT_TRUE(own->pool.has_members());
  EXPECT_THAT(member_ids(), ElementsAre(id));
  EXPECT_THAT(own->queue.sync().settled, IsEmpty()) << "once";
}

TEST_F(SubmissionQueueTest, OfTwoAlikeInOneGenerationTheFirstGetsIn) {
  const auto own = party();
  const std::string first = evaluate();
  const std::string second = evaluate();
  const std::string other = evaluate();
  EXPECT_TRUE(own->pool.refresh());
  EXPECT_EQ(own->pool.measure(base_).novelty, 1.0) << "each of them measures as new by itself";
  EXPECT_TRUE(own->queue.enqueue(payload(first), base_));
  EXPECT_TRUE(own->queue.enqueue(payload(second), correlated(base_, 0.98, 2)));
  EXPECT_TRUE(own->queue.enqueue(payload(other), normal_series(kDays, 3)));
  const SyncReport report = own->queue.sync();
  EXPECT_THAT(ids(report), ElementsAre(first, second, other));
  EXPECT_EQ(state_of(first), "submitted");
  EXPECT_EQ(state_of(second), "refused");
  EXPECT_EQ(state_of(other), "submitted");

  const Settlement settlement = *record_of(second).settlement;
  EXPECT_EQ(settlement.refusal_reason, "pnl_mi_below_threshold") << "wins over the correlation";
  EXPECT_THAT(*settlement.refusal_detail,
              HasSubstr("is below 0.3; it depends most on member " + first));
  EXPECT_LT(settlement.novelty, 0.3);
  EXPECT_GT(settlement.correlation, 0.9);
  EXPECT_EQ(report.settled[1].refusal->reason, "pnl_mi_below_threshold");
  EXPECT_EQ(report.settled[1].measure.novelty, settlement.novelty);
}

TEST_F(SubmissionQueueTest, NamesTheCorrelationWhenItAloneFails) {
  join(base_);
  Party own(path_, pool_, {0.05, 0.7}, [] { return kNow; });
  const std::string id = evaluate();
  EXPECT_TRUE(own.queue.enqueue(payload(id), correlated(base_, 0.85, 2)));
  own.queue.sync();
  EXPECT_EQ(record_of(id).settlement->refusal_reason, "correlation_exceeded");
  EXPECT_THAT(*record_of(id).settlement->refusal_detail,
              HasSubstr("is above 0.7, with member 1-1"));
}

TEST_F(SubmissionQueueTest, APendingMarkIsKeptAndMakesNoDifference) {
  const auto own = party();
  const std::string marked = evaluate();
  const std::string alike = evaluate();
  Mapping with_mark = payload(marked);
  with_mark.set("_submission_pending_reason", "pool_metrics_refresh_required");
  EXPECT_TRUE(own->queue.enqueue(with_mark, base_));
  EXPECT_TRUE(own->queue.enqueue(payload(alike), base_ * 2.0));
  own->queue.sync();
  EXPECT_EQ(record_of(marked).pending_reason, "pool_metrics_refresh_required");
  EXPECT_EQ(state_of(marked), "submitted");
  EXPECT_FALSE(record_of(alike).pending_reason.has_value());
  EXPECT_EQ(state_of(alike), "refused");
}

TEST_F(SubmissionQueueTest, ASecondEnqueueChangesNothing) {
  const auto own = party();
  const std::string id = evaluate();
  EXPECT_TRUE(own->queue.enqueue(payload(id), base_));
  EXPECT_TRUE(own->queue.enqueue(payload(id), base_ * 3.0));
  own->queue.sync();
  EXPECT_TRUE(own->queue.enqueue(payload(id), base_));
  EXPECT_THAT(own->queue.sync().settled, IsEmpty());
  EXPECT_EQ(store_->submissions().list({}).size(), 1U);
}

TEST_F(SubmissionQueueTest, SettlesWhatAnEarlierRunLeft) {
  const std::string id = evaluate();
  {
    const auto dead = party();
    EXPECT_TRUE(dead->queue.enqueue(payload(id), base_));
  }
  store_->begin_run(start());
  EXPECT_THAT(ids(party()->queue.sync()), ElementsAre(id));
  EXPECT_EQ(state_of(id), "submitted");
}

TEST_F(SubmissionQueueTest, LeavesOtherPoolsAlone) {
  Party other(path_, {"beta", 1, 2, "data"}, thresholds_, [] { return kNow; });
  const std::string id = evaluate();
  Mapping theirs = payload(id);
  theirs.set("signal_pool_name", "beta");
  EXPECT_TRUE(other.queue.enqueue(theirs, base_));
  EXPECT_THAT(party()->queue.sync().settled, IsEmpty());
  EXPECT_EQ(state_of(id), "queued");
}

TEST_F(SubmissionQueueTest, WaitsUntilThePoolIsReady) {
  const std::string member = join(normal_series(kDays, 9));
  const auto own = party();
  const std::string id = evaluate();
  EXPECT_TRUE(own->queue.enqueue(payload(id), base_));
  SqliteDatabase other(path_, 1000);
  other.execute("CREATE TABLE saved AS SELECT pnl FROM submissions WHERE state = 'submitted'",
                "saving it");
  other.execute(
      "UPDATE submissions SET pnl = substr(pnl, 1, length(pnl) - 8) "
      "WHERE state = 'submitted'",
      "losing a day");
  const SyncReport report = own->queue.sync();
  EXPECT_THAT(report.settled, IsEmpty());
  ASSERT_EQ(report.waiting.size(), 1U);
  EXPECT_EQ(report.waiting[0].eval_id, id);
  EXPECT_THAT(report.waiting[0].why,
              HasSubstr("pool member " + member + " has the PnL of 249 days"));
  EXPECT_EQ(state_of(id), "queued");
  other.execute("UPDATE submissions SET pnl = (SELECT pnl FROM saved) WHERE state = 'submitted'",
                "bringing it back");
  EXPECT_THAT(ids(own->queue.sync()), ElementsAre(id));
  EXPECT_EQ(state_of(id), "submitted");
}

TEST_F(SubmissionQueueTest, TooFewDaysToCompareMakeItWait) {
  const auto own = party();
  const std::string first = evaluate();
  const std::string second = evaluate();
  EXPECT_TRUE(own->queue.enqueue(payload(first), normal_series(10, 1)));
  EXPECT_TRUE(own->queue.enqueue(payload(second), normal_series(10, 2)));
  const SyncReport report = own->queue.sync();
  EXPECT_THAT(ids(report), ElementsAre(first)) << "the first has nobody to be compared with";
  ASSERT_EQ(report.waiting.size(), 1U);
  EXPECT_THAT(report.waiting[0].why, HasSubstr("has 10 days in common with its pool"));
}

TEST_F(SubmissionQueueTest, OneWithoutItsOwnPnlDoesNotHoldUpTheOthers) {
  const auto own = party();
  const std::string bare = evaluate();
  const std::string holed = evaluate();
  const std::string whole = evaluate();
  for (const std::string& id : {bare, holed, whole})
    EXPECT_TRUE(own->queue.enqueue(payload(id), base_));
  SqliteDatabase other(path_, 1000);
  other.execute(("UPDATE submissions SET pnl = NULL WHERE eval_id = '" + bare + "'").c_str(),
                "losing it");
  // The bytes of one infinite number.
  other.execute(
      ("UPDATE submissions SET pnl = x'000000000000f07f' WHERE eval_id = '" + holed + "'").c_str(),
      "breaking it");
  const SyncReport report = own->queue.sync();
  EXPECT_THAT(ids(report), ElementsAre(whole));
  ASSERT_EQ(report.waiting.size(), 2U);
  EXPECT_THAT(report.waiting[0].why, HasSubstr("its own PnL in the store cannot be read"));
  EXPECT_THAT(report.waiting[1].why, HasSubstr("an entry that is no number"));
  EXPECT_EQ(state_of(bare), "queued");
}

TEST_F(SubmissionQueueTest, RefusesWhatIsNoPayloadOfThisPool) {
  const std::string id = evaluate();
  Mapping bad = payload(id);
  bad.erase("eval_id");
  EXPECT_THAT(refused(bad, base_), HasSubstr("has eval_id None; record the evaluation first"));
  bad.set("eval_id", 17);
  EXPECT_THAT(refused(bad, base_), HasSubstr("has eval_id 17;"));
  for (const auto& [key, value, text] :
       {std::tuple{"signal_pool_name", genetic::Value("beta"), "signal_pool_name 'beta'"},
        std::tuple{"market_id", genetic::Value(7), "market_id 7"},
        std::tuple{"era_number", genetic::Value(8), "era_number 8"}}) {
    Mapping elsewhere = payload(id);
    elsewhere.set(key, value);
    EXPECT_THAT(refused(elsewhere, base_), HasSubstr(text));
    elsewhere.erase(key);
    EXPECT_EQ(refused(elsewhere, base_), "no error") << "it need not be named";
    SqliteDatabase(path_, 1000).execute("DELETE FROM submissions", "emptying it");
  }
  EXPECT_THAT(refused(payload(id), ArrayXd()), HasSubstr("has no PnL"));
  ArrayXd broken = base_;
  broken[0] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(refused(payload(id), broken), HasSubstr("no finite number"));
  EXPECT_THAT(store_->submissions().list({}), IsEmpty());
}

TEST_F(SubmissionQueueTest, NothingIsEnqueuedThatIsNotRecorded) {
  EXPECT_THAT(error_of([&] { static_cast<void>(party()->queue.enqueue(payload("1-99"), base_)); }),
              HasSubstr("there is no evaluation 1-99; record the evaluation first"));
}

TEST_F(SubmissionQueueTest, APayloadThatJsonCannotHoldPasses) {
  Mapping odd = payload(evaluate());
  odd.set(genetic::Tuple{1, 2}, "a tuple is no key of JSON");
  EXPECT_THROW(static_cast<void>(party()->queue.enqueue(odd, base_)), genetic::TypeError);
  EXPECT_THAT(store_->submissions().list({}), IsEmpty());
}

TEST_F(SubmissionQueueTest, RefusesThresholdsThatCannotBe) {
  SignalPool pool(*store_, pool_);
  EXPECT_THROW(SubmissionQueue(*store_, pool, {2.0, 0.5}, [] { return kNow; }),
               std::invalid_argument);
}

TEST_F(SubmissionQueueTest, ABetterSignalTakesThePlaceOfTheWeakerOneThatItIsLike) {
  SignalPool pool(*store_, pool_, kDefaultCommonDays, {0.3, 0.7, 0.0, true});
  SubmissionQueue queue(*store_, pool, {0.3, 0.7, 0.0, true}, [] { return kNow; });
  const std::string weak = join(correlated(base_, 0.98, 2));
  const std::string other = join(normal_series(kDays, 3));
  const std::int64_t order = store_->submissions().members(pool_).at(0).settled_order;

  const std::string slightly_better = evaluate();
  EXPECT_TRUE(queue.enqueue(payload(slightly_better), base_));
  const SyncReport refused = queue.sync();
  EXPECT_TRUE(refused.settled.at(0).refusal.has_value());
  EXPECT_THAT(refused.settled.at(0).replaced, IsEmpty());
  EXPECT_THAT(member_ids(), ElementsAre(weak, other));

  const std::string better = evaluate();
  EXPECT_TRUE(queue.enqueue(payload(better), base_ + 0.3));
  const SyncReport report = queue.sync();
  EXPECT_FALSE(report.settled.at(0).refusal.has_value());
  EXPECT_THAT(report.settled.at(0).replaced, ElementsAre(weak));
  EXPECT_THAT(member_ids(), ElementsAre(other, better));
  const SubmissionRecord retired = record_of(weak);
  EXPECT_EQ(retired.state, SubmissionState::Refused);
  EXPECT_EQ(retired.settlement->refusal_reason, kReplacedByBetter);
  EXPECT_EQ(retired.settlement->refusal_detail,
            better + " is like it and has the higher Sharpe ratio");
  EXPECT_EQ(retired.settlement->settled_at, kNow);
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(pool.measure(correlated(base_, 0.98, 2)).nearest_by_correlation, better);

  // Whoever reads the pool anew finds the same, and a number of the order is given once.
  EXPECT_GT(store_->submissions().members(pool_).back().settled_order, order);
  EXPECT_FALSE(store_->submissions().retire(retired.id, {"again", "", kNow})) << "no member";
}

TEST_F(SubmissionQueueTest, ARefusedSignalTakesNoPlace) {
  const PoolThresholds strict{0.3, 0.7, 0.999, true};
  SignalPool pool(*store_, pool_, kDefaultCommonDays, strict);
  SubmissionQueue queue(
      *store_, pool, strict, [] { return kNow; }, [] { return std::int64_t{1000000}; });
  const std::string weak = join(correlated(base_, 0.98, 2));
  const std::string lucky = evaluate();
  EXPECT_TRUE(queue.enqueue(payload(lucky), base_ + 0.2));
  const SyncReport report = queue.sync();
  EXPECT_EQ(report.settled.at(0).refusal->reason, kDeflatedSharpeBelowMin);
  EXPECT_THAT(report.settled.at(0).replaced, IsEmpty());
  EXPECT_THAT(member_ids(), ElementsAre(weak));
}

TEST_F(SubmissionQueueTest, NothingIsSettledBesideAMemberThatIsNotMeasuredYet) {
  const std::string member = join(base_);
  const PoolIdentity other{"alpha", 1, 2, "date"};
  Party own(path_, other, thresholds_, [] { return kNow; });
  const std::string id = evaluate();
  EXPECT_TRUE(own.queue.enqueue(payload(id), base_));
  const SyncReport waiting = own.queue.sync();
  EXPECT_THAT(waiting.settled, IsEmpty());
  ASSERT_EQ(waiting.waiting.size(), 1U);
  EXPECT_TRUE(waiting.waits_for_measures());
  EXPECT_EQ(
      waiting.waiting[0].why,
      "pool member " + member + " was submitted on other prices, and not measured on these yet");
  NewMeasure measure{1,  "date", run_, "{}", 1.0, std::vector<double>(base_.begin(), base_.end()),
                     {}, 1.0};
  own.store.submissions().record_measure(measure);
  const SyncReport report = own.queue.sync();
  EXPECT_FALSE(report.waits_for_measures());
  ASSERT_THAT(ids(report), ElementsAre(id));
  EXPECT_EQ(report.settled[0].refusal->reason, "pnl_mi_below_threshold");
}

TEST_F(SubmissionQueueTest, WhatAnotherRunQueuedIsSettledOnTheDaysOfThisOne) {
  const std::string id = evaluate();
  EXPECT_TRUE(party()->queue.enqueue(payload(id), base_));
  Party own(path_, {"alpha", 1, 2, "date"}, thresholds_, [] { return kNow; });
  const SyncReport waiting = own.queue.sync();
  ASSERT_EQ(waiting.waiting.size(), 1U);
  EXPECT_TRUE(waiting.waits_for_measures());
  EXPECT_THAT(waiting.waiting[0].why, HasSubstr("it was evaluated on other prices"));
  NewMeasure problem{1, "date", run_, {}, {}, {}, "no volume", 1.0};
  own.store.submissions().record_measure(problem);
  const SyncReport stuck = own.queue.sync();
  ASSERT_EQ(stuck.waiting.size(), 1U);
  EXPECT_FALSE(stuck.waits_for_measures());
  EXPECT_EQ(stuck.waiting[0].why, "it cannot be measured on these prices (no volume)");
  NewMeasure measure{1, "date", run_, "{}", 1.0, std::vector<double>(20, 0.5), {}, 1.0};
  own.store.submissions().record_measure(measure);
  EXPECT_EQ(ids(own.queue.sync()), std::vector<std::string>{id});
}

}  // namespace
}  // namespace varnholt::embedded::test
