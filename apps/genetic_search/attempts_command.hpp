// "genetic-search attempts": the attempts of runs, and how they ended.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/json_events.hpp"
#include "apps/genetic_search/output.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/store/attempt_table.hpp"

namespace varnholt::app {

// Without --limit a table has at most so many, the latest.
inline constexpr std::int64_t kListedAttempts = 50;

// The latest attempts, one a line, the last one last; for machines, all of them, each an object.
// Below a table stands how many attempts ended how. Throws StoreError, UsageError for a run or a
// disposition that the store does not have, and OutputError.
void attempts_command(const AttemptsCommand& command, Output& output, Width width);

// All that is stored of an attempt, one member a column, and its `events`.
[[nodiscard]] Json attempt_json(const embedded::AttemptRecord& attempt);

// How long an attempt took from its first to its last event; nothing while it is open.
[[nodiscard]] std::optional<double> attempt_seconds(const embedded::AttemptRecord& attempt);

}  // namespace varnholt::app
