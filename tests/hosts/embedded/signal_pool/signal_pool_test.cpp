// A signal is measured against exactly the members that the store has, also those that others bring
// in meanwhile. Method: a store in a temporary folder, series of known likeness, a second
// connection.
#include "hosts/embedded/signal_pool/signal_pool.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>

#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "hosts/embedded/signal_pool/pool_errors.hpp"
#include "tests/hosts/embedded/signal_pool/pool_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using ::testing::HasSubstr;

class SignalPoolTest : public PoolTest {
 protected:
  void execute(const std::string& sql) {
    SqliteDatabase(path_, 1000).execute(sql.c_str(), "changing it from outside");
  }
  // The text of the PoolPnlMissing that a measure gives.
  static std::string missing(SignalPool& pool, const ArrayXd& pnl) {
    try {
      static_cast<void>(pool.measure(pnl));
    } catch (const PoolPnlMissing& error) {
      return error.eval_id() + ": " + error.what();
    }
    return "no error";
  }
  // How many members any signal is compared with.
  static std::int64_t members(SignalPool& pool) {
    const std::optional<PoolComparison> comparison = pool.compare(normal_series(kDays, 99));
    return comparison ? comparison->members : 0;
  }
  const ArrayXd base_ = normal_series(kDays, 1);
};

TEST_F(SignalPoolTest, AnEmptyPoolFindsAnythingNew) {
  SignalPool pool(*store_, pool_);
  EXPECT_FALSE(pool.has_members());
  EXPECT_TRUE(pool.refresh());
  EXPECT_FALSE(pool.has_members());
  for (const ArrayXd& pnl : {base_, ArrayXd(normal_series(3, 1))}) {
    const PoolMeasure measure = pool.measure(pnl);
    EXPECT_EQ(measure.novelty, 1.0);
    EXPECT_EQ(measure.correlation, 0.0);
    EXPECT_FALSE(measure.nearest_by_information.has_value());
    EXPECT_FALSE(measure.nearest_by_correlation.has_value());
  }
}

TEST_F(SignalPoolTest, APnlOfZerosIsNothingNew) {
  const ArrayXd zeros = ArrayXd::Zero(kDays);
  SignalPool empty(*store_, pool_);
  EXPECT_EQ(empty.measure(zeros).novelty, 0.0);
  join(base_);
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(pool.measure(zeros).novelty, 0.0);
  EXPECT_THAT(refusal(pool.measure(zeros), {})->detail,
              HasSubstr("its daily PnL is zero on every day"));
}

TEST_F(SignalPoolTest, MeasuresAgainstTheNearestMember) {
  join(normal_series(kDays, 7));
  const std::string near = join(correlated(base_, -0.9, 2));
  const std::string curved = join(base_.square() + 0.01 * normal_series(kDays, 3));
  // A gate that refuses neither.
  SignalPool pool(*store_, pool_, kDefaultCommonDays, PoolThresholds{0.01});
  EXPECT_TRUE(pool.refresh());
  const PoolMeasure measure = pool.measure(base_);
  EXPECT_NEAR(measure.correlation, 0.9, 0.05) << "the sign does not count";
  EXPECT_EQ(measure.nearest_by_correlation, near);
  EXPECT_EQ(measure.nearest_by_information, curved);
  EXPECT_EQ(measure.mutual_information,
            mutual_information(base_, base_.square() + 0.01 * normal_series(kDays, 3)));
  EXPECT_EQ(measure.novelty, novelty_of(measure.mutual_information));
}

