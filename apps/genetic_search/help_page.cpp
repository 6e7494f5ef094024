#include "apps/genetic_search/help_page.hpp"

#include <fmt/format.h>

namespace varnholt::app {
namespace {

std::string usage(const std::string& command) {
  if (command == kRunName) return fmt::format("{} run --prices FILE [options]", kProgramName);
  if (command == kCheckName) return fmt::format("{} check-prices FILE [options]", kProgramName);
  if (command == kSignalsName) return fmt::format("{} signals DB [options]", kProgramName);
  if (command == kShowName) return fmt::format("{} show DB ID [options]", kProgramName);
  if (command == kExportName) {
    return fmt::format("{} export DB ID --weights FILE [options]", kProgramName);
  }
  if (command == kPortfolioName) return fmt::format("{} portfolio DB [options]", kProgramName);
  if (command == kEvalName) {
    return fmt::format("{} eval FORMULA... --prices FILE [options]", kProgramName);
  }
  if (command == kAttemptsName) return fmt::format("{} attempts DB [options]", kProgramName);
  if (command == kReplayName) return fmt::format("{} replay DB ATTEMPT [options]", kProgramName);
  return fmt::format("{} COMMAND [options]", kProgramName);
}

}  // namespace

std::string HelpPage::make_help(const CLI::App* app, std::string /*name*/,
                                CLI::AppFormatMode /*mode*/) const {
  std::string text =
      fmt::format("{}\n\nUsage: {}\n", app->get_description(), usage(app->get_name()));
  for (const std::string& group : app->get_groups())
    text += group_text(app, group);
  text += commands_text(app);
  if (!app->get_footer().empty()) text += fmt::format("\n{}\n", app->get_footer());
  return text;
}

std::string HelpPage::group_text(const CLI::App* app, const std::string& group) const {
  std::string text;
  for (const CLI::Option* option : app->get_options()) {
    if (option->get_group() == group && option->nonpositional()) text += make_option(option, false);
  }
  return text.empty() ? text : fmt::format("\n{}:\n{}", group, text);
}

std::string HelpPage::commands_text(const CLI::App* app) const {
  std::string text;
  std::string group;
  for (const CLI::App* command : app->get_subcommands({})) {
    if (command->get_group() != group) {
      group = command->get_group();
      text += fmt::format("\n{}:\n", group);
    }
    text += make_subcommand(command);
  }
  return text;
}

}  // namespace varnholt::app
