#include "hosts/embedded/host/signal_submission.hpp"

#include <utility>

#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/signal_pool/pool_errors.hpp"
#include "hosts/embedded/system/wall_clock.hpp"
#include "hosts/embedded/vocabulary/opposite_graph.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

const Eigen::ArrayXd& required_pnl(const Value& stats) {
  const StatisticsObject* const object = statistics_object(stats);
  if (object == nullptr || !object->pnl()) {
    throw genetic::ValueError("the statistics hold no daily PnL to compare with the pool's");
  }
  return *object->pnl();
}

namespace {

// The search submits what it tried; what joins the pool is the side that was judged.
Mapping as_judged(const Mapping& payload, const BacktestStatistics& statistics) {
  if (!statistics.is_of_opposite()) return payload;
  Mapping judged = genetic::shallow_copy(payload);
  judged.set(keys::kGraph, opposite_graph(payload.get(keys::kGraph)));
  return judged;
}

}  // namespace

SignalSubmission::SignalSubmission(RunStore& store, const Evaluator& evaluator,
                                   const PoolIdentity& identity, const PoolSettings& settings,
                                   const std::optional<Eigen::ArrayXd>& founder,
                                   SubmissionQueue::TrialCount trials)
    : evaluator_(evaluator),
      thresholds_{settings.thresholds()},
      pool_(store, identity, static_cast<Eigen::Index>(settings.minimum_days), thresholds_,
            founder),
      queue_(store, pool_, thresholds_, wall_clock_seconds, std::move(trials)) {}

bool SignalSubmission::refresh() {
  last_measured_.reset();
  return pool_.refresh();
}

std::vector<Behaviour> SignalSubmission::member_behaviours(const Eigen::ArrayXd& market_returns) {
  const double periods_per_year = evaluator_.options().book.periods_per_year;
  std::vector<Behaviour> members;
  for (const auto& [submission, pnl] : pool_.member_pnl(market_returns.size())) {
    const auto [known, is_new] = behaviours_.try_emplace(submission);
    if (is_new) known->second = behaviour_of(pnl, market_returns, periods_per_year);
    if (known->second) members.push_back(*known->second);
  }
  return members;
}

SyncReport SignalSubmission::sync() {
  last_measured_.reset();
  recorded_.clear();
  SyncReport report = queue_.sync();
  // For the children that are forked next. They would do without, only the parent would have more
  // to compare.
  static_cast<void>(pool_.refresh());
  report.set_aside = pool_.take_set_aside();
  return report;
}

const PoolMeasure& SignalSubmission::measure(const Value& stats) {
  if (last_measured_ && genetic::same_object(last_measured_->stats, stats)) {
    return last_measured_->measure;
  }
  PoolMeasure measured;
  if (pool_.has_members()) {
    const Eigen::ArrayXd& pnl = required_pnl(stats);
    const auto& comparison = statistics_object(stats)->comparison();
    if (comparison) pool_.take_over(pnl, *comparison);
    try {
      measured = pool_.measure(pnl);
    } catch (const PoolPnlMissing& error) {
      throw PoolDataNotReady(error.what());
    } catch (const PoolMetricNotYetComputable& error) {
      throw PoolDataNotReady(error.what());
    }
  }
  return last_measured_.emplace(Measured{stats, measured}).measure;
}

Value SignalSubmission::compared(const BacktestResult& backtest,
                                 const std::optional<Behaviour>& behaviour) {
  std::optional<PoolComparison> comparison;
  try {
    comparison = pool_.compare(backtest.net_returns);
  } catch (const PoolPnlMissing&) {
    // The parent meets the same when it measures, and makes the candidate wait.
  } catch (const PoolMetricNotYetComputable&) {
    // Likewise.
  }
  return genetic::make_object<StatisticsObject>(backtest.statistics, backtest.net_returns,
                                                comparison, behaviour);
}

void SignalSubmission::keep_pnl(const Value& eval_id, const Value& stats) {
  const StatisticsObject* const object = statistics_object(stats);
  if (object != nullptr && object->pnl()) recorded_.insert_or_assign(genetic::str(eval_id), stats);
}

bool SignalSubmission::enqueue(const Mapping& payload) {
  const auto known = recorded_.find(genetic::str(payload.get(keys::kEvalId)));
  if (known != recorded_.end()) {
    const StatisticsObject& object = *statistics_object(known->second);
    return queue_.enqueue(as_judged(payload, object.statistics()), required_pnl(known->second));
  }
  const BacktestResult backtest = evaluator_.judge(payload.get(keys::kGraph));
  return queue_.enqueue(as_judged(payload, backtest.statistics), backtest.net_returns);
}

}  // namespace varnholt::embedded
