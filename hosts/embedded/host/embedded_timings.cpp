#include "hosts/embedded/host/embedded_timings.hpp"

#include <span>

#include "hosts/embedded/system/process_identity.hpp"
#include "hosts/embedded/timing/backtest_timing.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Callable;
using genetic::Mapping;
using genetic::Value;

EmbeddedTimings::EmbeddedTimings() : recorded_(own_identity()) {}

Callable EmbeddedTimings::validate_backtest_timing_payload() {
  return genetic::make_callable([](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(embedded::validate_backtest_timing_payload(positional[0]));
  });
}

Callable EmbeddedTimings::validate_graph_backtest_timing_payload() {
  return genetic::make_callable([](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(embedded::validate_graph_backtest_timing_payload(positional[0], positional[1]));
  });
}

Callable EmbeddedTimings::validate_process_backtest_timing_payload() {
  return genetic::make_callable([](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(embedded::validate_process_backtest_timing_payload(positional[0], positional[1]));
  });
}

Callable EmbeddedTimings::consume_recorded_backtest_timing_payload() {
  return genetic::make_callable([this](std::span<const Value> positional, const Mapping& keywords) {
    const bool include_identity = genetic::truth(keywords.get(genetic::keys::kIncludeIdentity));
    if (positional.size() < 2) return recorded_.consume(positional[0], include_identity);
    return recorded_.consume(positional[0], positional[1], include_identity);
  });
}

Callable EmbeddedTimings::graph_timing_key() {
  return genetic::make_callable([](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(embedded::graph_timing_key(positional[0]));
  });
}

}  // namespace varnholt::embedded
