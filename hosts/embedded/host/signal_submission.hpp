// One search's way into the signal pool: measuring a candidate against it, and submitting what
// passes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/archive/behaviour.hpp"
#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/config/host_config.hpp"
#include "hosts/embedded/signal_pool/signal_pool.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/submission/submission_queue.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The pool cannot be measured against yet: a member's PnL is missing, or there are too few days.
class PoolDataNotReady : public genetic::RuntimeError {
 public:
  using RuntimeError::RuntimeError;
};

// The daily PnL that a statistics object holds. genetic::ValueError when it holds none.
[[nodiscard]] const Eigen::ArrayXd& required_pnl(const genetic::Value& stats);

class SignalSubmission {
 public:
  // Store and evaluator must outlive the object. `founder` is that of the pool (SignalPool),
  // `trials` is the queue's (SubmissionQueue).
  SignalSubmission(RunStore& store, const Evaluator& evaluator, const PoolIdentity& identity,
                   const PoolSettings& settings, const std::optional<Eigen::ArrayXd>& founder = {},
                   SubmissionQueue::TrialCount trials = {});

  [[nodiscard]] const PoolIdentity& identity() const { return pool_.identity(); }
  [[nodiscard]] const PoolThresholds& thresholds() const { return thresholds_; }

  // Brings the members in; whether membership is confirmed.
  [[nodiscard]] bool refresh();
  [[nodiscard]] bool has_members() const { return pool_.has_members(); }
  // What the members do that were held on the days of these market returns, which are the same at
  // each call: what a member does is computed once.
  [[nodiscard]] std::vector<Behaviour> member_behaviours(const Eigen::ArrayXd& market_returns);

  // Both metrics of a statistics object, which must hold its daily PnL where the pool has members.
  // The search asks for one metric after the other; the answer for the last object is kept until
  // the members may have changed, at the next refresh or sync. PoolDataNotReady;
  // genetic::ValueError for statistics without a PnL.
  [[nodiscard]] const PoolMeasure& measure(const genetic::Value& stats);

  // What a child makes of a backtest that passed the gates: statistics with the daily PnL, which
  // need no second backtest and no second comparison in the parent. Without comparison where there
  // is nothing to compare with, or the pool's data is not ready. Reads no store.
  [[nodiscard]] genetic::Value compared(const BacktestResult& backtest,
                                        const std::optional<Behaviour>& behaviour = {});

  // A candidate that passed was recorded under this evaluation id: the PnL that its statistics
  // hold, if any, is kept until the next sync for enqueue().
  void keep_pnl(const genetic::Value& eval_id, const genetic::Value& stats);

  // Queues the payload with the PnL that was kept for its evaluation; where none was, its graph is
  // evaluated. False when the store is busy.
  [[nodiscard]] bool enqueue(const genetic::Mapping& payload);
  // Settles what is queued, and brings the members in.
  SyncReport sync();

 private:
  struct Measured {
    genetic::Value stats;
    PoolMeasure measure;
  };

  const Evaluator& evaluator_;
  PoolThresholds thresholds_;
  SignalPool pool_;
  SubmissionQueue queue_;
  std::optional<Measured> last_measured_;
  std::unordered_map<std::int64_t, std::optional<Behaviour>> behaviours_;  // By submission.
  std::unordered_map<std::string, genetic::Value> recorded_;  // Statistics by evaluation id.
};

}  // namespace varnholt::embedded
