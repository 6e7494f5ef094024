// One batch of candidates through forked workers: what the pool is configured with, and the events
// that its callbacks are told.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/host/worker_errors.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Made for one batch; everything that it is given must outlive it.
//
// A candidate's attempt is told in this order, on the thread that runs the batch:
//
//   pre_dispatch          before its worker is forked
//   lifecycle, progress   "started"
//   lifecycle, progress   "ok" when its result is whole
//   lifecycle, progress   "error" when it has none, with `retrying` where another attempt follows
//   completed_result_callback, when all candidates before it in the batch are done as well
//
// Results are handed on in the order of the batch and not in that of the clock: what is recorded,
// numbered and submitted is then the same for any number of workers. The price is that a result
// waits in memory for a slow candidate before it.
//
// Between any two of them, and at least every 5 ms, parent_poll_callback is called. A callback is
// never called while another one runs. What one throws kills and reaps all workers and leaves run()
// as it is.
class PoolBatch {
 public:
  PoolBatch(const genetic::ProcessEvaluationConfig& config, const genetic::List& candidates);

  // What the fork pool is told, but for the number of workers.
  [[nodiscard]] PoolConfig pool_config() const;
  [[nodiscard]] PoolCallbacks callbacks();

  // Hands on the results that still wait, when the pool has run.
  void hand_on_rest() { hand_on(places_.size()); }
  // The process results in the order of the batch, as far as they were handed on.
  // ProcessEvaluationError for the candidates whose worker failed or was too slow.
  [[nodiscard]] genetic::List results() const;

 private:
  struct Place {
    bool is_done = false;
    std::optional<genetic::Value> result;
  };

  void dispatch(const WorkItem& item);
  void start(const WorkItem& item);
  void lose(const PoolOutcome& outcome);
  void complete(const PoolOutcome& outcome);
  void take_result(const PoolOutcome& outcome);
  // Hands on the results before `end` that were not yet, in order.
  void hand_on(std::size_t end);
  void give_up(const PoolOutcome& outcome);

  [[nodiscard]] genetic::Value index_of(std::size_t item) const;
  [[nodiscard]] genetic::Mapping event(const char* name, std::size_t item, int attempt) const;
  void tell(const genetic::Mapping& event) const;
  void tell_error(const PoolOutcome& outcome, bool retrying) const;
  // What happened to a worker, for people.
  [[nodiscard]] std::string detail_of(const PoolOutcome& outcome) const;

  const genetic::ProcessEvaluationConfig& config_;
  const genetic::List& candidates_;
  std::vector<Place> places_;
  std::size_t handed_on_ = 0;
  genetic::List results_;
  // By their place in the batch.
  std::map<std::size_t, WorkerFailure> failures_;
};

}  // namespace varnholt::embedded
