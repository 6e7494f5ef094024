#include "search_templates/genetic/submission/ranking.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/graph/plain_data.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

struct RankedCandidate {
  Value opposite_score;  // Sorted smallest first.
  Value candidate_index;
  // Of a graph that holds nothing of the host it is made when there is a tie to break: nobody can
  // tell, and ties are rare.
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
  result.candidate_index = to_integer(record.find(keys::kCandidateIndex).value_or(0));
  const Value graph = record.get(keys::kGraph);
  // A graph that has no text fails here, tie or not.
  if (!native_tree_bytes(graph)) result.graph_text = canonical_graph_string(graph);
  result.candidate = candidate;
  return result;
}

// The order without the texts.
bool comes_before(const RankedCandidate& left, const RankedCandidate& right) {
  const bool left_is_nan = is_nan(left.opposite_score);
  const bool right_is_nan = is_nan(right.opposite_score);
  if (left_is_nan != right_is_nan) return right_is_nan;
  if (!left_is_nan && !(left.opposite_score == right.opposite_score)) {
    return less(left.opposite_score, right.opposite_score);
  }
  return less(left.candidate_index, right.candidate_index);
}

void break_ties(std::vector<RankedCandidate>& order) {
  auto first = order.begin();
  while (first != order.end()) {
    const auto last = std::find_if(first + 1, order.end(), [&first](const RankedCandidate& next) {
      return comes_before(*first, next);
    });
    if (last - first > 1) {
      std::for_each(first, last, [](RankedCandidate& tied) {
        if (!tied.graph_text) tied.graph_text = canonical_graph_string(graph_of(tied.candidate));
      });
      std::stable_sort(first, last, [](const RankedCandidate& left, const RankedCandidate& right) {
        return left.graph_text < right.graph_text;
      });
    }
    first = last;
  }
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
  break_ties(order);

  List ranking(order.size());
  for (RankedCandidate& entry : order)
    ranking.append(std::move(entry.candidate));
  return ranking;
}

}  // namespace varnholt::genetic
