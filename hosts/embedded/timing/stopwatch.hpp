// Measuring the timing of a backtest.
//
//   const BacktestStopwatch stopwatch(clock, own_identity());
//   Evaluation evaluation = evaluator.evaluate(graph);
//   timings.record(graph, stopwatch.timing(graph));
#pragma once

#include <cstdint>

#include "hosts/embedded/system/process_identity.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The three clocks of a timing, in seconds, so that tests can set the time.
class TimingClock {
 public:
  virtual ~TimingClock() = default;

  virtual double wall_seconds() = 0;       // Since 1970-01-01 UTC.
  virtual double monotonic_seconds() = 0;  // Since some moment; never goes back.
  virtual double cpu_seconds() = 0;        // Of this process, all of its threads.
};

// CLOCK_REALTIME, CLOCK_MONOTONIC and CLOCK_PROCESS_CPUTIME_ID. std::system_error where the system
// refuses one.
class SystemTimingClock : public TimingClock {
 public:
  double wall_seconds() override;
  double monotonic_seconds() override;
  double cpu_seconds() override;
};

// Starts when it is constructed. The clock must outlive it. `process` is the process that it runs
// in: after a fork the child, not the parent.
class BacktestStopwatch {
 public:
  BacktestStopwatch(TimingClock& clock, const ProcessIdentity& process);

  // The timing of a backtest of `graph` from the start until now, in its normal form, with process
  // identity. It may be asked for more than once. Fails as graph_timing_key does.
  [[nodiscard]] genetic::Mapping timing(const genetic::Value& graph) const;

 private:
  TimingClock& clock_;
  std::int64_t process_id_;
  std::int64_t process_started_;
  double started_at_;
  double monotonic_start_;
  double cpu_start_;
};

}  // namespace varnholt::embedded
