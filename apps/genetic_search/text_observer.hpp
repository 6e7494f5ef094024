// Reports a run to people.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "apps/genetic_search/progress_line.hpp"
#include "apps/genetic_search/report.hpp"
#include "apps/genetic_search/run_observer.hpp"
#include "hosts/embedded/search/search_options.hpp"

namespace varnholt::app {

// On a terminal one line is drawn anew while the search goes on; elsewhere each generation adds a
// line. Warnings go to the messages, with the line out of the way.
class TextObserver : public RunObserver {
 public:
  struct Style {
    // The width of the terminal now; none where the text goes elsewhere.
    std::function<std::size_t()> terminal_width;
    bool quiet = false;  // Only warnings and the end.
  };

  TextObserver(const RunOutputs& outputs, const embedded::InterruptFlag& interrupt,
               const embedded::SearchOptions& options, Style style);

  void finish(const embedded::SearchSummary& summary) override;
  void clear() override;

  void on_measuring(const embedded::PoolMeasuring& measuring) override;
  void on_recorded(const embedded::CandidateRecorded& candidate) override;
  [[nodiscard]] bool tells_candidates() const override { return false; }
  void on_settled(const embedded::SettledSignal& signal) override;
  void on_generation(const embedded::SearchProgress& progress) override;
  void on_log(embedded::LogLevel level, std::string_view text) override;
  void on_metrics(const genetic::Mapping& metrics) override;

 private:
  void tell_started(const embedded::SearchStarted& started) override;
  void tell_progress(const embedded::SearchProgress& progress,
                     std::int64_t evaluated_in_batch) override;
  void tell_stopping(const embedded::SearchProgress& progress) override;

  // The terminal's, if there is one.
  [[nodiscard]] Width width() const;
  // Of the line that is drawn on it.
  [[nodiscard]] std::size_t line_width() const;
  void draw(const std::string& line, double now);

  embedded::SearchOptions options_;
  Style style_;
  LiveLine line_;
  embedded::SearchStarted started_;
  double elapsed_at_generation_ = 0.0;  // Of the last one completed.
};

}  // namespace varnholt::app