TEST_F(SignalPoolTest, OneMemberIsEnoughToRefuseASignal) {
  const ArrayXd curve = base_.square() + 0.01 * normal_series(kDays, 3);
  const std::string curved = join(curve);
  const ArrayXd likeness = correlated(base_, -0.9, 2);
  const std::string near = join(likeness);
  SignalPool pool(*store_, pool_, kDefaultCommonDays, PoolThresholds{0.3});
  EXPECT_TRUE(pool.refresh());
  const PoolMeasure refused = pool.measure(base_);
  EXPECT_EQ(refused.nearest_by_information, near) << "it correlates most, and is enough";
  EXPECT_EQ(refused.mutual_information, mutual_information(base_, likeness));
  EXPECT_LT(refused.mutual_information, mutual_information(base_, curve));
  EXPECT_EQ(refused.novelty, novelty_of(refused.mutual_information));
  EXPECT_LT(refused.novelty, 0.3);

  // Of those that join later only the correlation is still looked at.
  const std::string same = join(base_);
  EXPECT_TRUE(pool.refresh());
  const PoolMeasure again = pool.measure(base_);
  EXPECT_EQ(again.nearest_by_information, near);
  EXPECT_EQ(again.novelty, refused.novelty);
  EXPECT_EQ(again.nearest_by_correlation, same);
  EXPECT_NEAR(again.correlation, 1.0, 1e-12);
}

TEST_F(SignalPoolTest, WhatIsNotRefusedIsComparedWithAll) {
  for (std::uint64_t seed = 2; seed < 8; ++seed)
    join(correlated(base_, 0.1 * static_cast<double>(seed % 4), seed));
  SignalPool thorough(*store_, pool_);
  SignalPool quick(*store_, pool_, kDefaultCommonDays, PoolThresholds{0.1});
  EXPECT_TRUE(thorough.refresh());
  EXPECT_TRUE(quick.refresh());
  const PoolMeasure measure = quick.measure(base_);
  const PoolMeasure expected = thorough.measure(base_);
  ASSERT_GE(expected.novelty, 0.1);
  EXPECT_EQ(measure.novelty, expected.novelty);
  EXPECT_EQ(measure.nearest_by_information, expected.nearest_by_information);
  EXPECT_EQ(measure.correlation, expected.correlation);
}

TEST_F(SignalPoolTest, AConstantPnlMeasuresAsNew) {
  join(base_);
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  const PoolMeasure measure = pool.measure(ArrayXd::Constant(kDays, 0.001));
  EXPECT_EQ(measure.novelty, 1.0);
  EXPECT_EQ(measure.correlation, 0.0);
}

TEST_F(SignalPoolTest, BringsInWhatOthersSubmitted) {
  SignalPool pool(*store_, pool_);
  const std::string first = join(base_);
  EXPECT_EQ(members(pool), 0) << "not before the refresh";
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(members(pool), 1);
  EXPECT_EQ(pool.measure(base_).nearest_by_correlation, first);
  SqliteRunStore other(path_);
  const std::string second = evaluate();
  const std::vector<double> pnl(static_cast<std::size_t>(kDays), 0.5);
  const std::int64_t id = other.submissions().enqueue({pool_, second, {}, "{}", pnl, 1.0}).id;
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(members(pool), 1) << "queued is no member";
  other.submissions().settle(id, {1.0, 0.3, 0.0, 0.7, {}, {}, 2.0});
  EXPECT_TRUE(pool.refresh());
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(members(pool), 2);
  EXPECT_TRUE(pool.has_members());
}

TEST_F(SignalPoolTest, KeepsToItsIdentity) {
  join(base_);
  for (const PoolIdentity& other :
       {PoolIdentity{"beta", 1, 2, "data"}, PoolIdentity{"alpha", 2, 2, "data"}}) {
    SignalPool pool(*store_, other);
    EXPECT_TRUE(pool.refresh());
    EXPECT_FALSE(pool.has_members());
  }
}

TEST_F(SignalPoolTest, TheFounderIsThereFromTheBeginning) {
  const ArrayXd market = normal_series(kDays, 7);
  SignalPool pool(*store_, pool_, kDefaultCommonDays, PoolThresholds(), market);
  EXPECT_TRUE(pool.has_members());
  const ArrayXd signal = correlated(market, 0.9, 8);
  const PoolMeasure alone = pool.measure(signal);
  EXPECT_EQ(alone.members, 1);
  EXPECT_EQ(alone.nearest_by_correlation, "market");
  EXPECT_GT(alone.correlation, 0.8);
  EXPECT_EQ(refusal(alone, {0.0, 0.7})->detail.substr(0, 11), "correlation");
  // The others come after it, and what was found beside it stays good.
  const std::string member = join(signal);
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(members(pool), 2);
  EXPECT_EQ(pool.measure(signal).nearest_by_correlation, member);
  EXPECT_EQ(pool.measure(market).nearest_by_correlation, "market");
  // Members that are read anew do not lose it.
  execute("UPDATE submissions SET state = 'refused', refusal_reason = 'by hand'");
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(members(pool), 1);
  EXPECT_EQ(pool.measure(signal).nearest_by_correlation, "market");
  EXPECT_TRUE(pool.take_set_aside().empty());
}

