#include "search_templates/genetic/population/parent_pool.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/population/node_names.hpp"
#include "search_templates/genetic/population/parent_scoring.hpp"
#include "search_templates/genetic/population/score_order.hpp"
#include "search_templates/genetic/value/arithmetic.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::int64_t kFewestParents = 3;

double absolute_correlation(const Mapping& candidate) {
  const Value correlation = optional_correlation(candidate.get(keys::kCorrelation));
  return correlation.is_absent() ? 0.0 : std::abs(to_float(correlation));
}

Value adjusted_score(const Value& base_score, double redundancy, const Value& diversity_weight) {
  return minus(base_score, times(redundancy * kRedundancyPenalty, diversity_weight));
}

// A hash of a value that does not depend on the order of a mapping's keys: equal values hash alike.
std::uint64_t unordered_hash(const Value& value) {
  constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15U;
  if (value.is_mapping()) {
    std::uint64_t sum = value.mapping().size();
    MappingCursor cursor(value.mapping());
    while (const std::optional<MappingEntry> entry = cursor.next()) {
      const std::uint64_t pair = hash(entry->key) * kMix ^ unordered_hash(entry->value);
      sum += (pair ^ (pair >> 29U)) * kMix;
    }
    return sum;
  }
  if (value.is_list()) {
    std::uint64_t combined = value.list().size() + 1;
    ListCursor cursor(value.list());
    while (const std::optional<Value> item = cursor.next()) {
      combined = (combined ^ unordered_hash(*item)) * kMix;
      combined ^= combined >> 31U;
    }
    return combined;
  }
  return hash(value);
}

// The hash of the record's graph, for a record that begins with it. Such records are compared by
// their graphs before anything else, so unequal hashes spare the comparison and nobody is asked
// less; where an object of the host may stand before the graph there is no hash.
std::optional<std::uint64_t> leading_graph_hash(const Value& record) {
  if (!record.is_mapping()) return std::nullopt;
  const std::optional<MappingEntry> first = MappingCursor(record.mapping()).next();
  if (!first || !is_same_key(first->key, keys::kGraph)) return std::nullopt;
  return unordered_hash(first->value);
}

// A candidate of one structure, with what is computed of it once: its names and its correlation
// when the rules first need them, and the greatest redundancy to those selected so far.
struct PoolCandidate {
  Value candidate;
  std::optional<std::uint64_t> graph_hash;
  std::optional<NameSet> names;
  std::optional<double> redundancy;
};

bool same_record(const PoolCandidate& left, const PoolCandidate& right) {
  if (same_object(left.candidate, right.candidate)) return true;
  if (left.graph_hash && right.graph_hash && left.graph_hash != right.graph_hash) return false;
  return left.candidate == right.candidate;
}

class ParentPool {
 public:
  ParentPool(Eliteness& eliteness, Value diversity_weight, Value parsimony_weight)
      : eliteness_(eliteness),
        diversity_weight_(std::move(diversity_weight)),
        parsimony_weight_(std::move(parsimony_weight)) {}

  List pick(const Value& prior, const Value& elite_fraction) {
    rank(best_of_each_structure(prior));
    if (unique_.empty()) return List();
    const std::int64_t target_size = target_of(elite_fraction);
    if (at_most(diversity_weight_, 0.0)) {
      List top;
      for (std::int64_t i = 0; i < target_size; ++i)
        top.append(at(i).candidate);
      return top;
    }
    select_greedily(target_size);
    fill_up(target_size);
    List parents;
    for (const std::size_t index : selected_)
      parents.append(unique_[index].candidate);
    return parents;
  }

 private:
  [[nodiscard]] PoolCandidate& at(std::int64_t index) {
    return unique_[static_cast<std::size_t>(index)];
  }

  [[nodiscard]] Value score(const Value& candidate) {
    return candidate_eliteness(eliteness_, candidate, diversity_weight_, parsimony_weight_);
  }

  // A replaced candidate stays at the place of the first with its structure; on equal scores the
  // earlier stays. A candidate is scored only against another of its structure, itself first.
  std::vector<Value> best_of_each_structure(const Value& prior) {
    std::vector<Value> best;
    if (!truth(prior)) return best;
    std::unordered_map<StructuralKey, std::size_t, StructuralKeyHash> places;
    const auto walk = iterate(prior);
    while (const std::optional<Value> candidate = walk->next()) {
      const Value graph = record_of(*candidate).get(keys::kGraph);
      if (graph.is_absent()) continue;
      const auto [place, is_new] = places.try_emplace(structural_key(graph), best.size());
      if (is_new) {
        best.push_back(*candidate);
        continue;
      }
      const Value candidate_score = score(*candidate);
      const Value best_score = score(best[place->second]);
      if (greater(candidate_score, best_score)) best[place->second] = *candidate;
    }
    return best;
  }

  void rank(const std::vector<Value>& candidates) {
    std::vector<ScoredCandidate> scored;
    scored.reserve(candidates.size());
    for (const Value& candidate : candidates)
      scored.push_back({score(candidate), candidate});
    sort_highest_first(scored);
    unique_.reserve(scored.size());
    for (const ScoredCandidate& item : scored) {
      PoolCandidate candidate;
      candidate.candidate = item.candidate;
      unique_.push_back(std::move(candidate));
    }
  }

