#include "apps/genetic_search/signals.hpp"

#include <cerrno>
#include <cstddef>
#include <system_error>

#include <unistd.h>

#include "apps/genetic_search/exit_codes.hpp"

namespace varnholt::app {
namespace {

// What the handler counts up. It is the one variable of the program that outlives a function,
// because a handler is given no other place.
embedded::InterruptFlag process_flag;

// How long the second request may take to be seen. What takes longer than that without looking is
// left as a kill would leave it, which costs nothing that was recorded.
constexpr unsigned int kSecondsToEnd = 3;

extern "C" void count_request(int /*signal*/) {
  // Somebody who keeps pressing must not overflow it.
  if (process_flag.requests < 100) process_flag.requests = process_flag.requests + 1;
  if (process_flag.requests == 2) alarm(kSecondsToEnd);
}

// Only what a handler may call.
extern "C" void end_now(int /*signal*/) {
  static constexpr char kText[] =
      "genetic-search: ended at once; the next run with the same store puts it in order\n";
  const ssize_t written = write(STDERR_FILENO, kText, sizeof(kText) - 1);
  static_cast<void>(written);
  _exit(kExitInterrupted);
}

void (*action_of(SignalUse use))(int) {
  switch (use) {
    case SignalUse::IsCounted:
      return count_request;
    case SignalUse::EndsProgram:
      return end_now;
    case SignalUse::IsIgnored:
      break;
  }
  return SIG_IGN;
}

}  // namespace

SignalGuard::SignalGuard() {
  process_flag.requests = 0;
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    struct sigaction action = {};
    action.sa_handler = action_of(kSignals[i].use);
    sigemptyset(&action.sa_mask);
    // Without SA_RESTART: a wait is to end when a signal comes.
    if (sigaction(kSignals[i].number, &action, &before_[i]) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot install a signal handler");
    }
    // Who started the program with nohup wants it to outlive the terminal.
    if (kSignals[i].number == SIGHUP && before_[i].sa_handler == SIG_IGN) {
      sigaction(SIGHUP, &before_[i], nullptr);
    }
  }
}

void SignalGuard::let_interrupts_end_the_program() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    if (kSignals[i].use == SignalUse::IsCounted)
      sigaction(kSignals[i].number, &before_[i], nullptr);
  }
}

SignalGuard::~SignalGuard() {
  alarm(0);
  for (std::size_t i = 0; i < kSignals.size(); ++i)
    sigaction(kSignals[i].number, &before_[i], nullptr);
}

embedded::InterruptFlag& SignalGuard::flag() const noexcept {
  return process_flag;
}

}  // namespace varnholt::app
