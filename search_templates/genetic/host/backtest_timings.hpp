// The host's rules for the timing of a backtest.
#pragma once

#include "search_templates/genetic/host/callable.hpp"

namespace varnholt::genetic {

// Each method looks one operation up, at the moment it is called; a host that has none throws
// there. The Callable is never empty. Looking up and calling are two steps because a failure of the
// call means a bad timing, and one of the look-up does not.
//
// A timing is a mapping whose fields are the host's own. The validating operations return a
// normalised mapping, and throw TypeError, ValueError or OverflowError for a bad timing.
class BacktestTimings {
 public:
  virtual ~BacktestTimings() = default;

  // (timing)
  [[nodiscard]] virtual Callable validate_backtest_timing_payload() = 0;
  // (graph, timing): checked against the graph.
  [[nodiscard]] virtual Callable validate_graph_backtest_timing_payload() = 0;
  // (graph, timing): checked against the graph, and the process that it was measured in is there.
  [[nodiscard]] virtual Callable validate_process_backtest_timing_payload() = 0;
  // (graph[, timing], include_identity=true): the timing that was recorded in this process for the
  // graph.
  [[nodiscard]] virtual Callable consume_recorded_backtest_timing_payload() = 0;
  // (graph): the key under which a timing names its graph.
  [[nodiscard]] virtual Callable graph_timing_key() = 0;
};

}  // namespace varnholt::genetic