  [[nodiscard]] std::int64_t target_of(const Value& elite_fraction) const {
    const auto size = static_cast<std::int64_t>(unique_.size());
    std::int64_t target_size = saturated_integer(rounded(times(size, elite_fraction)));
    if (target_size < kFewestParents) target_size = std::min(size, kFewestParents);
    return std::min(target_size, size);
  }

  // The greatest redundancy to any of those selected. Each pass selects one and asks for every
  // remaining candidate once, so only the one selected last is new.
  [[nodiscard]] double redundancy_of(PoolCandidate& candidate) {
    if (!candidate.redundancy) {
      candidate.redundancy = absolute_correlation(record_of(candidate.candidate));
    }
    const NameSet& names = names_of(candidate);
    const NameSet& newest = names_of(unique_[selected_.back()]);
    candidate.redundancy = std::max(*candidate.redundancy, NameTable::similarity(names, newest));
    return *candidate.redundancy;
  }

  [[nodiscard]] const NameSet& names_of(PoolCandidate& candidate) {
    if (!candidate.names) {
      candidate.names = names_.names_of(record_of(candidate.candidate).get(keys::kGraph));
    }
    return *candidate.names;
  }

  [[nodiscard]] bool is_selected(const PoolCandidate& candidate) const {
    return std::any_of(selected_.begin(), selected_.end(),
                       [&](std::size_t index) { return same_record(unique_[index], candidate); });
  }

  // What a pass compares: the adjusted score, and the score with the caller's own weight.
  struct Rank {
    Value adjusted;
    Value own;
  };

  // The adjusted score is asked for first, then the score that breaks ties: two host calls for each
  // candidate in each pass.
  [[nodiscard]] Rank rank_of(PoolCandidate& candidate) {
    const Value base = candidate_eliteness(eliteness_, candidate.candidate, 0.0, parsimony_weight_);
    Value adjusted = adjusted_score(base, redundancy_of(candidate), diversity_weight_);
    return {std::move(adjusted), score(candidate.candidate)};
  }

  // As pairs are compared: the first parts that are neither the same object nor equal decide.
  [[nodiscard]] static bool is_greater(const Rank& left, const Rank& right) {
    if (!is_same_or_equal(left.adjusted, right.adjusted)) {
      return greater(left.adjusted, right.adjusted);
    }
    return !is_same_or_equal(left.own, right.own) && greater(left.own, right.own);
  }

  void select_greedily(std::int64_t target_size) {
    for (PoolCandidate& candidate : unique_)
      candidate.graph_hash = leading_graph_hash(candidate.candidate);
    selected_.push_back(0);
    std::vector<std::size_t> remaining;
    for (std::size_t i = 1; i < unique_.size(); ++i) {
      if (!is_selected(unique_[i])) remaining.push_back(i);
    }
    while (static_cast<std::int64_t>(selected_.size()) < target_size && !remaining.empty()) {
      std::size_t winner = 0;
      std::optional<Rank> winner_rank;
      for (std::size_t i = 0; i < remaining.size(); ++i) {
        Rank rank = rank_of(unique_[remaining[i]]);
        // The first of equal ranks stays.
        if (winner_rank && !is_greater(rank, *winner_rank)) continue;
        winner = i;
        winner_rank = std::move(rank);
      }
      take(remaining, winner);
    }
  }

  // What leaves is the first that equals the winner, which need not be the winner itself.
  void take(std::vector<std::size_t>& remaining, std::size_t winner) {
    const std::size_t chosen = remaining[winner];
    selected_.push_back(chosen);
    const auto leaving = std::find_if(remaining.begin(), remaining.end(), [&](std::size_t index) {
      return same_record(unique_[index], unique_[chosen]);
    });
    remaining.erase(leaving);
  }

  void fill_up(std::int64_t target_size) {
    for (std::size_t i = 0; i < unique_.size(); ++i) {
      if (static_cast<std::int64_t>(selected_.size()) >= target_size) return;
      if (!is_selected(unique_[i])) selected_.push_back(i);
    }
  }

  Eliteness& eliteness_;
  Value diversity_weight_;
  Value parsimony_weight_;
  NameTable names_;
  std::vector<PoolCandidate> unique_;  // Best first.
  std::vector<std::size_t> selected_;  // Places in `unique_`.
};

}  // namespace

double selected_redundancy(const Value& candidate, const Value& selected) {
  const Mapping record = record_of(candidate);
  const Value graph = record.get(keys::kGraph);
  double redundancy = absolute_correlation(record);
  const auto walk = iterate(selected);
  while (const std::optional<Value> other = walk->next()) {
    redundancy = std::max(redundancy, graph_similarity(graph, record_of(*other).get(keys::kGraph)));
  }
  return redundancy;
}

Value diversity_adjusted_parent_score(Eliteness& eliteness, const Value& candidate,
                                      const Value& selected, const Value& diversity_weight,
                                      const Value& parsimony_weight) {
  Value base_score = candidate_eliteness(eliteness, candidate, 0.0, parsimony_weight);
  if (at_most(diversity_weight, 0.0)) return base_score;
  return adjusted_score(base_score, selected_redundancy(candidate, selected), diversity_weight);
}

List diverse_parent_pool(Eliteness& eliteness, const Value& prior, const Value& elite_fraction,
                         const Value& diversity_weight, const Value& parsimony_weight) {
  return ParentPool(eliteness, diversity_weight, parsimony_weight).pick(prior, elite_fraction);
}

}  // namespace varnholt::genetic
