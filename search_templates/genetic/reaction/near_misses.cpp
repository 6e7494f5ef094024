#include "search_templates/genetic/reaction/near_misses.hpp"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/population/parent_scoring.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/list_order.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::int64_t kParentsPerCandidate = 4;

std::int64_t limit_of(const ModuleConstants& constants, const Value& batch_size) {
  const std::int64_t fewest =
      saturated_integer(constants.default_max_actionable_near_miss_parents());
  const std::optional<Value> size = tolerant_integer(batch_size);
  if (!size) return fewest;
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max() / kParentsPerCandidate;
  const std::int64_t wanted = std::clamp(saturated_integer(*size), -kLargest, kLargest);
  return std::max(wanted * kParentsPerCandidate, fewest);
}

// Whether a result stands so badly that no repair is worth while. A NaN does not; anything but a
// number counts as zero. All is read, also of a result whose reversal would pass.
bool is_hopeless(const Value& result, bool is_reversible) {
  const double sharpe = tolerant_float(entry(result, keys::kSharpe)).value_or(0.0);
  if (sharpe <= 0.0 && !is_reversible) return true;
  return candidate_quality(result) <= 0.0 && !is_reversible;
}

bool has_reaction_reason(const Tuple& signature) {
  const auto names = signature.items();
  return std::any_of(names.begin(), names.end(), [](const Value& reason) {
    return is_member(REACTION_FAILURE_REASONS, reason);
  });
}

class Selection {
 public:
  explicit Selection(const ReactionEnvironment& environment) : environment_(environment) {}

  List select(const Value& results, std::int64_t limit) {
    filter(results);
    List parents;
    if (candidates_.empty()) return parents;
    std::vector<std::size_t> selected = best_of_each_signature();
    std::vector<bool> is_selected(candidates_.size());
    for (const std::size_t candidate : selected)
      is_selected[candidate] = true;
    // All are put in order, and so scored, even when none has a place left.
    for (const std::size_t candidate : ordered(all_candidates())) {
      if (static_cast<std::int64_t>(selected.size()) >= limit) break;
      if (!is_selected[candidate]) selected.push_back(candidate);
    }
    selected.resize(
        std::min(selected.size(), static_cast<std::size_t>(std::max<std::int64_t>(limit, 0))));
    for (const std::size_t candidate : selected)
      parents.append(candidates_[candidate]);
    return parents;
  }

 private:
  void filter(const Value& results) {
    StructuralKeySet seen_graphs;
    const auto walk = iterate(results);
    while (const std::optional<Value> raw_result = walk->next()) {
      const Value result = environment_.expanded(*raw_result);
      const Value graph = entry(result, keys::kGraph);
      if (!as_mapping(graph) || !has_actionable_near_miss_failure(result)) continue;
      const bool is_reversible = is_negative_sharpe_reaction_candidate(
          environment_.host.gates(), environment_.host.json_reader(), result);
      if (is_hopeless(result, is_reversible)) continue;
      if (seen_graphs.insert(structural_key(graph)).second) candidates_.push_back(result);
    }
  }

  // In the order of their keys. On equal keys the earlier candidate stays the best of its
  // signature. Both keys are computed anew for each comparison, the later candidate's first: how
  // often the host is asked for a score is behaviour.
  std::vector<std::size_t> best_of_each_signature() {
    Mapping best;
    for (std::size_t candidate = 0; candidate < candidates_.size(); ++candidate) {
      const Tuple signature = failure_signature(candidates_[candidate]);
      if (!has_reaction_reason(signature)) continue;
      const std::optional<Value> prior = best.find(signature);
      if (!prior || is_nearer(candidate, static_cast<std::size_t>(prior->integer()))) {
        best.set(signature, static_cast<std::int64_t>(candidate));
      }
    }
    std::vector<std::size_t> selected;
    MappingCursor cursor(best);
    while (const std::optional<MappingEntry> entry = cursor.next())
      selected.push_back(static_cast<std::size_t>(entry->value.integer()));
    return ordered(selected);
  }

  [[nodiscard]] bool is_nearer(std::size_t candidate, std::size_t prior) const {
    const NearMissKey own = key_of(candidate);
    return own.is_less_than(key_of(prior));
  }

  [[nodiscard]] NearMissKey key_of(std::size_t candidate) const {
    return actionable_near_miss_key(environment_, candidates_[candidate]);
  }

  [[nodiscard]] std::vector<std::size_t> all_candidates() const {
    std::vector<std::size_t> all(candidates_.size());
    for (std::size_t candidate = 0; candidate < all.size(); ++candidate)
      all[candidate] = candidate;
    return all;
  }

  // One key for each, in the order in which they stand.
  [[nodiscard]] std::vector<std::size_t> ordered(const std::vector<std::size_t>& candidates) const {
    std::vector<NearMissKey> keys;
    keys.reserve(candidates.size());
    for (const std::size_t candidate : candidates)
      keys.push_back(key_of(candidate));
    std::vector<std::size_t> sorted =
        list_order(keys.size(), [&keys](std::size_t left, std::size_t right) {
          return keys[left].is_less_than(keys[right]);
        });
    for (std::size_t& place : sorted)
      place = candidates[place];
    return sorted;
  }

  const ReactionEnvironment& environment_;
  std::vector<Value> candidates_;
};

}  // namespace

bool NearMissKey::is_less_than(const NearMissKey& other) const {
  TupleOrder order;
  order.then(progress.failure_count, other.progress.failure_count)
      .then(progress.total_violation, other.progress.total_violation)
      .then(negated_eliteness, other.negated_eliteness);
  priority.continue_order(order, other.priority);
  return order.is_less();
}

NearMissKey actionable_near_miss_key(const ReactionEnvironment& environment, const Value& result) {
  NearMissKey key;
  key.progress = failure_progress_key(environment.host.json_reader(), result);
  key.negated_eliteness = negated(candidate_eliteness(
      environment.host.eliteness(), result, environment.constants.default_diversity_weight(),
      environment.constants.default_parsimony_weight()));
  key.priority = reaction_priority_key(result);
  return key;
}

List select_actionable_near_miss_parents(const ReactionEnvironment& environment,
                                         const Value& results, const Value& batch_size) {
  const std::int64_t limit = limit_of(environment.constants, batch_size);
  return Selection(environment).select(results, limit);
}

}  // namespace varnholt::genetic
