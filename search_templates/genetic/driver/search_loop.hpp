// The search: generation after generation until the host stops it or a terminal condition ends it.
//
// One generation, in the order that must hold:
//
//   candidate batch -> deduplication -> evaluation in child processes -> annotation -> recording
//   and submission -> counting -> stop test -> improvement rounds -> recording and submission of
//   the whole generation -> choice of the next parents -> terminal test -> pause of a hundredth of
//   a second
//
// A run has no state beyond its call but the random state in its configuration and what the host
// has recorded. It writes exactly one metrics record, with two exceptions: none for a process
// priority that cannot be set, and none for an error of the host or the recording that it does not
// expect. Such an error propagates unchanged.
#pragma once

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/population/search_environment.hpp"
#include "search_templates/genetic/settings/search_config.hpp"

namespace varnholt::genetic {

// Runs one search. Everything that it finds goes to the host. Runs on the calling thread; the stop
// event is read from the context before each turn.
void run_genetic_search(const SearchEnvironment& environment, SearchContext& context,
                        SearchConfig& config);

}  // namespace varnholt::genetic
