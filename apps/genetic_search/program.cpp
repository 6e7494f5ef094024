#include "apps/genetic_search/program.hpp"

#include <exception>
#include <optional>
#include <variant>

#include <fmt/format.h>
#include <unistd.h>

#include "apps/genetic_search/attempts_command.hpp"
#include "apps/genetic_search/check_prices_command.hpp"
#include "apps/genetic_search/doctor_command.hpp"
#include "apps/genetic_search/error_report.hpp"
#include "apps/genetic_search/eval_command.hpp"
#include "apps/genetic_search/exit_codes.hpp"
#include "apps/genetic_search/export_command.hpp"
#include "apps/genetic_search/options.hpp"
#include "apps/genetic_search/output.hpp"
#include "apps/genetic_search/portfolio_command.hpp"
#include "apps/genetic_search/replay_command.hpp"
#include "apps/genetic_search/show_command.hpp"
#include "apps/genetic_search/signals.hpp"
#include "apps/genetic_search/signals_command.hpp"
#include "apps/genetic_search/terminal.hpp"
#include "apps/genetic_search/weights_command.hpp"

namespace varnholt::app {
namespace {

class Commands {
 public:
  Commands(const RunSearch& search, const RunOutputs& outputs, SignalGuard& signals)
      : search_(search), outputs_(outputs), signals_(signals), interrupt_(signals.flag()) {}

  int operator()(const RunCommand& command) const {
    return run_command(command, search_, outputs_, interrupt_);
  }
  int operator()(const CheckPricesCommand& command) const {
    signals_.let_interrupts_end_the_program();
    check_prices_command(command, outputs_.text);
    return kExitDone;
  }
  int operator()(const SignalsCommand& command) const {
    signals_.let_interrupts_end_the_program();
    signals_command(command, outputs_.text, width());
    return kExitDone;
  }
  int operator()(const ShowCommand& command) const {
    signals_.let_interrupts_end_the_program();
    show_command(command, outputs_.text, width());
    return kExitDone;
  }
  int operator()(const ExportCommand& command) const {
    export_command(command, outputs_, interrupt_);
    return kExitDone;
  }
  int operator()(const WeightsCommand& command) const {
    return weights_command(command, outputs_, interrupt_) ? kExitDone : kExitFailure;
  }
  int operator()(const PortfolioCommand& command) const {
    return portfolio_command(command, outputs_, interrupt_, width()) ? kExitDone : kExitFailure;
  }
  int operator()(const EvalCommand& command) const {
    return eval_command(command, outputs_, interrupt_, width()) ? kExitDone : kExitBadInput;
  }
  int operator()(const DoctorCommand& /*command*/) const {
    signals_.let_interrupts_end_the_program();
    return doctor_command(outputs_.text) ? kExitDone : kExitFailure;
  }

  int operator()(const AttemptsCommand& command) const {
    signals_.let_interrupts_end_the_program();
    attempts_command(command, outputs_.text, width());
    return kExitDone;
  }
  int operator()(const ReplayCommand& command) const {
    signals_.let_interrupts_end_the_program();
    return replay_command(command, outputs_.text) ? kExitDone : kExitFailure;
  }
  int operator()(const ShowText& command) const {
    signals_.let_interrupts_end_the_program();
    outputs_.text.write(command.text);
    outputs_.text.throw_if_failed();
    return kExitDone;
  }

 private:
  [[nodiscard]] static Width width() {
    return is_live_terminal(STDOUT_FILENO) ? Width(terminal_width(STDOUT_FILENO)) : std::nullopt;
  }

  const RunSearch& search_;
  RunOutputs outputs_;
  SignalGuard& signals_;
  const embedded::InterruptFlag& interrupt_;
};

// Errors go to `outputs.messages`; what cannot be written there cannot be told.
int run_and_tell_errors(const std::vector<std::string>& arguments, const RunSearch& search,
                        const RunOutputs& outputs, SignalGuard& signals) {
  const auto tell = [&outputs](const std::string& text) {
    outputs.messages.write(fmt::format("{}: {}\n", kProgramName, text));
  };
  try {
    return std::visit(Commands(search, outputs, signals), parse_command_line(arguments));
  } catch (const ReaderGone&) {
    // Nobody is left to whom it would be news.
    return kExitReaderGone;
  } catch (const std::exception& error) {
    tell(error_text(error));
    return is_about_input(error) ? kExitBadInput : kExitFailure;
  }
}

}  // namespace

int run_program(const std::vector<std::string>& arguments, const RunSearch& search) {
  fill_standard_descriptors();
  SignalGuard signals;
  embedded::InterruptFlag& interrupt = signals.flag();
  Output text(STDOUT_FILENO, "standard output", interrupt, Output::Failure::EndsRun);
  Output messages(STDERR_FILENO, "standard error", interrupt, Output::Failure::IsBorne);
  try {
    return run_and_tell_errors(arguments, search, {text, messages}, signals);
  } catch (const embedded::InterruptedAtOnce&) {
    return kExitInterrupted;
  }
}

}  // namespace varnholt::app
