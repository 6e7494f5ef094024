// "genetic-search signals": what the runs in a store submitted.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/output.hpp"
#include "apps/genetic_search/text_layout.hpp"

namespace varnholt::app {

// Writes a table, laid out for `width`, or with --json one object a line. Throws StoreError,
// UsageError for a run that the store does not have, and OutputError.
void signals_command(const SignalsCommand& command, Output& output, Width width);

}  // namespace varnholt::app
