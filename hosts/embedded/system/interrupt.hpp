// How signals reach a search.
#pragma once

#include <csignal>

namespace varnholt::embedded {

// Counted up by the program's signal handler, read by the search. The search installs no handler.
// The first request ends the search in good order: evaluations under way are cancelled, the results
// so far are recorded, the metrics record is written. The second ends it at once.
struct InterruptFlag {
  volatile std::sig_atomic_t requests = 0;
};

// Leaves the search at the second request, after all children have been killed and reaped. It is no
// std::exception: nothing that guards against ordinary errors may hold it up.
struct InterruptedAtOnce {};

}  // namespace varnholt::embedded
