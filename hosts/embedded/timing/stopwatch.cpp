#include "hosts/embedded/timing/stopwatch.hpp"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <time.h>

#include "hosts/embedded/timing/backtest_timing.hpp"

namespace varnholt::embedded {
namespace {

double seconds_of(clockid_t clock) {
  timespec time{};
  if (::clock_gettime(clock, &time) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot read a clock of the system");
  }
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

}  // namespace

double SystemTimingClock::wall_seconds() {
  return seconds_of(CLOCK_REALTIME);
}

double SystemTimingClock::monotonic_seconds() {
  return seconds_of(CLOCK_MONOTONIC);
}

double SystemTimingClock::cpu_seconds() {
  return seconds_of(CLOCK_PROCESS_CPUTIME_ID);
}

BacktestStopwatch::BacktestStopwatch(TimingClock& clock, const ProcessIdentity& process)
    : clock_(clock),
      process_id_(process.pid),
      process_started_(process.started_ticks),
      started_at_(clock.wall_seconds()),
      monotonic_start_(clock.monotonic_seconds()),
      cpu_start_(clock.cpu_seconds()) {}

genetic::Mapping BacktestStopwatch::timing(const genetic::Value& graph) const {
  // The clocks are read before the graph's key is computed, which is no part of the backtest.
  const double cpu_seconds = clock_.cpu_seconds() - cpu_start_;
  const double elapsed_seconds = clock_.monotonic_seconds() - monotonic_start_;
  return validate_process_backtest_timing_payload(
      graph, genetic::Mapping{{timing_keys::kGraphKey, graph_timing_key(graph)},
                              {timing_keys::kStartedAt, started_at_},
                              {timing_keys::kElapsedSeconds, elapsed_seconds},
                              {timing_keys::kCpuSeconds, cpu_seconds},
                              {timing_keys::kProcessId, process_id_},
                              {timing_keys::kProcessStarted, process_started_}});
}

}  // namespace varnholt::embedded
