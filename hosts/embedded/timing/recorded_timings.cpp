#include "hosts/embedded/timing/recorded_timings.hpp"

#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/timing/backtest_timing.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::Value;

namespace {

Mapping delivered(const Mapping& timing, bool include_identity) {
  return include_identity ? timing : without_process_identity(timing);
}

bool has_identity(const Mapping& timing) {
  return timing.contains(timing_keys::kProcessId);
}

std::string key_of(const Mapping& timing) {
  return std::string(timing.at(timing_keys::kGraphKey).text());
}

}  // namespace

RecordedTimings::RecordedTimings(const ProcessIdentity& process)
    : process_id_(process.pid), process_started_(process.started_ticks) {}

void RecordedTimings::enter_process(const ProcessIdentity& process) {
  timings_.clear();
  process_id_ = process.pid;
  process_started_ = process.started_ticks;
}

void RecordedTimings::record(const Value& graph, const Value& timing) {
  Mapping normal = validate_process_backtest_timing_payload(graph, timing);
  const std::int64_t process_id = normal.at(timing_keys::kProcessId).integer();
  const std::int64_t process_started = normal.at(timing_keys::kProcessStarted).integer();
  if (process_id != process_id_ || process_started != process_started_) {
    throw genetic::ValueError(fmt::format(
        "backtest timing was measured in process {} (started {}), but this is process {} (started "
        "{}); record it where it was measured",
        process_id, process_started, process_id_, process_started_));
  }
  timings_.insert_or_assign(key_of(normal), std::move(normal));
}

Value RecordedTimings::consume(const Value& graph, bool include_identity) {
  const auto found = timings_.find(graph_timing_key(graph));
  if (found == timings_.end()) return {};
  Value timing = delivered(found->second, include_identity);
  timings_.erase(found);
  return timing;
}

Value RecordedTimings::consume(const Value& graph, const Value& timing, bool include_identity) {
  if (timing.is_absent()) return consume(graph, include_identity);
  const Mapping given = validate_graph_backtest_timing_payload(graph, timing);
  const auto found = timings_.find(key_of(given));
  if (found == timings_.end()) return delivered(given, include_identity);
  const Mapping& recorded = found->second;
  if (!(Value(given) == Value(delivered(recorded, has_identity(given))))) {
    throw genetic::ValueError(
        fmt::format("backtest timing {} disagrees with the one that was recorded, {}",
                    genetic::repr(given), genetic::repr(recorded)));
  }
  Value result = delivered(recorded, include_identity);
  timings_.erase(found);
  return result;
}

}  // namespace varnholt::embedded
