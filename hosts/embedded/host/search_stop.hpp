// When a search ends: at a limit, or when a signal asks for it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "search_templates/genetic/host/stop_event.hpp"

namespace varnholt::embedded {

struct StopLimits {
  std::optional<std::int64_t> generations = std::nullopt;
  std::optional<std::int64_t> candidates = std::nullopt;
  std::optional<double> seconds = std::nullopt;
};

// The stop event of a search. Once set it stays set, and keeps its first cause. Whoever asks
// whether it is set gets InterruptedAtOnce after the second interrupt.
class SearchStop : public genetic::StopEvent {
 public:
  // The seconds count from here.
  SearchStop(const StopLimits& limits, const InterruptFlag& interrupt)
      : limits_(limits), interrupt_(interrupt) {}

  [[nodiscard]] bool is_set() override;
  // Waits unless the event is set.
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
  [[nodiscard]] StopCause current_cause() const;

  StopLimits limits_;
  const InterruptFlag& interrupt_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::int64_t generations_ = 0;
  std::int64_t candidates_ = 0;
  StopCause cause_ = StopCause::None;
};

}  // namespace varnholt::embedded
