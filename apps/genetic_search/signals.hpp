// The signals of the operating system, for as long as a search runs.
#pragma once

#include <array>

#include <signal.h>

#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

enum class SignalUse { IsCounted, EndsProgram, IsIgnored };

// While it lives, SIGINT, SIGTERM and SIGHUP count up a flag and do nothing else, so that waits in
// system calls end early. The second of them ends the program a few seconds later wherever it is
// then, unless it has been seen and the guard is gone. A write to a pipe that nobody reads, or
// beyond the limit of a file's size, fails instead of ending the program. Its end restores the
// handlers that were there before. There is one at a time, since a handler can only reach the
// process's one flag.
class SignalGuard {
 public:
  SignalGuard();
  ~SignalGuard();
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

  // From no request on, at the beginning of each guard.
  [[nodiscard]] embedded::InterruptFlag& flag() const noexcept;

  // For what only looks, and leaves nothing to be put in order: these signals have their action of
  // before again.
  void let_interrupts_end_the_program();

 private:
  struct Signal {
    int number;
    SignalUse use;
  };
  // A reader that is gone and a file that may not grow are errors of the write.
  static constexpr std::array<Signal, 6> kSignals = {{{SIGINT, SignalUse::IsCounted},
                                                      {SIGTERM, SignalUse::IsCounted},
                                                      {SIGHUP, SignalUse::IsCounted},
                                                      {SIGALRM, SignalUse::EndsProgram},
                                                      {SIGPIPE, SignalUse::IsIgnored},
                                                      {SIGXFSZ, SignalUse::IsIgnored}}};

  std::array<struct sigaction, kSignals.size()> before_ = {};
};

}  // namespace varnholt::app
