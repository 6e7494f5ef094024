// The host's rules for the timing of a backtest.
#pragma once

#include "search_templates/genetic/host/callable.hpp"

namespace varnholt::genetic {

// Asked in the child for a completed backtest, and in the parent when its result is recorded.
//
// Each method looks one operation up, at the moment it is called; a host that has none throws
// there. The Callable is never empty. Looking up and calling are two steps because a failure of the
// call means a bad timing, and one of the look-up does not.
//
// A timing is a mapping whose fields are the host's own. The validating operations return a
// normalised mapping, and throw TypeError, ValueError or OverflowError for a bad timing.
//
// A host that overrides nothing takes any mapping that is not empty, as a copy without the name of
// the graph under `graph_key`, and remembers none: its evaluator puts the timing, {"seconds": 0.25}
// say, into the attempt's evidence.
class BacktestTimings {
 public:
  virtual ~BacktestTimings() = default;

  // (timing)
  [[nodiscard]] virtual Callable validate_backtest_timing_payload();
  // (graph, timing): checked against the graph.
  [[nodiscard]] virtual Callable validate_graph_backtest_timing_payload();
  // (graph, timing): checked against the graph, and the process that it was measured in is there.
  [[nodiscard]] virtual Callable validate_process_backtest_timing_payload();
  // (graph[, timing], include_identity=true): the timing that was recorded in this process for the
  // graph. By default a ValueError: none was.
  [[nodiscard]] virtual Callable consume_recorded_backtest_timing_payload();
  // (graph): the key under which a timing names its graph. By default the SHA-256 of its canonical
  // JSON text, in hexadecimal digits.
  [[nodiscard]] virtual Callable graph_timing_key();
};

}  // namespace varnholt::genetic
