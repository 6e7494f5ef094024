// The improvement of one generation: its near misses are repaired by planned reactions and
// evaluated again, round by round, until there is nothing left to repair or a limit is reached.
//
// One round, in the order that must hold:
//
//   source pool -> limits of rounds and candidates -> derived batch -> evaluation in child
//   processes -> annotation with lineage -> recording and submission -> counting -> stop test
//   -> the tests by which the rounds end
#pragma once

#include <cstdint>
#include <memory>

#include "search_templates/genetic/driver/run_counters.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/host/stop_event.hpp"
#include "search_templates/genetic/population/deduplication.hpp"
#include "search_templates/genetic/population/search_environment.hpp"
#include "search_templates/genetic/settings/search_config.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What the rounds share with the run that they belong to.
struct ImprovementScope {
  const SearchEnvironment& environment;
  SearchContext& context;
  const SearchConfig& config;
  RunCounters& counters;
  SeenGraphs& seen_graphs;  // Grows by every improvement that is accepted.
  StopEvent* stop_event;    // Null when the run has none.
};

struct ImprovementOutcome {
  // Why the rounds ended; absent when they simply ran out of work. A reason of process evaluation
  // is whatever the error says.
  Value terminal_reason;
  std::int64_t improvement_count = 0;  // Improvements that were evaluated.
  std::int64_t round_count = 0;        // Rounds that were evaluated.
};

// Runs the rounds of the generation whose batch has these results, and extends them by the results
// of every round.
//
// A batch of improvements whose process evaluation fails ends the rounds with the error's own
// reason and stands in the generation as failed, untimed results; an error that is fatal to the
// search propagates unchanged.
[[nodiscard]] ImprovementOutcome run_improvement_rounds(const ImprovementScope& scope,
                                                        List& generation_results);

}  // namespace varnholt::genetic
