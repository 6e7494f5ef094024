// Constants of the search that no host and no user changes.
#pragma once

#include <cstdint>

#include "search_templates/genetic/value/key.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

inline constexpr std::int64_t DEFAULT_MAX_IMPROVEMENT_DEPTH = 8;
inline constexpr std::int64_t DEFAULT_MAX_IMPROVEMENT_CANDIDATES = 96;
inline constexpr std::int64_t DEFAULT_MAX_IMPROVEMENT_ROUNDS = 10;
inline constexpr std::int64_t DEFAULT_MAX_REACTION_PLANS_PER_SOURCE = 8;
inline constexpr std::int64_t DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS = 8;

// How ties between scores are broken, reported with every run's metrics.
inline constexpr Key TIE_SEMANTICS =
    key<"score_desc_then_candidate_index_asc_then_canonical_graph">();

// The length of a run's seed. A seed is drawn with this many bits and is never 0.
inline constexpr int GENERATED_SEED_BITS = 63;

// Each generation yields for this long, so that the host can end a run between any two of them.
inline constexpr double GENERATION_PAUSE_SECONDS = 0.01;

// The contexts under which the host logs its work for this template: a new mapping at each call.
[[nodiscard]] Mapping genetic_random_weighted_log_context();
[[nodiscard]] Mapping genetic_reaction_log_context();

}  // namespace varnholt::genetic
