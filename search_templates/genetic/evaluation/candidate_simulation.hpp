// Evaluates one candidate with the host's evaluator.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The candidate result record of one evaluation. Runs in a worker process. An ordinary error of the
// evaluator becomes a record; whatever is thrown after its call propagates. The submission payload
// is a copy of the first that the evaluator returned, so that later writes never reach the
// evaluator's own. A result that passes or whose backtest was completed carries the backtest's
// timing (submission/backtest_timing.hpp).
//
// RuntimeError "genetic search requires the canonical SearchContext evaluator" without an
// evaluator.
[[nodiscard]] Mapping simulate_candidate(Host& host, SearchContext& context, const Value& graph);

}  // namespace varnholt::genetic
