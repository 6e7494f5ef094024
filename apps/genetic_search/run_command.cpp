#include "apps/genetic_search/run_command.hpp"

#include <memory>
#include <stdexcept>

#include <fmt/format.h>
#include <unistd.h>

#include "apps/genetic_search/error_report.hpp"
#include "apps/genetic_search/exit_codes.hpp"
#include "apps/genetic_search/json_observer.hpp"
#include "apps/genetic_search/terminal.hpp"
#include "apps/genetic_search/text_observer.hpp"

namespace varnholt::app {
namespace {

std::unique_ptr<RunObserver> make_observer(const RunCommand& command, const RunOutputs& outputs,
                                           const embedded::InterruptFlag& interrupt) {
  if (command.json) {
    return std::make_unique<JsonObserver>(outputs, interrupt, command.search, command.quiet);
  }
  TextObserver::Style style;
  style.quiet = command.quiet;
  if (is_live_terminal(STDOUT_FILENO)) {
    style.terminal_width = [] { return terminal_width(STDOUT_FILENO); };
  }
  return std::make_unique<TextObserver>(outputs, interrupt, command.search, std::move(style));
}

}  // namespace

int run_command(const RunCommand& given, const RunSearch& search, const RunOutputs& outputs,
                const embedded::InterruptFlag& interrupt) {
  RunCommand command = given;
  command.search.config = resolved_config(given.config_file, given.overrides);
  const std::unique_ptr<RunObserver> observer = make_observer(command, outputs, interrupt);
  try {
    const embedded::SearchSummary summary = search(command.search, *observer, interrupt);
    // The second interrupt can come when the search is past looking for it.
    if (interrupt.requests > 1) throw embedded::InterruptedAtOnce();
    if (!summary.metrics.is_mapping()) {
      throw std::runtime_error("the search ended without a metrics record");
    }
    observer->finish(summary);
  } catch (const embedded::InterruptedAtOnce&) {
    observer->clear();
    observer->message(fmt::format("ended at once; what was recorded until then is in {}",
                                  command.search.database.string()));
    throw;
  } catch (const std::exception& error) {
    observer->clear();
    observer->message(error_text(error));
    return !observer->has_started() && is_about_input(error) ? kExitBadInput : kExitFailure;
  }
  outputs.text.throw_if_failed();
  return kExitDone;
}

}  // namespace varnholt::app
