// How the signals of the operating system reach a search.
#pragma once

#include <csignal>
#include <functional>

namespace varnholt::embedded {

// Incremented by the program's signal handler, read by the search. The search installs no handler.
// The first request ends the search in good order: evaluations under way are cancelled, the results
// so far are recorded, the metrics record is written. The second ends it at once.
struct InterruptFlag {
  volatile std::sig_atomic_t requests = 0;
};

// Leaves the search at the second request, after all children have been killed and reaped. It does
// not derive from std::exception: nothing that catches ordinary errors may stop it.
struct InterruptedAtOnce {};

// Called now and then by what takes long and may be left in the middle, such as the reading of a
// file. It throws when that is to end. May be empty: then nothing ends it before its time.
using InterruptCheck = std::function<void()>;

// Whether the search is being stopped, so that what takes long may be cut short. Empty is never.
using StopQuestion = std::function<bool()>;

}  // namespace varnholt::embedded
