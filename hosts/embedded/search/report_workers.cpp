#include "hosts/embedded/search/report_workers.hpp"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "hosts/embedded/host/isolation.hpp"
#include "hosts/embedded/host/worker_count.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "hosts/embedded/system/machine_limits.hpp"
#include "hosts/embedded/system/memory_advice.hpp"

namespace varnholt::embedded {
namespace {

PoolConfig pool_config(const ReportWorkers::Settings& settings, std::size_t items) {
  WorkerDemand demand;
  demand.requested = settings.jobs;
  demand.candidates = static_cast<std::int64_t>(items);
  PoolConfig config;
  config.jobs = static_cast<int>(ResolvedWorkers(demand, read_machine_limits()).count());
  config.items_per_worker = kChunkCandidates;
  config.nice = settings.nice;
  return config;
}

// Hands results on in order.
class InOrder {
 public:
  InOrder(std::size_t items, const ReportWorkers::Taker& take) : results_(items), take_(take) {}

  void add(std::size_t index, std::string result) {
    results_[index] = std::move(result);
    while (next_ < results_.size() && results_[next_])
      hand_on();
  }
  // Nothing more comes for the item.
  void leave_out(std::size_t index) {
    while (next_ <= index)
      hand_on();
  }
  [[nodiscard]] bool is_missing(std::size_t index) const {
    return index >= next_ && !results_[index];
  }

 private:
  void hand_on() {
    const std::size_t index = next_++;
    // Taken out first: it is not needed again, whatever comes of it.
    if (const auto result = std::exchange(results_[index], std::nullopt)) take_(index, *result);
  }

  std::vector<std::optional<std::string>> results_;
  const ReportWorkers::Taker& take_;
  std::size_t next_ = 0;
};

}  // namespace

ReportWorkers::ReportWorkers(SystemCalls& system, const Settings& settings, StopQuestion is_cut)
    : system_(system), settings_(settings), question_(std::move(is_cut)) {}

bool ReportWorkers::is_cut() {
  is_cut_ = is_cut_ || (question_ && question_());
  return is_cut_;
}

void ReportWorkers::run(std::size_t items, const Work& work, const Taker& take) {
  if (items == 0) return;
  InOrder results(items, take);
  PoolCallbacks callbacks;
  callbacks.stop_requested = [this] { return is_cut(); };
  callbacks.completed_callback = [&results](const PoolOutcome& outcome) {
    if (outcome.status == PoolStatus::Completed) results.add(outcome.index, outcome.payload);
  };
  bool is_prepared = false;  // In the memory of a worker, which begins as it is here.
  const Work in_worker = [&](const WorkItem& item) {
    if (!std::exchange(is_prepared, true)) keep_freed_panels(settings_.panel_bytes);
    return work(item);
  };
  const ForkPool pool(system_, pool_config(settings_, items));
  static_cast<void>(pool.run(items, in_worker, callbacks));
  for (std::size_t index = 0; index < items; ++index) {
    if (!results.is_missing(index)) continue;
    if (is_cut()) {
      results.leave_out(index);
    } else {
      results.add(index, work({index, 0}));
    }
  }
  results.leave_out(items - 1);
}

}  // namespace varnholt::embedded
