#include "apps/genetic_search/text_observer.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "apps/genetic_search/text_layout.hpp"

namespace varnholt::app {

TextObserver::TextObserver(const RunOutputs& outputs, const embedded::InterruptFlag& interrupt,
                           const embedded::SearchOptions& options, Style style)
    : RunObserver(outputs, interrupt), options_(options), style_(std::move(style)) {}

void TextObserver::clear() {
  outputs().text.write(line_.erase());
}

Width TextObserver::width() const {
  return style_.terminal_width ? Width(style_.terminal_width()) : std::nullopt;
}

void TextObserver::tell_started(const embedded::SearchStarted& started) {
  started_ = started;
  // What lets more signals through is told beside the gates that there were.
  options_.config.gates = started.gates;
  if (!style_.quiet) outputs().text.write(started_text(started, width()));
}

void TextObserver::tell_progress(const embedded::SearchProgress& progress,
                                 std::int64_t evaluated_in_batch) {
  if (style_.quiet || !style_.terminal_width || line_.is_too_soon(progress.elapsed_seconds)) return;
  const RunLimits limits{options_.generations, options_.candidates, options_.seconds};
  const BatchUnderWay batch{evaluated_in_batch, started_.batch_size,
                            seconds_left(limits, progress, elapsed_at_generation_)};
  draw(live_progress_text(progress, batch, line_width()), progress.elapsed_seconds);
}

std::size_t TextObserver::line_width() const {
  // Room for the cursor and for the "^C" of an interrupt: a line that reached into the next one
  // could not be erased.
  constexpr std::size_t kKeptFree = 3;
  return std::max(style_.terminal_width(), kKeptFree + 1) - kKeptFree;
}

void TextObserver::draw(const std::string& line, double now) {
  if (const auto drawing = line_.draw(cut_to_width(line, line_width()), now)) {
    outputs().text.write(*drawing);
  }
}

void TextObserver::tell_stopping(const embedded::SearchProgress& progress) {
  message(stopping_text(progress));
}

void TextObserver::on_measuring(const embedded::PoolMeasuring& measuring) {
  if (style_.quiet) return;
  if (measuring.is_over) {
    clear();
    outputs().text.write(measured_text(measuring, width()));
  } else if (style_.terminal_width) {
    draw(measuring_text(measuring), measuring.elapsed_seconds);
  }
}

void TextObserver::on_recorded(const embedded::CandidateRecorded& /*candidate*/) {}

// What was submitted is told at the end, and what was refused is counted there.
void TextObserver::on_settled(const embedded::SettledSignal& /*signal*/) {}

void TextObserver::on_generation(const embedded::SearchProgress& progress) {
  elapsed_at_generation_ = progress.elapsed_seconds;
  if (style_.quiet || style_.terminal_width) return;
  outputs().text.write(generation_text(progress));
}

void TextObserver::on_log(embedded::LogLevel level, std::string_view text) {
  clear();
  message((level == embedded::LogLevel::Error ? "error: " : "warning: ") + std::string(text));
}

// It is part of the end.
void TextObserver::on_metrics(const genetic::Mapping& /*metrics*/) {}

void TextObserver::finish(const embedded::SearchSummary& summary) {
  clear();
  // Between the lines of the generations and the end; a terminal has erased its line.
  if (!style_.quiet && !style_.terminal_width && summary.progress.generation > 0) {
    outputs().text.write("\n");
  }
  outputs().text.write(summary_text(summary, options_, started_, width()));
}

}  // namespace varnholt::app
