// The whole program, apart from main().
#pragma once

#include <string>
#include <vector>

#include "apps/genetic_search/run_command.hpp"

namespace varnholt::app {

// Runs the command in the arguments (without the program's name), writing to standard output and
// standard error, and gives the exit code (exit_codes.hpp). Handles signals while it runs.
[[nodiscard]] int run_program(const std::vector<std::string>& arguments, const RunSearch& search);

}  // namespace varnholt::app