TEST_F(SignalPoolTest, TellsThePnlOfItsMembersWithoutTheFounder) {
  SignalPool pool(*store_, pool_, kDefaultCommonDays, PoolThresholds(), normal_series(kDays, 7));
  EXPECT_TRUE(pool.member_pnl(kDays).empty());
  const std::string member = join(base_);
  EXPECT_TRUE(pool.refresh());
  const auto members = pool.member_pnl(kDays);
  ASSERT_EQ(members.size(), 1U);
  EXPECT_TRUE((members[0].pnl == base_).all());
  EXPECT_EQ(members[0].submission, store_->submissions().of_evaluation(member).at(0).id);
  EXPECT_TRUE(pool.member_pnl(kDays - 1).empty());
}

TEST_F(SignalPoolTest, WhatAChildFoundBesideTheFounderIsTakenOver) {
  const ArrayXd market = normal_series(kDays, 7);
  SignalPool child(*store_, pool_, kDefaultCommonDays, PoolThresholds(), market);
  SignalPool parent(*store_, pool_, kDefaultCommonDays, PoolThresholds(), market);
  const std::optional<PoolComparison> comparison = child.compare(base_);
  ASSERT_TRUE(comparison.has_value());
  EXPECT_EQ(comparison->members, 1);
  parent.take_over(base_, *comparison);
  EXPECT_EQ(parent.measure(base_).novelty, child.measure(base_).novelty);
}

TEST_F(SignalPoolTest, WhatIsClearlyWorseIsNotComparedWhereItWouldBeReplaced) {
  const auto of_sharpe = [](const ArrayXd& series, double sharpe) {
    const ArrayXd centred = series - series.mean();
    return ArrayXd(centred / std::sqrt(centred.square().sum() / (kDays - 1.0)) + sharpe);
  };
  const ArrayXd better = of_sharpe(base_, 0.3);
  const ArrayXd weak = of_sharpe(correlated(base_, 0.95, 2), 0.1);
  const ArrayXd peer = of_sharpe(correlated(base_, 0.9, 3), 0.29);
  const ArrayXd other = of_sharpe(normal_series(kDays, 4), 0.12);
  const std::string weak_id = join(weak);
  join(other);
  const std::string peer_id = join(peer);
  SignalPool first_stays(*store_, pool_);
  SignalPool pool(*store_, pool_, kDefaultCommonDays, PoolThresholds{.replaces_weaker = true},
                  weak);
  EXPECT_TRUE(pool.refresh());
  EXPECT_TRUE(first_stays.refresh());
  EXPECT_EQ(first_stays.measure(better).nearest_by_correlation, weak_id);
  EXPECT_TRUE(first_stays.replaced_by(better).empty());

  // The founder is the same series as the weak one, and is never outdone.
  EXPECT_EQ(pool.measure(better).nearest_by_correlation, "market");
  EXPECT_EQ(pool.measure(better).members, 2) << "the founder and the peer";
  EXPECT_EQ(pool.measure(weak).members, 4);
  const std::vector<ReplacedMember> replaced = pool.replaced_by(better);
  ASSERT_EQ(replaced.size(), 1U) << "what is unlike it stays, and so does a peer";
  EXPECT_EQ(replaced[0].eval_id, weak_id);
  EXPECT_EQ(replaced[0].submission, store_->submissions().of_evaluation(weak_id).at(0).id);
}

TEST_F(SignalPoolTest, AFounderOfTooFewDaysIsLeftOut) {
  SignalPool pool(*store_, pool_, kDays + 1, PoolThresholds(), normal_series(kDays, 7));
  EXPECT_FALSE(pool.has_members());
  EXPECT_EQ(pool.measure(base_).novelty, 1.0);
}

