// The graphs of the next batch: the configured seeds, or fresh random graphs.
#pragma once

#include <cstdint>

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/population/fresh_candidates.hpp"
#include "search_templates/genetic/settings/search_config.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Returns a sequence of graphs.
//
// Batch 0 is the first `batch_size` of the configured seeds where there are any, an empty sequence
// of them included; they touch no generator. Batch 0 without seeds and a forced restart are fresh
// random graphs. So is, for now, every other batch: breeding from `prior_results` joins here.
//
// The random stream is fetched once and stored once, after the last draw. A failure between the two
// leaves it as it was, so that a batch tried again repeats the same draws.
[[nodiscard]] Value candidate_batch(SearchContext& context, SearchConfig& config,
                                    FreshCandidates& fresh_candidates, std::int64_t batch_index,
                                    const Value& prior_results, bool force_restart);

}  // namespace varnholt::genetic
