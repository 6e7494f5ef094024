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

constexpr const char* kEndedBeforeRun = "ended before the run began; nothing was stored";

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
  // Nothing is stored before the files are read: the first interrupt ends it at once.
  const auto check_interrupt = [&interrupt] {
    if (interrupt.requests > 0) throw embedded::InterruptedAtOnce();
  };
  try {
    command.search.config = resolved_config(given.config_file, given.overrides, check_interrupt);
  } catch (const embedded::InterruptedAtOnce&) {
    outputs.messages.write(fmt::format("{}: {}\n", kProgramName, kEndedBeforeRun));
    throw;
  }
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
    observer->message(observer->has_started()
                          ? fmt::format("ended at once; what was recorded until then is in {}",
                                        command.search.database.string())
                          : std::string(kEndedBeforeRun));
    throw;
  } catch (const std::exception& error) {
    observer->clear();
    // Before the run has begun an error is told as that of any command, with all of its lines.
    if (!observer->has_started() && !command.json) throw;
    observer->message(error_text(error));
    return !observer->has_started() && is_about_input(error) ? kExitBadInput : kExitFailure;
  }
  outputs.text.throw_if_failed();
  return kExitDone;
}

}  // namespace varnholt::app
