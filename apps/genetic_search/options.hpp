// What the command line asks for.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include "apps/genetic_search/names.hpp"  // IWYU pragma: export
#include "hosts/embedded/search/search_options.hpp"

namespace varnholt::app {

inline constexpr const char* kDefaultDatabase = "genetic-search.db";

// "run": a search, and how it is told.
struct RunCommand {
  embedded::SearchOptions search;
  bool json = false;
  bool quiet = false;
};

// "check-prices": what a price file holds.
struct CheckPricesCommand {
  std::filesystem::path prices;
  std::size_t list_limit = 20;  // Findings of each kind that are listed.
};

// A text that was asked for: the help or the version.
struct ShowText {
  std::string text;
};

using Command = std::variant<RunCommand, CheckPricesCommand, ShowText>;

// What the arguments (without the program's name) ask for. Reads nothing but the arguments. Throws
// UsageError (usage_error.hpp).
[[nodiscard]] Command parse_command_line(const std::vector<std::string>& arguments);

}  // namespace varnholt::app
