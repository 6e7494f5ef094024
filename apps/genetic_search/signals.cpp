#include "apps/genetic_search/signals.hpp"

#include <cerrno>
#include <cstddef>
#include <system_error>

namespace varnholt::app {
namespace {

// What the handler counts up. It is the one variable of the program that outlives a function,
// because a handler is given no other place.
embedded::InterruptFlag process_flag;

extern "C" void count_request(int /*signal*/) {
  // Somebody who keeps pressing must not overflow it.
  if (process_flag.requests < 100) process_flag.requests = process_flag.requests + 1;
}

}  // namespace

SignalGuard::SignalGuard() {
  process_flag.requests = 0;
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    struct sigaction action = {};
    action.sa_handler = kSignals[i].is_ignored ? SIG_IGN : count_request;
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

SignalGuard::~SignalGuard() {
  for (std::size_t i = 0; i < kSignals.size(); ++i)
    sigaction(kSignals[i].number, &before_[i], nullptr);
}

embedded::InterruptFlag& SignalGuard::flag() const noexcept {
  return process_flag;
}

}  // namespace varnholt::app
