// How the help of a command looks.
#pragma once

#include <cstddef>
#include <string>

#include <CLI/CLI.hpp>

#include "apps/genetic_search/names.hpp"  // IWYU pragma: export

namespace varnholt::app {

// Help texts are laid out for 80 columns; what an option does begins in this one.
inline constexpr std::size_t kDescriptionColumn = 29;
inline constexpr std::size_t kHelpWidth = 80;

// The description, the usage, the options by group, the commands, the footer: one blank line stands
// between the parts. Positional arguments are left out: usage and description name them.
class HelpPage : public CLI::Formatter {
 public:
  HelpPage() { column_width(kDescriptionColumn); }

  [[nodiscard]] std::string make_help(const CLI::App* app, std::string name,
                                      CLI::AppFormatMode mode) const override;

 private:
  [[nodiscard]] std::string group_text(const CLI::App* app, const std::string& group) const;
  [[nodiscard]] std::string commands_text(const CLI::App* app) const;
};

}  // namespace varnholt::app
