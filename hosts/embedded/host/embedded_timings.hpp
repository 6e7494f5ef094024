// The embedded host's rules for timings as the search calls them.
#pragma once

#include "hosts/embedded/timing/recorded_timings.hpp"
#include "search_templates/genetic/host/backtest_timings.hpp"

namespace varnholt::embedded {

class EmbeddedTimings : public genetic::BacktestTimings {
 public:
  EmbeddedTimings();

  // The timings measured in this process.
  [[nodiscard]] RecordedTimings& recorded() { return recorded_; }

  [[nodiscard]] genetic::Callable validate_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable validate_graph_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable validate_process_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable consume_recorded_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable graph_timing_key() override;

 private:
  RecordedTimings recorded_;
};

}  // namespace varnholt::embedded
