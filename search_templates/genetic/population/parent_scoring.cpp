#include "search_templates/genetic/population/parent_scoring.hpp"

#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

Value candidate_eliteness(Eliteness& eliteness, const Value& candidate,
                          const Value& diversity_weight, const Value& parsimony_weight) {
  // A pool asks for two scores a candidate and parent, so the keywords are set without looking
  // whether they are there.
  Mapping keywords(4);
  keywords.append_new(keys::kSiblingCorrelations, Tuple());
  keywords.append_new(keys::kPoolCorrelation, record_of(candidate).get(keys::kCorrelation));
  keywords.append_new(keys::kDiversityWeight, diversity_weight);
  keywords.append_new(keys::kParsimonyWeight, parsimony_weight);
  return eliteness.score_candidate(candidate, keywords);
}

}  // namespace varnholt::genetic
