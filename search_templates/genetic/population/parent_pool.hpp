// Which evaluated candidates are worth breeding from: a good but redundant candidate loses to a
// slightly worse, different one.
#pragma once

#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The penalty on a parent's score for a redundancy of 1 at a diversity weight of 1.
inline constexpr double kRedundancyPenalty = 5.0;

// The redundancy of the candidate beside those selected: the maximum of its absolute correlation
// and of its graph's similarity to each of theirs. The two scales are not weighted against each
// other. ValueError for a correlation that is not finite.
[[nodiscard]] double selected_redundancy(const Value& candidate, const Value& selected);

// The candidate's score minus redundancy times kRedundancyPenalty times the weight. The host's
// score is asked for without a diversity weight, on purpose, since it is applied here; at or below
// 0.0 no redundancy is computed.
[[nodiscard]] Value diversity_adjusted_parent_score(Eliteness& eliteness, const Value& candidate,
                                                    const Value& selected,
                                                    const Value& diversity_weight,
                                                    const Value& parsimony_weight);

// The parent pool, best first: the best candidate of each structure, of those a share of
// `elite_fraction` (rounded, ties to even; at least three where there are three), picked greedily
// by adjusted score. The best candidate is always taken. A pure function of its arguments: it draws
// no random number. Candidates without a graph are left out; failed ones are not.
//
// The diversity weight has three uses that must not be merged: scoring for the order of candidates
// uses it, the adjusted score is built on a score without it, and ties are broken by a score with
// it.
[[nodiscard]] List diverse_parent_pool(Eliteness& eliteness, const Value& prior,
                                       const Value& elite_fraction, const Value& diversity_weight,
                                       const Value& parsimony_weight);

}  // namespace varnholt::genetic
