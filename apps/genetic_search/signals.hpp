// The signals of the operating system, for as long as a search runs.
#pragma once

#include <array>

#include <signal.h>

#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// While it lives, SIGINT, SIGTERM and SIGHUP count up a flag and do nothing else, so that waits in
// system calls end early; a write to a pipe that nobody reads, or beyond the limit of a file's
// size, fails instead of ending the program. Its end restores the handlers that were there before.
// There is one at a time, since a handler can only reach the process's one flag.
class SignalGuard {
 public:
  SignalGuard();
  ~SignalGuard();
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

  // From no request on, at the beginning of each guard.
  [[nodiscard]] embedded::InterruptFlag& flag() const noexcept;

 private:
  struct Signal {
    int number;
    bool is_ignored;
  };
  // A reader that is gone and a file that may not grow are errors of the write.
  static constexpr std::array<Signal, 5> kSignals = {
      {{SIGINT, false}, {SIGTERM, false}, {SIGHUP, false}, {SIGPIPE, true}, {SIGXFSZ, true}}};

  std::array<struct sigaction, kSignals.size()> before_ = {};
};

}  // namespace varnholt::app
