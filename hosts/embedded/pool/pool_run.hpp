// One run of the worker pool: the loop of the parent. Each turn waits in one poll over all pipes
// and ends of workers for at most 5 ms, drains the pipes, and only then acts upon what it saw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include <poll.h>

#include "hosts/embedded/pool/pool_types.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/pool/work.hpp"
#include "hosts/embedded/pool/worker.hpp"

namespace varnholt::embedded {

// Made for one call of ForkPool::run; everything that it is given outlives it.
class PoolRun {
 public:
  PoolRun(SystemCalls& system, const PoolConfig& config, const Work& work,
          const PoolCallbacks& callbacks, std::size_t item_count);
  PoolRun(const PoolRun&) = delete;
  PoolRun& operator=(const PoolRun&) = delete;
  // All are killed before the first is waited for, so that they die at the same time.
  ~PoolRun() { kill_all(); }

  [[nodiscard]] std::vector<PoolOutcome> conduct();

 private:
  void launch();
  void wait();
  void act();
  void stop();

  // An attempt that no worker is at.
  struct Waiting {
    WorkItem item;
    // It was given to a worker before, and gets one of its own.
    bool has_come_back = false;
    // What was told of it; each is told once.
    bool is_dispatched = false;
    bool is_started = false;
  };

  void pause() const;
  // Whether no item may be begun that was not worked on yet.
  [[nodiscard]] bool is_held();
  // Brings the next item to be worked on to the front. False when there is none, or none may be
  // begun.
  [[nodiscard]] bool find_next();
  // How many of the items in front go to one worker.
  [[nodiscard]] std::size_t next_share() const;
  // Tells of the attempts once, however often their worker fails to start.
  void dispatch(std::size_t share);
  [[nodiscard]] std::optional<LaunchFailure> start_worker(std::size_t share);
  void give_up_front(const LaunchFailure& failure);
  [[nodiscard]] int wait_milliseconds() const;
  // When the worker's time is over, unless it ends before.
  [[nodiscard]] std::optional<std::int64_t> deadline(Worker& worker) const;
  [[nodiscard]] bool is_over(Worker& worker) const;
  // Takes out those that have ended or are at their limit.
  [[nodiscard]] std::vector<std::unique_ptr<Worker>> take_ended();
  // Tells of the results behind which the worker went on.
  void tell_results(Worker& worker);
  void tell_started(const WorkItem& item, pid_t pid);
  // Ends the worker, and sees to all its items.
  void end(Worker& worker);
  // Ends the worker and reports the outcome of its present item.
  [[nodiscard]] PoolOutcome conclude(Worker& worker);
  // What is known of the present item of any worker; without more it counts as stopped.
  [[nodiscard]] PoolOutcome outcome_of(const Worker& worker) const;
  void settle(PoolOutcome outcome, bool is_first_of_worker);
  void complete(PoolOutcome outcome);
  void kill_all() noexcept {
    for (const std::unique_ptr<Worker>& worker : workers_) {
      worker->kill();
    }
  }

  SystemCalls& system_;
  const PoolConfig& config_;
  const Work& work_;
  const PoolCallbacks& callbacks_;
  std::vector<PoolOutcome> outcomes_;
  std::vector<int> changed_signals_;
  std::deque<Waiting> waiting_;
  std::size_t items_per_worker_;
  std::vector<std::unique_ptr<Worker>> workers_;
  std::vector<pollfd> poll_entries_;
  std::size_t completed_ = 0;
  bool held_ = false;
  int failed_launches_ = 0;
  int failed_polls_ = 0;
};

}  // namespace varnholt::embedded
