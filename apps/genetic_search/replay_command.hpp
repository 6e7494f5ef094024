// "genetic-search replay": one recorded attempt again, alone.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/output.hpp"

namespace varnholt::app {

// Evaluates the attempt's graph on the prices of its run and tells each figure beside the recorded
// one. False when they are not equal. Throws StoreError, UsageError for an attempt that the store
// does not have, ExportError and PriceFileError for prices that cannot be used, and OutputError.
[[nodiscard]] bool replay_command(const ReplayCommand& command, Output& output);

}  // namespace varnholt::app
