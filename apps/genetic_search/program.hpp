// The whole program, but for its place in the operating system.
#pragma once

#include <string>
#include <vector>

#include "apps/genetic_search/run_command.hpp"

namespace varnholt::app {

// Does what the arguments (without the program's name) ask for, writing to standard output and
// standard error, and gives the exit code (exit_codes.hpp). Handles signals while it runs.
[[nodiscard]] int run_program(const std::vector<std::string>& arguments, const RunSearch& search);

}  // namespace varnholt::app
