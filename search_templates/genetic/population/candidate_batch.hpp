// The graphs of the next batch: the configured seeds, fresh random graphs, or a bred batch.
#pragma once

#include <cstdint>

#include "search_templates/genetic/population/search_environment.hpp"
#include "search_templates/genetic/settings/search_config.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Returns a sequence of graphs.
//
// Batch 0 is the first `batch_size` of the configured seeds where there are any, an empty sequence
// of them included; they touch no generator. Batch 0 without seeds, a forced restart and a batch
// without prior results are fresh random graphs. Every other batch is bred from `prior_results`,
// and may come out short.
//
// The random stream is fetched once and stored once, after the last draw. A failure between the two
// leaves it unchanged, so that a second attempt at the batch repeats the same draws.
[[nodiscard]] Value candidate_batch(const SearchEnvironment& environment, SearchContext& context,
                                    SearchConfig& config, std::int64_t batch_index,
                                    const Value& prior_results, bool force_restart);

}  // namespace varnholt::genetic
