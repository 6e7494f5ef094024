// The hand-made rules for timings and the hand-made reader of JSON. See scripted_host.hpp for how
// they are scripted.
#pragma once

#include <functional>
#include <span>

#include "search_templates/genetic/host/backtest_timings.hpp"
#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

// The host's rules for timings. By default a timing is normalised to itself and its graph's key is
// "graph key"; each operation can be replaced.
class ScriptedBacktestTimings : public BacktestTimings {
 public:
  explicit ScriptedBacktestTimings(CallLog& log) : log_(log) {}

  using Operation = std::function<Value(std::span<const Value>, const Mapping&)>;
  Operation on_validate = [](std::span<const Value> values, const Mapping&) { return values[0]; };
  Operation on_validate_graph = [](std::span<const Value> values, const Mapping&) {
    return values[1];
  };
  Operation on_validate_process = [](std::span<const Value> values, const Mapping&) {
    return values[1];
  };
  Operation on_consume = [](std::span<const Value>, const Mapping&) {
    return Value(Mapping{{"seconds", 0.5}});
  };
  Operation on_graph_timing_key = [](std::span<const Value>, const Mapping&) {
    return Value("graph key");
  };

  [[nodiscard]] Callable validate_backtest_timing_payload() override {
    return operation("timings.validate_backtest_timing_payload", on_validate);
  }
  [[nodiscard]] Callable validate_graph_backtest_timing_payload() override {
    return operation("timings.validate_graph_backtest_timing_payload", on_validate_graph);
  }
  [[nodiscard]] Callable validate_process_backtest_timing_payload() override {
    return operation("timings.validate_process_backtest_timing_payload", on_validate_process);
  }
  [[nodiscard]] Callable consume_recorded_backtest_timing_payload() override {
    return operation("timings.consume_recorded_backtest_timing_payload", on_consume);
  }
  [[nodiscard]] Callable graph_timing_key() override {
    return operation("timings.graph_timing_key", on_graph_timing_key);
  }

 private:
  // Only the call stands in the log, not the look-up.
  [[nodiscard]] Callable operation(const char* name, const Operation& answer) {
    return scripted_callable(log_, name, answer);
  }

  CallLog& log_;
};

// Knows the texts that it is told; every other text is a ValueError.
class ScriptedJsonReader : public JsonReader {
 public:
  explicit ScriptedJsonReader(CallLog& log) : log_(log) {}

  std::function<Value(const Value&)> on_read = [](const Value& text) -> Value {
    throw ValueError("not JSON: " + str(text));
  };

  [[nodiscard]] Value read(const Value& text) override {
    log_.add("json_reader.read", {text});
    return on_read(text);
  }

 private:
  CallLog& log_;
};

}  // namespace varnholt::genetic::test
