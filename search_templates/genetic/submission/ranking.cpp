#include "search_templates/genetic/submission/ranking.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

struct RankedCandidate {
  Value opposite_score;  // Sorted smallest first.
  Value candidate_index;
  std::string graph_text;
  Value candidate;
};

RankedCandidate ranked(Eliteness& eliteness, const Value& candidate) {
  const Mapping record = record_of(candidate);
  const Value score = eliteness.score_candidate(
      candidate, {{keys::kSiblingCorrelations, Tuple()},
                  {keys::kPoolCorrelation, record.get(keys::kCorrelation)}});
  RankedCandidate result;
  result.opposite_score = negated(score);
  // Only a missing index is 0; an absent one fails in the conversion.
  result.candidate_index = to_integer(record.find(keys::kCandidateIndex).value_or(0));
  result.graph_text = canonical_graph_string(record.get(keys::kGraph));
  result.candidate = candidate;
  return result;
}

bool comes_before(const RankedCandidate& left, const RankedCandidate& right) {
  const bool left_is_nan = is_nan(left.opposite_score);
  const bool right_is_nan = is_nan(right.opposite_score);
  if (left_is_nan != right_is_nan) return right_is_nan;
  if (!left_is_nan && !(left.opposite_score == right.opposite_score)) {
    return less(left.opposite_score, right.opposite_score);
  }
  if (!(left.candidate_index == right.candidate_index)) {
    return less(left.candidate_index, right.candidate_index);
  }
  return left.graph_text < right.graph_text;
}

}  // namespace

List rank_submittable_candidates(Eliteness& eliteness, const Value& candidates) {
  std::vector<Value> submittable;
  const auto walk = iterate(candidates);
  while (std::optional<Value> candidate = walk->next()) {
    if (truth(record_of(*candidate).get(keys::kPasses))) {
      submittable.push_back(*std::move(candidate));
    }
  }
  std::vector<RankedCandidate> order;
  order.reserve(submittable.size());
  for (const Value& candidate : submittable)
    order.push_back(ranked(eliteness, candidate));
  std::stable_sort(order.begin(), order.end(), comes_before);

  List ranking(order.size());
  for (RankedCandidate& entry : order)
    ranking.append(std::move(entry.candidate));
  return ranking;
}

}  // namespace varnholt::genetic