// On other prices than those that its members were submitted on.
class PoolOfOtherDays : public SignalPoolTest {
 protected:
  void measure(const std::string& member, const ArrayXd& pnl) {
    record(member, std::vector<double>(pnl.begin(), pnl.end()), {});
  }
  void record(const std::string& member, std::optional<std::vector<double>> pnl,
              std::optional<std::string> problem) {
    NewMeasure made;
    made.submission = store_->submissions().of_evaluation(member).at(0).id;
    made.data_key = other_.data_key;
    made.run = run_;
    if (pnl) made.statistics_json = "{}";
    made.pnl = std::move(pnl);
    made.problem = std::move(problem);
    store_->submissions().record_measure(made);
  }
  const PoolIdentity other_{"alpha", 1, 3, "date"};
};

TEST_F(PoolOfOtherDays, ItsMembersAreComparedOnTheDaysOfTheRun) {
  const std::string member = join(base_);
  const ArrayXd now = normal_series(kDays + 7, 2);
  SignalPool pool(*store_, other_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_TRUE(pool.has_members());
  EXPECT_EQ(pool.first_unmeasured(), member);
  measure(member, now);
  EXPECT_TRUE(pool.refresh());
  EXPECT_FALSE(pool.first_unmeasured().has_value());
  EXPECT_EQ(pool.measure(now).nearest_by_correlation, member);
  EXPECT_NEAR(pool.measure(now).correlation, 1.0, 1e-12);
  EXPECT_TRUE(pool.take_set_aside().empty());
  // The pool of the days that it was submitted on has it as it was.
  SignalPool before(*store_, pool_);
  EXPECT_TRUE(before.refresh());
  EXPECT_NEAR(before.measure(base_).correlation, 1.0, 1e-12);
}

TEST_F(PoolOfOtherDays, AMemberThatCannotBeComputedIsSetAsideAndToldOnce) {
  const std::string lost = join(base_);
  const std::string kept = join(normal_series(kDays, 3));
  record(lost, {}, "no volume");
  measure(kept, normal_series(kDays, 4));
  SignalPool pool(*store_, other_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_FALSE(pool.first_unmeasured().has_value());
  const std::vector<SetAsideMember> aside = pool.take_set_aside();
  ASSERT_EQ(aside.size(), 1U);
  EXPECT_EQ(aside[0].eval_id, lost);
  EXPECT_EQ(aside[0].why,
            "cannot be measured on these prices (no volume); it stays in the pool, for prices that "
            "have what it needs");
  EXPECT_NEAR(pool.measure(normal_series(kDays, 4)).correlation, 1.0, 1e-12);
  EXPECT_LT(pool.measure(base_).correlation, 0.5);
  join(normal_series(kDays, 5));
  EXPECT_TRUE(pool.refresh());
  EXPECT_TRUE(pool.take_set_aside().empty());
}

TEST_F(SignalPoolTest, IsNotConfirmedWhileAnotherHoldsTheLock) {
  const std::string member = join(base_);
  SqliteRunStore quick(path_, {.busy_timeout_milliseconds = 20});
  SignalPool pool(quick, pool_);
  {
    SqliteDatabase other(path_, 0);
    SqliteTransaction held(other, "holding the lock");
    EXPECT_FALSE(pool.refresh());
    EXPECT_FALSE(pool.has_members());
  }
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(members(pool), 1);
  {
    SqliteDatabase other(path_, 0);
    SqliteTransaction held(other, "holding the lock");
    EXPECT_FALSE(pool.refresh());
    EXPECT_EQ(members(pool), 1) << "what was known stays";
  }
}

TEST_F(SignalPoolTest, OtherTroublesOfTheStorePass) {
  join(base_);
  SignalPool pool(*store_, pool_);
  execute("ALTER TABLE submissions RENAME COLUMN pnl TO gone");
  EXPECT_THROW(static_cast<void>(pool.refresh()), StoreError);
}

TEST_F(SignalPoolTest, AMemberWithoutPnlIsSetAsideOnceAndTheRestGoesOn) {
  const std::string whole = join(normal_series(kDays, 9));
  const std::string bare = join(base_);
  execute("UPDATE submissions SET pnl = NULL WHERE eval_id = '" + bare + "'");
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_TRUE(pool.has_members());
  const std::vector<SetAsideMember> aside = pool.take_set_aside();
  ASSERT_EQ(aside.size(), 1U);
  EXPECT_EQ(aside[0].eval_id, bare);
  EXPECT_EQ(aside[0].why,
            "has no PnL in the store that can be read; submit it anew, or take it out of the pool");
  EXPECT_EQ(pool.measure(base_).nearest_by_correlation, whole);
  EXPECT_TRUE(pool.refresh());
  EXPECT_TRUE(pool.take_set_aside().empty()) << "it is told once";
  execute(
      "UPDATE submissions SET pnl = (SELECT pnl FROM submissions WHERE pnl IS NOT NULL) "
      "WHERE pnl IS NULL");
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(pool.measure(normal_series(kDays, 9)).correlation, 1.0);
}

TEST_F(SignalPoolTest, AMemberWithOtherDaysThanTheRestIsSetAside) {
  const std::string whole = join(normal_series(kDays, 9));
  const std::string cut = join(base_);
  execute("UPDATE submissions SET pnl = substr(pnl, 1, length(pnl) - 8) WHERE eval_id = '" + cut +
          "'");
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(pool.measure(base_).nearest_by_correlation, whole);
  const std::vector<SetAsideMember> aside = pool.take_set_aside();
  ASSERT_EQ(aside.size(), 1U);
  EXPECT_EQ(aside[0].eval_id, cut);
  EXPECT_THAT(aside[0].why, HasSubstr("has the PnL of 249 days where others have 250; submit it"));
}

TEST_F(SignalPoolTest, WhereNoMemberCanBeReadASignalIsAsInAnEmptyPool) {
  join(base_);
  execute("UPDATE submissions SET pnl = NULL");
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(pool.take_set_aside().size(), 1U);
  EXPECT_EQ(pool.measure(base_).novelty, 1.0);
  const std::string next = join(normal_series(kDays, 4));
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(pool.measure(base_).nearest_by_correlation, next);
}

TEST_F(SignalPoolTest, APnlWithAHoleIsSetAside) {
  ArrayXd holed = base_;
  holed[7] = std::numeric_limits<double>::quiet_NaN();
  const std::string member = join(holed);
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  const std::vector<SetAsideMember> aside = pool.take_set_aside();
  ASSERT_EQ(aside.size(), 1U);
  EXPECT_EQ(aside[0].eval_id, member);
  EXPECT_THAT(aside[0].why, HasSubstr("an entry that is no number"));
}

TEST_F(SignalPoolTest, NamesTheMemberWithOtherDays) {
  const std::string member = join(normal_series(kDays - 1, 1));
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_THAT(missing(pool, base_),
              HasSubstr(member + " has the PnL of 249 days, and the signal that of 250; only"));
}

TEST_F(SignalPoolTest, NeedsEnoughDaysInCommon) {
  join(normal_series(kDefaultCommonDays - 1, 1));
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  EXPECT_THROW(static_cast<void>(pool.measure(normal_series(kDefaultCommonDays - 1, 2))),
               PoolMetricNotYetComputable);
  execute("DELETE FROM submissions");
  join(normal_series(kDefaultCommonDays, 1));
  EXPECT_TRUE(pool.refresh());
  EXPECT_NO_THROW(static_cast<void>(pool.measure(normal_series(kDefaultCommonDays, 2))));
}

TEST_F(SignalPoolTest, SeesThatAMemberWasTakenOut) {
  const std::string first = join(base_);
  const std::string second = join(normal_series(kDays, 2));
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  execute("DELETE FROM submissions WHERE eval_id = '" + first + "'");
  EXPECT_TRUE(pool.refresh());
  EXPECT_EQ(members(pool), 1);
  EXPECT_EQ(pool.measure(base_).nearest_by_correlation, second);
  execute("DELETE FROM submissions");
  EXPECT_TRUE(pool.refresh());
  EXPECT_FALSE(pool.has_members());
}

// A pool that has measured before and one that has not must agree, whatever happens to the members
// between two measures.
TEST_F(SignalPoolTest, WhatItRemembersIsWhatItWouldMeasure) {
  constexpr int kSteps = 150;
  const auto moved = [this](const std::string& id, const char* pool) {
    execute("UPDATE submissions SET signal_pool_name = '" + std::string(pool) +
            "' WHERE eval_id = '" + id + "'");
  };
  std::mt19937_64 generator(17);
  std::vector<ArrayXd> signals;
  for (std::uint64_t seed = 1; seed <= 6; ++seed) {
    const ArrayXd signal = correlated(base_, 0.15 * static_cast<double>(seed), seed + 50);
    signals.push_back(signal - signal.mean() + 0.05);
  }
  std::vector<std::string> members = {join(normal_series(kDays, 1000))};
  std::vector<std::string> away;
  const PoolThresholds thresholds{.replaces_weaker = true};
  const ArrayXd market = normal_series(kDays, 7);
  SignalPool pool(*store_, pool_, kDefaultCommonDays, thresholds, market);
  int replaced = 0;
  int passed = 0;
  for (int step = 0; step < kSteps; ++step) {
    SCOPED_TRACE(step);
    const std::uint64_t draw = generator() % 8;
    if (draw < 3) {
      const double rho = 0.1 + 0.3 * static_cast<double>(draw);
      members.push_back(join(correlated(signals[generator() % signals.size()], rho, generator())));
    } else if (draw < 5 && members.size() > 2) {
      const auto gone = members.begin() + static_cast<std::ptrdiff_t>(generator() % members.size());
      moved(*gone, "elsewhere");
      away.push_back(*gone);
      members.erase(gone);
    } else if (draw == 5 && !away.empty()) {
      moved(away.back(), "alpha");
      members.push_back(away.back());
      away.pop_back();
    }
    const ArrayXd& signal = signals[generator() % signals.size()];
    EXPECT_TRUE(pool.refresh());
    SignalPool fresh(*store_, pool_, kDefaultCommonDays, thresholds, market);
    EXPECT_TRUE(fresh.refresh());
    const PoolMeasure remembered = pool.measure(signal);
    const std::vector<ReplacedMember> would_leave = pool.replaced_by(signal);
    const std::vector<ReplacedMember> leave = fresh.replaced_by(signal);
    const PoolMeasure measured = fresh.measure(signal);
    EXPECT_EQ(remembered.mutual_information, measured.mutual_information);
    EXPECT_EQ(remembered.novelty, measured.novelty);
    EXPECT_EQ(remembered.correlation, measured.correlation);
    EXPECT_EQ(remembered.nearest_by_information, measured.nearest_by_information);
    EXPECT_EQ(remembered.nearest_by_correlation, measured.nearest_by_correlation);
    EXPECT_EQ(remembered.members, measured.members);
    EXPECT_TRUE(std::equal(would_leave.begin(), would_leave.end(), leave.begin(), leave.end(),
                           [](const ReplacedMember& left, const ReplacedMember& right) {
                             return left.submission == right.submission &&
                                    left.eval_id == right.eval_id;
                           }));
    replaced += leave.empty() ? 0 : 1;
    if (refusal(measured, thresholds)) continue;
    EXPECT_EQ(remembered.informed, measured.informed);
    ++passed;
  }
  EXPECT_GT(replaced, 10);
  EXPECT_GT(passed, 10);
}

TEST_F(SignalPoolTest, WhatWasMeasuredStandsWhenAnotherMemberLeaves) {
  const std::string near = join(correlated(base_, 0.5, 11));
  const std::string far = join(normal_series(kDays, 12));
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  // A figure that no comparison could give shows whether it is remembered.
  PoolComparison comparison = pool.compare(base_).value();
  ASSERT_EQ(comparison.measure.nearest_by_information, near);
  comparison.measure.correlation = 2.0;
  SignalPool other(*store_, pool_);
  EXPECT_TRUE(other.refresh());
  other.take_over(base_, comparison);
  execute("DELETE FROM submissions WHERE eval_id = '" + far + "'");
  EXPECT_TRUE(other.refresh());
  EXPECT_EQ(other.measure(base_).correlation, 2.0);
  EXPECT_EQ(other.measure(base_).members, 1);
  execute("DELETE FROM submissions WHERE eval_id = '" + near + "'");
  EXPECT_TRUE(other.refresh());
  EXPECT_EQ(other.measure(base_).novelty, 1.0);
}

TEST_F(SignalPoolTest, TheLastMemberThatLeftAndWasPutBackIsRead) {
  join(normal_series(kDays, 11));
  const std::string last = join(base_);
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  for (const auto& [name, members_then] : {std::pair("elsewhere", 1), std::pair("alpha", 2)}) {
    execute("UPDATE submissions SET signal_pool_name = '" + std::string(name) +
            "' WHERE eval_id = '" + last + "'");
    EXPECT_TRUE(pool.refresh());
    EXPECT_EQ(members(pool), members_then);
  }
}

TEST_F(SignalPoolTest, TakesOverWhatAnotherProcessMeasured) {
  join(base_);
  const std::string last = join(normal_series(kDays, 2));
  const ArrayXd signal = correlated(base_, 0.5, 3);
  SignalPool pool(*store_, pool_);
  EXPECT_FALSE(pool.compare(signal).has_value()) << "no members are known";
  EXPECT_TRUE(pool.refresh());
  PoolComparison comparison = pool.compare(signal).value();
  EXPECT_EQ(comparison.members, 2);
  EXPECT_EQ(comparison.measure.correlation, pool.measure(signal).correlation);

  // A figure that no comparison could give shows whether it was taken.
  comparison.measure.correlation = 0.125;
  comparison.measure.mutual_information = -1.0;
  const auto correlation_after_taking = [&] {
    SignalPool other(*store_, pool_);
    EXPECT_TRUE(other.refresh());
    other.take_over(signal, comparison);
    return other.measure(signal).correlation;
  };
  EXPECT_EQ(correlation_after_taking(), 0.125);
  // One that joined since is compared on top.
  join(signal);
  EXPECT_EQ(correlation_after_taking(), 1.0);
  // Where a member is gone it stands for nothing.
  execute("DELETE FROM submissions WHERE eval_id = '" + last + "'");
  comparison.measure.correlation = 2.0;
  EXPECT_EQ(correlation_after_taking(), 1.0);
  execute("DELETE FROM submissions");
  EXPECT_EQ(correlation_after_taking(), 0.0);
}

TEST_F(SignalPoolTest, WhatItMeasuredItselfIsNotReplaced) {
  join(base_);
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  const PoolMeasure own = pool.measure(base_);
  PoolComparison comparison = pool.compare(base_).value();
  comparison.measure.correlation = 0.125;
  pool.take_over(base_, comparison);
  EXPECT_EQ(pool.measure(base_).correlation, own.correlation);
}

TEST_F(SignalPoolTest, ForgetsTheOldestOfManySignals) {
  join(normal_series(kDefaultCommonDays, 1));
  SignalPool pool(*store_, pool_);
  EXPECT_TRUE(pool.refresh());
  const ArrayXd first = normal_series(kDefaultCommonDays, 2);
  // A figure that no comparison could give shows whether it is remembered.
  PoolComparison comparison = pool.compare(normal_series(kDefaultCommonDays, 3)).value();
  comparison.measure.correlation = 2.0;
  pool.take_over(first, comparison);
  for (std::uint64_t seed = 0; seed + 2 < SignalPool::kRememberedMeasures; ++seed)
    static_cast<void>(pool.measure(normal_series(kDefaultCommonDays, 100 + seed)));
  EXPECT_EQ(pool.measure(first).correlation, 2.0);
  for (const std::uint64_t seed : {10U, 11U})
    static_cast<void>(pool.measure(normal_series(kDefaultCommonDays, seed)));
  EXPECT_LE(pool.measure(first).correlation, 1.0);
}

TEST_F(SignalPoolTest, RefusesAPnlThatIsNoNumber) {
  SignalPool pool(*store_, pool_);
  ArrayXd broken = base_;
  broken[3] = std::numeric_limits<double>::infinity();
  EXPECT_THROW(static_cast<void>(pool.measure(broken)), std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
