// The options of "genetic-search run".
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/option_set.hpp"

namespace varnholt::app {

// What is given on the command line is written into `run`, which must live as long as the parser.
void add_run_options(Options& options, RunCommand& run);

}  // namespace varnholt::app
