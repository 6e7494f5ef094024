#include "apps/genetic_search/json_observer.hpp"

#include "apps/genetic_search/report.hpp"

namespace varnholt::app {

JsonObserver::JsonObserver(const RunOutputs& outputs, const embedded::InterruptFlag& interrupt,
                           const embedded::SearchOptions& options, bool quiet)
    : RunObserver(outputs, interrupt), options_(options), quiet_(quiet) {}

// Lines are always whole.
void JsonObserver::clear() {}

void JsonObserver::tell(const Json& event) {
  outputs().text.write(json_line(event));
}

void JsonObserver::tell_started(const embedded::SearchStarted& started) {
  if (!quiet_) tell(started_event(started));
}

void JsonObserver::tell_progress(const embedded::SearchProgress& /*progress*/,
                                 std::int64_t /*evaluated_in_batch*/) {}

void JsonObserver::tell_stopping(const embedded::SearchProgress& progress) {
  if (!quiet_) tell(stopping_event(progress));
  // The output may be going into a file, with somebody at the keyboard.
  message(stopping_text(progress));
}

void JsonObserver::on_measuring(const embedded::PoolMeasuring& measuring) {
  if (!quiet_ && measuring.is_over) tell(measured_event(measuring));
}

void JsonObserver::on_recorded(const embedded::CandidateRecorded& candidate) {
  if (!quiet_) tell(recorded_event(candidate));
}

void JsonObserver::on_settled(const embedded::SettledSignal& signal) {
  if (!quiet_) tell(settled_event(signal));
}

void JsonObserver::on_generation(const embedded::SearchProgress& progress) {
  if (!quiet_) tell(generation_event(progress));
}

void JsonObserver::on_log(embedded::LogLevel level, std::string_view text) {
  tell(log_event(level, text));
}

void JsonObserver::on_metrics(const genetic::Mapping& /*metrics*/) {}

void JsonObserver::finish(const embedded::SearchSummary& summary) {
  tell(ended_event(summary, options_.database, end_in_words(summary, options_)));
  tell(metrics_event(summary.metrics.mapping()));
}

}  // namespace varnholt::app
