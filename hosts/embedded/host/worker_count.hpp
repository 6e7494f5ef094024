// How many workers a batch gets: the least of the number asked for, the number of candidates, and
// what the machine can keep busy and has memory for, but at least one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "hosts/embedded/system/machine_limits.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"

namespace varnholt::embedded {

struct WorkerDemand {
  std::int64_t requested = 1;
  std::int64_t candidates = 1;
  // How many of them one worker gets at a time.
  std::int64_t candidates_per_worker = 1;
  // The limit of a worker's address space, and how much of that is what it inherits.
  std::optional<std::uint64_t> worker_memory_limit_bytes = std::nullopt;
  std::uint64_t inherited_bytes = 0;
};

class ResolvedWorkers : public genetic::WorkerResolution {
 public:
  ResolvedWorkers(const WorkerDemand& demand, const MachineLimits& limits);

  // How many candidates are with workers at a time: the search hands the pool so many at once, and
  // takes it for the number of workers.
  [[nodiscard]] genetic::Value resolved() const override {
    return resolved_ * candidates_per_worker_;
  }
  // The number of workers.
  [[nodiscard]] std::int64_t count() const { return resolved_; }
  [[nodiscard]] std::int64_t requested() const { return requested_; }
  // Why the machine allows fewer than were asked for: "this process may run on 2 processors". Empty
  // where it does not. A batch of few candidates is no reason.
  [[nodiscard]] const std::string& reduction() const { return reduction_; }

 private:
  void cap(std::int64_t count, const std::string& why);

  std::int64_t requested_;
  std::int64_t resolved_;
  std::int64_t candidates_per_worker_;
  std::string reduction_;
};

}  // namespace varnholt::embedded
