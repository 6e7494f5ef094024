// The signals of the operating system, for as long as a search runs.
#pragma once

#include <array>

#include <signal.h>

#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// While it lives, SIGINT and SIGTERM count up a flag and do nothing else, so that waits in system
// calls end early; a write to a pipe that nobody reads fails instead of ending the program. Its end
// restores the handlers that were there before. There is one at a time, since a handler can only
// reach the process's one flag.
class SignalGuard {
 public:
  SignalGuard();
  ~SignalGuard();
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

  // From no request on, at the beginning of each guard.
  [[nodiscard]] embedded::InterruptFlag& flag() const noexcept;

 private:
  static constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGPIPE};

  std::array<struct sigaction, kSignals.size()> before_ = {};
};

}  // namespace varnholt::app
