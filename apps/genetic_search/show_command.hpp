// "genetic-search show": all that is stored of one evaluation.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/output.hpp"
#include "apps/genetic_search/text_layout.hpp"

namespace varnholt::app {

// Writes a page, laid out for `width`, or with --json one object. Throws StoreError, UsageError for
// an id that the store does not have, and OutputError.
void show_command(const ShowCommand& command, Output& output, Width width);

}  // namespace varnholt::app
