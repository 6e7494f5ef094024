// A run's report for machines: one JSON object a line, each with its `event`.
//
// docs/command-line.md lists the events and their members. Every member of an event is always
// there; what is not known is null. A number that is not finite is null too, because JSON has none.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "hosts/embedded/host/search_events.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {

using Json = nlohmann::ordered_json;

// The value as JSON. A key that is not a text becomes its text form, as does a host's object.
// Throws genetic::RecursionError for a value nested deeper than kMaximumNesting.
[[nodiscard]] Json to_json(const genetic::Value& value);

// A real as JSON.
[[nodiscard]] Json number_json(double number);

[[nodiscard]] Json started_event(const embedded::SearchStarted& started);
// The members of the pool that were submitted on other days are measured, as far as the run let.
[[nodiscard]] Json measured_event(const embedded::PoolMeasuring& measuring);
[[nodiscard]] Json recorded_event(const embedded::CandidateRecorded& candidate);
[[nodiscard]] Json settled_event(const embedded::SettledSignal& signal);
[[nodiscard]] Json generation_event(const embedded::SearchProgress& progress);
[[nodiscard]] Json log_event(embedded::LogLevel level, std::string_view text);
[[nodiscard]] Json stopping_event(const embedded::SearchProgress& progress);
// The member `luck` of the event "ended".
[[nodiscard]] Json luck_json(const embedded::RunLuck& luck);
// `why` is the cause in words.
[[nodiscard]] Json ended_event(const embedded::SearchSummary& summary,
                               const std::filesystem::path& database, std::string_view why);
// The thirteen entries of the metrics record beside `event`.
[[nodiscard]] Json metrics_event(const genetic::Mapping& metrics);

// The event on a line of its own, ended. Bytes that are not UTF-8 are replaced.
[[nodiscard]] std::string json_line(const Json& event);

}  // namespace varnholt::app
