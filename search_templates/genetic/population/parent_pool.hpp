// Which evaluated candidates are worth breeding from: a good but redundant candidate loses to a
// slightly worse, different one.
#pragma once

#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// How much a parent's score loses for a redundancy of 1 at a diversity weight of 1.
inline constexpr double kRedundancyPenalty = 5.0;

// How much the candidate repeats those selected: the greatest of its absolute correlation and its
// graph's similarity to each of theirs. The two scales are not weighted against each other.
// ValueError for a correlation that is not finite.
[[nodiscard]] double selected_redundancy(const Value& candidate, const Value& selected);

// The candidate's score less its redundancy times kRedundancyPenalty times the weight. The
// diversity weight is taken out of the score itself on purpose, since it is applied here; at or
// below 0.0 no redundancy is worked out.
[[nodiscard]] Value diversity_adjusted_parent_score(Eliteness& eliteness, const Value& candidate,
                                                    const Value& selected, double diversity_weight,
                                                    double parsimony_weight);

// The parents, best first: of each structure the best candidate, of those a share of
// `elite_fraction` (rounded, ties to even; at least three where there are three), picked greedily
// by adjusted score. The best candidate is always taken. A pure function of its arguments: it draws
// no random number. Candidates without a graph are left out; failed ones are not.
//
// The diversity weight has three uses that must not be merged: scoring for the order of candidates
// uses it, the adjusted score is built on a score without it, and ties are broken by a score with
// it.
[[nodiscard]] List diverse_parent_pool(Eliteness& eliteness, const Value& prior,
                                       double elite_fraction, double diversity_weight,
                                       double parsimony_weight);

}  // namespace varnholt::genetic
