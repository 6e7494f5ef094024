// When a search ends: at a limit, or when a signal asks for it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>

#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "search_templates/genetic/host/stop_event.hpp"

namespace varnholt::embedded {

struct StopLimits {
  std::optional<std::int64_t> generations = std::nullopt;
  std::optional<std::int64_t> candidates = std::nullopt;
  std::optional<double> seconds = std::nullopt;
};

// The limit in seconds was over before the run began: nothing is stored.
class TimeIsOver : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The stop event of a search. Once set it stays set, and keeps its first cause. Whoever asks
// whether it is set gets InterruptedAtOnce after the second interrupt.
class SearchStop : public genetic::StopEvent {
 public:
  // The limit in seconds counts from here, so that it holds while the files are read as well.
  SearchStop(const StopLimits& limits, const InterruptFlag& interrupt)
      : limits_(limits), interrupt_(interrupt) {}

  // For what comes before the run. Nothing is stored then, so the first interrupt ends it at once:
  // throws InterruptedAtOnce, and TimeIsOver where the limit in seconds is over.
  void check_before_run() const;
  // The run begins: what is told as elapsed counts from here.
  void begin_run() { run_start_ = Clock::now(); }
  // For what comes after the run: whether it is to be cut short. So it is at an interrupt that came
  // after `requests_before`, and when it has taken more than its share of the limit in seconds: a
  // tenth, and at least a second. Throws InterruptedAtOnce at the second interrupt.
  [[nodiscard]] bool ends_report(int requests_before) const;

  [[nodiscard]] bool is_set() override;
  // Does not wait.
  [[nodiscard]] bool wait(double seconds) override;

  void count_candidate() { ++candidates_; }
  void count_generation() { ++generations_; }

  // Whether evaluations under way are to be cancelled: at a signal and at the limit in seconds. The
  // other limits let the batch complete. Never throws: it is asked while attempts are being closed
  // too, and each of them has to come to its end.
  [[nodiscard]] bool cancels_evaluations();

  [[nodiscard]] StopCause cause() const { return cause_; }
  [[nodiscard]] double elapsed_seconds() const;

 private:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] StopCause current_cause() const;
  [[nodiscard]] bool is_over(double seconds) const;

  StopLimits limits_;
  const InterruptFlag& interrupt_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point run_start_ = start_;
  std::int64_t generations_ = 0;
  std::int64_t candidates_ = 0;
  StopCause cause_ = StopCause::None;
};

}  // namespace varnholt::embedded
