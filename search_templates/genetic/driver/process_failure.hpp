// What a failure of process evaluation means for the run.
#pragma once

#include "search_templates/genetic/driver/run_counters.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Whether the failure ends the search. If so it is counted, and the run's metrics are recorded with
// its reason; those of a process priority that cannot be set are not, on purpose.
[[nodiscard]] bool process_failure_ends_search(Host& host, RunCounters& counters,
                                               const Value& error);

}  // namespace varnholt::genetic
