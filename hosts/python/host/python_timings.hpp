// Timings of backtests, and JSON text, as Python reads them.
#pragma once

#include "search_templates/genetic/host/backtest_timings.hpp"
#include "search_templates/genetic/host/json_reader.hpp"

namespace varnholt::python {

// The host's module of timings, imported at each look-up: loading our module does not need it. A
// missing module or name is the ImportError of `from ... import ...`.
class PythonBacktestTimings : public genetic::BacktestTimings {
 public:
  [[nodiscard]] genetic::Callable validate_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable validate_graph_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable validate_process_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable consume_recorded_backtest_timing_payload() override;
  [[nodiscard]] genetic::Callable graph_timing_key() override;
};

// json.loads.
class PythonJsonReader : public genetic::JsonReader {
 public:
  [[nodiscard]] genetic::Value read(const genetic::Value& text) override;
};

}  // namespace varnholt::python
