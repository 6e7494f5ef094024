// Reports a run to machines: see json_events.hpp.
#pragma once

#include "apps/genetic_search/json_events.hpp"
#include "apps/genetic_search/run_observer.hpp"
#include "hosts/embedded/search/search_options.hpp"

namespace varnholt::app {

// Every event is one line of the text output. The metrics record waits until the end, because it is
// the last line.
class JsonObserver : public RunObserver {
 public:
  // With `quiet`, only log, ended and metrics.
  JsonObserver(const RunOutputs& outputs, const embedded::InterruptFlag& interrupt,
               const embedded::SearchOptions& options, bool quiet);

  void finish(const embedded::SearchSummary& summary) override;
  void clear() override;

  void on_measuring(const embedded::PoolMeasuring& measuring) override;
  void on_recorded(const embedded::CandidateRecorded& candidate) override;
  [[nodiscard]] bool tells_candidates() const override { return !quiet_; }
  void on_settled(const embedded::SettledSignal& signal) override;
  void on_generation(const embedded::SearchProgress& progress) override;
  void on_log(embedded::LogLevel level, std::string_view text) override;
  void on_metrics(const genetic::Mapping& metrics) override;

 private:
  void tell_started(const embedded::SearchStarted& started) override;
  void tell_progress(const embedded::SearchProgress& progress,
                     std::int64_t evaluated_in_batch) override;
  void tell_stopping(const embedded::SearchProgress& progress) override;
  void tell(const Json& event);

  embedded::SearchOptions options_;
  bool quiet_;
};

}  // namespace varnholt::app
