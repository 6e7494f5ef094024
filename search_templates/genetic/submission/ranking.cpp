#include "search_templates/genetic/submission/ranking.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/graph/plain_data.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/list_order.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tuple_order.hpp"

namespace varnholt::genetic {
namespace {

// The key that a candidate is sorted by, smallest first.
struct RankedCandidate {
  Value opposite_score;
  Value candidate_index;
  // Of a graph that holds nothing of the host it is made when it is needed to break a tie: nobody
  // can tell, and ties are rare.
  std::optional<std::string> graph_text;
  Value candidate;
};

Value graph_of(const Value& candidate) {
  return record_of(candidate).get(keys::kGraph);
}

RankedCandidate ranked(Eliteness& eliteness, const Value& candidate) {
  const Mapping record = record_of(candidate);
  const Value score = eliteness.score_candidate(
      candidate, {{keys::kSiblingCorrelations, Tuple()},
                  {keys::kPoolCorrelation, record.get(keys::kCorrelation)}});
  RankedCandidate result;
  result.opposite_score = negated(score);
  // Only a missing index is 0; an absent one fails in the conversion.
  result.candidate_index = to_integer(record.get(keys::kCandidateIndex, 0));
  const Value graph = record.get(keys::kGraph);
  // A graph that has no text fails here, tie or not.
  if (!native_tree_bytes(graph)) result.graph_text = canonical_graph_string(graph);
  result.candidate = candidate;
  return result;
}

const std::string& graph_text(RankedCandidate& candidate) {
  if (!candidate.graph_text) {
    candidate.graph_text = canonical_graph_string(graph_of(candidate.candidate));
  }
  return *candidate.graph_text;
}

// Keys are compared like tuples: by the first part in which they differ, and parts that are one
// object do not differ, whatever they say of themselves.
bool comes_before(RankedCandidate& left, RankedCandidate& right) {
  const TupleOrder order = TupleOrder()
                               .then(left.opposite_score, right.opposite_score)
                               .then(left.candidate_index, right.candidate_index);
  return order.is_decided() ? order.is_less() : graph_text(left) < graph_text(right);
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
  List ranking(order.size());
  for (const std::size_t place :
       list_order(order.size(), [&order](std::size_t left, std::size_t right) {
         return comes_before(order[left], order[right]);
       })) {
    ranking.append(order[place].candidate);
  }
  return ranking;
}

}  // namespace varnholt::genetic
