// "genetic-search run": a search, reported while it runs and at its end.
#pragma once

#include <functional>

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/run_observer.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/search/search_options.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// A search as search_run.hpp conducts it. Given from outside, so that tests can put another in its
// place.
using RunSearch = std::function<embedded::SearchSummary(
    const embedded::SearchOptions&, embedded::SearchObserver&, const embedded::InterruptFlag&)>;

// The exit code of the run. Errors of the search are reported here, because only here it is known
// whether it had begun, and thus whether the input is to blame. Errors of the configuration
// (run_config.hpp), which come before it, and exceptions that do not derive from std::exception
// propagate.
[[nodiscard]] int run_command(const RunCommand& given, const RunSearch& search,
                              const RunOutputs& outputs, const embedded::InterruptFlag& interrupt);

}  // namespace varnholt::app
