// Graphs, a process and timings for the tests of timings.
#pragma once

#include <string>

#include "hosts/embedded/system/process_identity.hpp"
#include "hosts/embedded/timing/backtest_timing.hpp"
#include "search_templates/genetic/value/value.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"

namespace varnholt::embedded::test {

inline genetic::Value some_graph() {
  return rotation("negate", {feature("close")});
}
inline genetic::Value other_graph() {
  return rotation("negate", {feature("open")});
}

inline ProcessIdentity some_process() {
  ProcessIdentity process;
  process.pid = 4711;
  process.started_ticks = 99;
  return process;
}

// A timing of some_graph() in some_process(), in its normal form.
inline genetic::Mapping some_timing() {
  return {{"graph_key", graph_timing_key(some_graph())},
          {"started_at", 1000.5},
          {"elapsed_seconds", 0.25},
          {"cpu_seconds", 0.125},
          {"process_id", 4711},
          {"process_started", 99}};
}

// The text of the error of that kind which `function` throws.
template <typename Error, typename Function>
std::string refusal(Function&& function) {
  try {
    static_cast<void>(function());
  } catch (const Error& error) {
    return error.what();
  }
  return "accepted";
}

}  // namespace varnholt::embedded::test
