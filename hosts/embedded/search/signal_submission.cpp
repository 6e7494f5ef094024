#include "hosts/embedded/search/signal_submission.hpp"

#include "hosts/embedded/search/statistics_object.hpp"
#include "hosts/embedded/search/wall_clock.hpp"
#include "hosts/embedded/signal_pool/pool_errors.hpp"
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

SignalSubmission::SignalSubmission(RunStore& store, const Evaluator& evaluator,
                                   const PoolIdentity& identity, const PoolSettings& settings)
    : evaluator_(evaluator),
      thresholds_{settings.pnl_mi_min, settings.correlation_max},
      pool_(store, identity, static_cast<Eigen::Index>(settings.minimum_days)),
      queue_(store, pool_, thresholds_, wall_clock_seconds) {}

bool SignalSubmission::refresh() {
  last_measured_.reset();
  return pool_.refresh();
}

SyncReport SignalSubmission::sync() {
  last_measured_.reset();
  return queue_.sync();
}

const PoolMeasure& SignalSubmission::measure(const Value& stats) {
  if (last_measured_ && genetic::same_object(last_measured_->stats, stats)) {
    return last_measured_->measure;
  }
  PoolMeasure measured;
  if (pool_.has_members()) {
    try {
      measured = pool_.measure(required_pnl(stats));
    } catch (const PoolPnlMissing& error) {
      throw PoolDataNotReady(error.what());
    } catch (const PoolMetricNotYetComputable& error) {
      throw PoolDataNotReady(error.what());
    }
  }
  return last_measured_.emplace(Measured{stats, measured}).measure;
}

bool SignalSubmission::enqueue(const Mapping& payload) {
  return queue_.enqueue(payload,
                        evaluator_.evaluate(payload.get(keys::kGraph)).backtest.net_returns);
}

}  // namespace varnholt::embedded
