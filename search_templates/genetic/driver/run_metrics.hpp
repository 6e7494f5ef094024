// The one metrics record of a run.
#pragma once

#include <cstdint>
#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/settings/search_config.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What a run reports when it ends.
struct RunFigures {
  Value process_count;
  Value candidate_count;
  Value generated_graph_count;
  Value unique_graph_count;
  Value duplicate_graph_count;
  Value improvement_round_count;
  Value terminal_reason;
  Value failure_count;
  Value elapsed_simulation_seconds;
};

// Whether a keyword of that name can be passed: the callable has a parameter of the name that takes
// keywords, or takes any keyword. True when its parameters are unknown.
[[nodiscard]] bool callable_accepts_keyword(const Callable& callable, std::string_view keyword);

// Calls the context's recorder with the record's thirteen entries as keywords, less those of six
// that it does not accept; the other seven are always passed. Without a recorder nothing is
// reported. The recorder's own errors propagate.
void record_search_run_metrics(SearchContext& context, const SearchConfig& config,
                               const RunFigures& figures);

}  // namespace varnholt::genetic
