// The timing of a backtest: what it took, which graph it was of, and which process ran it.
//
// A timing is a mapping with these entries, in this order:
//
//   graph_key         text: the graph that was backtested, by graph_timing_key
//   started_at        real: wall time of the start, seconds since 1970-01-01 UTC
//   elapsed_seconds   real: from the start to the end, by a clock that is never set
//   cpu_seconds       real: processor time of the process in between; more than elapsed_seconds in
//                     a process with several busy threads
//   process_id        integer: the process that ran it ...
//   process_started   integer: ... and when that one was started, in clock ticks since the boot,
//                     so that the number is not mistaken for another process's
//
// The last two are its process identity. A timing has both of them or neither.
//
// Timings reach the search in several places (on the candidate, in the evidence of the attempt, in
// the submission payload) and must agree there. So every validation gives the same normal form: a
// new mapping of the entries in order, its times as reals.
#pragma once

#include <string>

#include "search_templates/genetic/value/key.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

namespace timing_keys {
inline constexpr genetic::Key kGraphKey = genetic::key<"graph_key">();
inline constexpr genetic::Key kStartedAt = genetic::key<"started_at">();
inline constexpr genetic::Key kElapsedSeconds = genetic::key<"elapsed_seconds">();
inline constexpr genetic::Key kCpuSeconds = genetic::key<"cpu_seconds">();
inline constexpr genetic::Key kProcessId = genetic::key<"process_id">();
inline constexpr genetic::Key kProcessStarted = genetic::key<"process_started">();
}  // namespace timing_keys

// SHA-256 of the graph's canonical text, in lower-case hexadecimal digits. Fails as
// genetic::canonical_graph_string does.
[[nodiscard]] std::string graph_timing_key(const genetic::Value& graph);

// The timing in its normal form. Every error names the field and what it holds.
// genetic::TypeError for anything but a mapping and for a field of another type;
// genetic::ValueError for a field that is missing, unknown or out of range (a key that is no
// digest, a time that is negative or not finite, a process number below 1), and for half an
// identity; genetic::OverflowError for a number that no field can hold.
[[nodiscard]] genetic::Mapping validate_backtest_timing_payload(const genetic::Value& timing);

// The same, and genetic::ValueError for a timing of another graph.
[[nodiscard]] genetic::Mapping validate_graph_backtest_timing_payload(const genetic::Value& graph,
                                                                      const genetic::Value& timing);

// The same, and genetic::ValueError for a timing without process identity.
[[nodiscard]] genetic::Mapping validate_process_backtest_timing_payload(
    const genetic::Value& graph, const genetic::Value& timing);

// A new timing without the process identity.
[[nodiscard]] genetic::Mapping without_process_identity(const genetic::Mapping& timing);

}  // namespace varnholt::embedded
