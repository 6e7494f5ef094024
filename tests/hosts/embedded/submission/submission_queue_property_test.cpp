// Whatever the order of enqueueing, syncing and of what others write, the states stay sound and the
// members of the pool differ. Method: seeded random sequences over three connections, checked after
// each step by a reader of its own that works from the rows alone.
#include <cmath>
#include <map>
#include <random>
#include <set>

#include <gmock/gmock.h>

#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "tests/hosts/embedded/submission/queue_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;

class SubmissionQueueProperty : public QueueTest {
 protected:
  static constexpr Eigen::Index kShort = 60;

  // One of a few families of series that are alike, so that refusals are common.
  ArrayXd random_pnl() {
    const std::uint64_t family = draw(5);
    const ArrayXd base = normal_series(kShort, 1000 + family);
    const double rho = 0.85 + 0.05 * static_cast<double>(draw(3));
    return draw(4) == 0 ? normal_series(kShort, generator_()) : correlated(base, rho, generator_());
  }
  std::uint64_t draw(std::uint64_t below) { return generator_() % below; }

  // An evaluation of one of a few dozen structures, so that structures come again.
  std::string evaluate_some() {
    EvaluationRecord record = passing(++evaluations_, 1.0);
    record.graph_key = "structure" + std::to_string(draw(30));
    store_->record_evaluations(run_, {record});
    return eval_id_of(run_, evaluations_);
  }
  void enqueue_some(Party& by) {
    const std::string id = evaluate_some();
    genetic::Mapping with_mark = payload(id);
    if (draw(3) == 0) with_mark.set("_submission_pending_reason", "pool_metrics_refresh_required");
    EXPECT_TRUE(by.queue.enqueue(with_mark, random_pnl()));
  }

  void check_states() {
    std::map<std::string, int> standing;
    for (const SubmissionRecord& record : store_->submissions().list({})) {
      EXPECT_EQ(record.settlement.has_value(), record.state != SubmissionState::Queued);
      if (record.state != SubmissionState::Refused) ++standing[record.graph_key];
      EXPECT_TRUE(store_->find_evaluation(record.eval_id).has_value());
      if (!record.settlement) continue;
      const Settlement& settlement = *record.settlement;
      const bool passes = settlement.novelty >= settlement.novelty_threshold &&
                          settlement.correlation <= settlement.correlation_threshold;
      EXPECT_EQ(record.state == SubmissionState::Submitted, passes);
      if (!passes) {
        EXPECT_EQ(*settlement.refusal_reason, settlement.novelty < settlement.novelty_threshold
                                                  ? "pnl_mi_below_threshold"
                                                  : "correlation_exceeded");
      }
      // What is settled never changes again.
      const auto [place, is_new] = settled_.try_emplace(record.id, settlement.novelty);
      EXPECT_EQ(place->second, settlement.novelty);
    }
    for (const auto& [structure, times] : standing)
      EXPECT_EQ(times, 1) << structure;
  }

  // Each member passes both gates beside every member that was settled before it.
  void check_members() {
    std::vector<ArrayXd> before;
    for (const SubmissionPnl& member : store_->submissions().members(pool_)) {
      ASSERT_TRUE(member.pnl.has_value());
      const ArrayXd pnl = Eigen::Map<const ArrayXd>(member.pnl->data(), kShort);
      for (const ArrayXd& other : before) {
        EXPECT_LE(std::abs(pearson_correlation(pnl, other)), thresholds_.max_correlation);
        EXPECT_GE(novelty_of(mutual_information(pnl, other)), thresholds_.min_novelty);
      }
      before.push_back(pnl);
    }
  }

  std::mt19937_64 generator_;
  std::map<std::int64_t, double> settled_;
};

TEST_F(SubmissionQueueProperty, StatesStaySoundAndMembersDiffer) {
  int submitted = 0;
  int refused = 0;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    generator_.seed(seed);
    settled_.clear();
    store_.reset();
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    store_.emplace(path_);
    run_ = store_->begin_run(start());
    std::vector<std::unique_ptr<Party>> parties;
    for (int i = 0; i < 3; ++i)
      parties.push_back(party());
    for (int step = 0; step < 40; ++step) {
      std::unique_ptr<Party>& by = parties[draw(parties.size())];
      switch (draw(8)) {
        case 0:
        case 1:
          by->queue.sync();
          break;
        case 2:
          EXPECT_TRUE(by->pool.refresh());
          break;
        case 3: {
          SqliteDatabase other(path_, 0);
          SqliteTransaction held(other, "holding the lock");
          // Without anything to settle it asks for no lock.
          const bool has_work = !store_->submissions().queued_numbers(pool_).empty();
          EXPECT_EQ(by->queue.sync().store_was_busy, has_work);
          break;
        }
        case 4:
          by = party();
          break;  // A process ends and another one comes.
        default:
          enqueue_some(*by);
      }
      check_states();
      if (HasFailure()) return;
    }
    EXPECT_TRUE(parties[0]->queue.sync().waiting.empty());
    EXPECT_TRUE(store_->submissions().list({{}, SubmissionState::Queued}).empty());
    check_states();
    check_members();
    for (const SubmissionRecord& record : store_->submissions().list({}))
      ++(record.state == SubmissionState::Submitted ? submitted : refused);
  }
  // The sequences are of use only when both ends are common.
  EXPECT_GT(submitted, 30);
  EXPECT_GT(refused, 30);
}

}  // namespace
}  // namespace varnholt::embedded::test
