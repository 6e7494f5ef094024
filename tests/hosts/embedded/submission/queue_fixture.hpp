// A queue on a store with a run in it, and payloads for it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hosts/embedded/submission/submission_queue.hpp"
#include "search_templates/genetic/value/value.hpp"
#include "tests/hosts/embedded/signal_pool/pool_fixture.hpp"

namespace varnholt::embedded::test {

class QueueTest : public PoolTest {
 protected:
  static constexpr double kNow = 5000.25;

  // A connection of its own, as another process would have.
  struct Party {
    Party(const std::string& path, const PoolIdentity& identity, const PoolThresholds& thresholds,
          SubmissionQueue::WallClock clock)
        : store(path, {.busy_timeout_milliseconds = 20}),
          pool(store, identity),
          queue(store, pool, thresholds, std::move(clock)) {}
    SqliteRunStore store;
    SignalPool pool;
    SubmissionQueue queue;
  };

  [[nodiscard]] std::unique_ptr<Party> party(SubmissionQueue::WallClock clock = [] {
    return kNow;
  }) const {
    return std::make_unique<Party>(path_, pool_, thresholds_, std::move(clock));
  }
  [[nodiscard]] genetic::Mapping payload(const std::string& eval_id) const {
    return {{"eval_id", eval_id},
            {"submission_type", "signal"},
            {"signal_pool_name", pool_.signal_pool_name},
            {"market_id", pool_.market_id},
            {"era_number", pool_.era_number}};
  }
  static std::vector<std::string> ids(const SyncReport& report) {
    std::vector<std::string> found;
    for (const SettledSubmission& settled : report.settled)
      found.push_back(settled.eval_id);
    return found;
  }
  // The members of the pool, in the order of settlement.
  [[nodiscard]] std::vector<std::string> member_ids() {
    std::vector<std::string> found;
    for (const SubmissionPnl& member : store_->submissions().members(pool_))
      found.push_back(member.eval_id);
    return found;
  }
  [[nodiscard]] SubmissionRecord record_of(const std::string& eval_id) {
    return store_->submissions().of_evaluation(eval_id).back();
  }
  [[nodiscard]] std::string state_of(const std::string& eval_id) {
    return name_of(record_of(eval_id).state);
  }

  const PoolThresholds thresholds_{0.3, 0.7};
};

}  // namespace varnholt::embedded::test
