// Reading the command line.
#pragma once

#include <string>
#include <vector>

#include "apps/genetic_search/commands.hpp"  // IWYU pragma: export

namespace varnholt::app {

// The command in the arguments (without the program's name). Reads nothing but the arguments.
// Throws UsageError (usage_error.hpp).
[[nodiscard]] Command parse_command_line(const std::vector<std::string>& arguments);

}  // namespace varnholt::app
