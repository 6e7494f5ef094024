// What a search submits, on its way into the pool.
//
//   SubmissionQueue queue(store, pool, thresholds, wall_clock_seconds);
//   if (!queue.enqueue(payload, net_returns)) ...  // The store was busy: try again later.
//   const SyncReport report = queue.sync();
//
// The search measures each signal against the pool as it is at that moment; two signals of one
// generation that are alike can thus both pass. Therefore nothing counts as submitted by being
// enqueued: a sync settles the queued payloads, generation by generation and in each the best
// signal first, each by the same two gates against the pool as the one before has left it, and
// where the user asks for it by a third one on luck, which nobody can judge before, because only
// here the number of trials is known. Whether the search marked a payload as pending makes no
// difference. What a run left in the queue when it died is settled by the next sync of any run on
// the same pool.
//
// Where the thresholds say so, a signal that is clearly better than the members that it is like
// takes their place: they are retired, which their submissions tell, with its name.
//
// A payload is settled in one transaction, under the store's lock: a crash at any moment leaves it
// queued or settled, and two processes that settle at once take turns.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/signal_pool/signal_pool.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct SettledSubmission {
  std::int64_t id = 0;
  std::string eval_id;
  PoolMeasure measure;
  // Absent when the signal is a member now.
  std::optional<PoolRefusal> refusal;
  // The members that it has taken the place of, by their evaluation ids.
  std::vector<std::string> replaced = {};
};

// Left in the queue, because the pool's data is not ready.
struct WaitingSubmission {
  std::int64_t id = 0;
  std::string eval_id;
  std::string why;
  // It waits for nothing but a measure, its own or a member's, on the days of this run: when that
  // is made, the next sync settles it.
  bool is_for_measures = false;
};

struct SyncReport {
  std::vector<SettledSubmission> settled;
  std::vector<WaitingSubmission> waiting;
  // Another process held the lock, and the sync ended there: what is still queued waits for the
  // next one.
  bool store_was_busy = false;
  // Members of the pool that no signal is compared with any more, each told once.
  std::vector<SetAsideMember> set_aside = {};

  [[nodiscard]] bool waits_for_measures() const;
};

class SubmissionQueue {
 public:
  // The seconds of wall time since 1970-01-01 UTC.
  using WallClock = std::function<double()>;
  // How many trials there were until now: RunStore::trial_count, twice where the better one of an
  // expression and its opposite is kept.
  using TrialCount = std::function<std::int64_t()>;

  // Store and pool must outlive the queue, and the pool be of this store. The trials are asked for
  // once a sync, where the thresholds have a least deflated Sharpe ratio. Throws
  // std::invalid_argument for thresholds that are not from 0 to 1, and for such a one without
  // trials.
  SubmissionQueue(RunStore& store, SignalPool& pool, const PoolThresholds& thresholds,
                  WallClock wall_clock, TrialCount trials = {});

  // Keeps a payload and the PnL of its signal. `eval_id` in the payload names the evaluation, which
  // must be in the store. False only when the store is busy. A payload whose structure is queued or
  // submitted already is true and changes nothing.
  //
  // Throws std::invalid_argument for a payload without `eval_id`, or of another pool, market or era
  // than this queue's, and for a PnL without a day or with an entry that is no finite number;
  // genetic::TypeError for a payload that JSON cannot hold; StoreError for other troubles.
  [[nodiscard]] bool enqueue(const genetic::Mapping& payload, const Eigen::ArrayXd& pnl);

  // Settles what is queued for this pool.
  SyncReport sync();

 private:
  void check_payload(const genetic::Mapping& payload) const;
  // Nothing is done where another process has settled it meanwhile.
  void settle_number(std::int64_t id, std::int64_t trials, SyncReport& report);
  // Under the lock. Nothing where the payload has to wait.
  std::optional<SettledSubmission> settle(const SubmissionPnl& queued, std::int64_t trials,
                                          SyncReport& report);
  // Takes those that a new member replaces out of the pool, under the same lock.
  [[nodiscard]] std::vector<std::string> retire_replaced(const SubmissionPnl& joined);
  [[nodiscard]] bool asks_for_luck() const { return thresholds_.min_deflated_sharpe > 0.0; }

  RunStore& store_;
  SignalPool& pool_;
  PoolThresholds thresholds_;
  WallClock wall_clock_;
  TrialCount trials_;
};

}  // namespace varnholt::embedded
