#include "hosts/python/host/python_timings.hpp"

#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"

namespace varnholt::python {
namespace {

genetic::Callable timing_operation(const char* name) {
  return any_callable(import_name("varnholt.simulation.backtest_timing", name));
}

}  // namespace

genetic::Callable PythonBacktestTimings::validate_backtest_timing_payload() {
  return timing_operation("validate_backtest_timing_payload");
}
genetic::Callable PythonBacktestTimings::validate_graph_backtest_timing_payload() {
  return timing_operation("validate_graph_backtest_timing_payload");
}
genetic::Callable PythonBacktestTimings::validate_process_backtest_timing_payload() {
  return timing_operation("validate_process_backtest_timing_payload");
}
genetic::Callable PythonBacktestTimings::consume_recorded_backtest_timing_payload() {
  return timing_operation("consume_recorded_backtest_timing_payload");
}
genetic::Callable PythonBacktestTimings::graph_timing_key() {
  return timing_operation("graph_timing_key");
}

genetic::Value PythonJsonReader::read(const genetic::Value& text) {
  return to_value(call_method(import_module("json"), "loads", {to_python(text)}));
}

}  // namespace varnholt::python
