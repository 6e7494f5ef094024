// One candidate through the host's evaluator.
#pragma once

#include "search_templates/genetic/host/engine.hpp"
#include "search_templates/genetic/host/evaluation_verdicts.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The candidate result record of one evaluation. Runs in a worker process. An ordinary error of the
// evaluator becomes a record; whatever comes after its call passes. The submission payload is a
// copy of the first that the evaluator returned, so that later writes never reach the evaluator's
// own.
//
// RuntimeError "genetic search requires the canonical SearchContext evaluator" without an
// evaluator.
[[nodiscard]] Mapping simulate_candidate(SearchContext& context, Engine& engine,
                                         EvaluationVerdicts& verdicts, const Value& graph);

}  // namespace varnholt::genetic
