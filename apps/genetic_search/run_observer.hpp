// Reporting a run while it goes on and at its end: what both kinds of report share.
#pragma once

#include <string>
#include <string_view>

#include "apps/genetic_search/output.hpp"
#include "hosts/embedded/host/search_events.hpp"

namespace varnholt::app {

// Where a run is reported. Both outputs outlive the observer.
struct RunOutputs {
  Output& text;      // Standard output: results and progress.
  Output& messages;  // Standard error: warnings, and what a user at the keyboard is to know.
};

class RunObserver : public embedded::SearchObserver {
 public:
  RunObserver(const RunOutputs& outputs, const embedded::InterruptFlag& interrupt)
      : outputs_(outputs), interrupt_(interrupt) {}

  // Reports the end.
  virtual void finish(const embedded::SearchSummary& summary) = 0;
  // Leaves the outputs in a state in which others can write to them: an error, for instance.
  virtual void clear() = 0;

  // A line for the user, with the program's name before it.
  void message(std::string_view text);

  // Whether the search has begun: errors before that are about its input.
  [[nodiscard]] bool has_started() const noexcept { return has_started_; }

  void on_started(const embedded::SearchStarted& started) final;
  void on_tick(const embedded::SearchProgress& progress, std::int64_t evaluated_in_batch) final;

 protected:
  virtual void tell_started(const embedded::SearchStarted& started) = 0;
  virtual void tell_progress(const embedded::SearchProgress& progress,
                             std::int64_t evaluated_in_batch) = 0;
  // The first request to stop was seen. Reported once.
  virtual void tell_stopping(const embedded::SearchProgress& progress) = 0;

  [[nodiscard]] const RunOutputs& outputs() const noexcept { return outputs_; }

 private:
  RunOutputs outputs_;
  const embedded::InterruptFlag& interrupt_;
  bool has_started_ = false;
  bool stopping_told_ = false;
};

// "stopping after 214 candidates (press Ctrl-C again to end at once)"
[[nodiscard]] std::string stopping_text(const embedded::SearchProgress& progress);

}  // namespace varnholt::app
