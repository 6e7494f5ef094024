#include "search_templates/genetic/host/backtest_timings.hpp"

#include <span>

#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/digest.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// A copy, without the name of its graph: the search adds that to one of the copies of a timing, and
// compares them.
Value plain_timing(const Value& timing) {
  const std::optional<Mapping> mapping = as_mapping(timing);
  if (!mapping) throw TypeError("a backtest's timing is a mapping: " + repr(timing));
  if (mapping->empty()) throw ValueError("a backtest's timing says nothing: put what was measured");
  Mapping plain = shallow_copy(*mapping);
  plain.erase(keys::kGraphKey);
  return plain;
}

// The timing is the last of the positional arguments.
Callable takes_any_timing() {
  return make_callable([](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return plain_timing(positional.back());
  });
}

}  // namespace

Callable BacktestTimings::validate_backtest_timing_payload() {
  return takes_any_timing();
}

Callable BacktestTimings::validate_graph_backtest_timing_payload() {
  return takes_any_timing();
}

Callable BacktestTimings::validate_process_backtest_timing_payload() {
  return takes_any_timing();
}

Callable BacktestTimings::consume_recorded_backtest_timing_payload() {
  return make_callable([](std::span<const Value> /*positional*/, const Mapping&) -> Value {
    throw ValueError(
        "this host remembers no timing: the attempt's evidence must hold 'backtest_timing'");
  });
}

Callable BacktestTimings::graph_timing_key() {
  return make_callable([](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(sha256_hex(json_text(positional[0])));
  });
}

}  // namespace varnholt::genetic
