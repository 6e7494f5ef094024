// The members of a signal pool on the days of a run: computed anew where they were submitted on
// others.
//
// A pool lives on through new data. Prices get more days, or their history is adjusted for another
// dividend; rules and eras change. Two signals compare only by their PnL on the same days of the
// same prices at the same rules, so each member is backtested on those of the run at hand, once,
// and what it came to is kept beside what it was submitted with. A member that cannot be computed
// there (its file had volumes, and this one has none) stays in the pool with the reason, and no
// signal is compared with it; each run tries it once more. What is queued is measured likewise.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

class MemberMeasuring {
 public:
  struct Settings {
    std::int64_t run = 0;  // In whose name they are measured.
    int jobs = 1;
    double timeout_seconds = 60.0;
    std::optional<std::int64_t> worker_memory_limit_bytes = {};
    std::optional<int> worker_nice = {};
  };
  using Progress = std::function<void(const PoolMeasuring&)>;

  // All but the settings must outlive the object; the evaluator is over the days that the run sees.
  MemberMeasuring(RunStore& store, const Evaluator& evaluator, SystemCalls& system,
                  PoolIdentity pool, const Settings& settings);

  // Measures what has no measure on these days yet, in forked workers; most often there is nothing,
  // and then nothing is told. Each result is in the store before the next is waited for, so that
  // what stops it costs none of them: the rest is measured by the next call, of whatever run.
  // Throws StoreError, and PoolError where no worker can be started.
  void measure(const StopQuestion& is_stopping, const Progress& progress);

 private:
  [[nodiscard]] std::vector<UnmeasuredSubmission> wanted();
  [[nodiscard]] PoolConfig pool_config(std::size_t members) const;
  [[nodiscard]] std::string measured(const UnmeasuredSubmission& member) const;
  // Whether the member could be computed.
  bool record(const UnmeasuredSubmission& member, const PoolOutcome& outcome);

  RunStore& store_;
  const Evaluator& evaluator_;
  SystemCalls& system_;
  PoolIdentity pool_;
  Settings settings_;
  std::set<std::int64_t> tried_;  // Submissions that could not be computed in this run.
};

}  // namespace varnholt::embedded
