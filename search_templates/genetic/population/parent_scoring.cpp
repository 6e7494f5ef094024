#include "search_templates/genetic/population/parent_scoring.hpp"

#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

Value candidate_eliteness(Eliteness& eliteness, const Value& candidate, double diversity_weight,
                          double parsimony_weight) {
  return eliteness.score_candidate(
      candidate, {{keys::kSiblingCorrelations, Tuple()},
                  {keys::kPoolCorrelation, record_of(candidate).get(keys::kCorrelation)},
                  {keys::kDiversityWeight, diversity_weight},
                  {keys::kParsimonyWeight, parsimony_weight}});
}

}  // namespace varnholt::genetic
