#include "search_templates/genetic/population/batch_composition.hpp"

#include <optional>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/graph_filters.hpp"
#include "search_templates/genetic/population/parent_pool.hpp"
#include "search_templates/genetic/population/parent_scoring.hpp"
#include "search_templates/genetic/population/score_order.hpp"
#include "search_templates/genetic/value/arithmetic.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr Key kFreshRandom = key<"fresh_random">();
constexpr Key kEliteDerived = key<"elite_derived">();

// Every item is scored once, those without a graph included, after all of them have been read.
List scored_pool(Eliteness& eliteness, const Value& prior, const CompositionSettings& settings) {
  std::vector<ScoredCandidate> scored;
  if (truth(prior)) {
    const auto walk = iterate(prior);
    while (const std::optional<Value> candidate = walk->next())
      scored.push_back({Value(), *candidate});
  }
  for (ScoredCandidate& item : scored) {
    item.score = candidate_eliteness(eliteness, item.candidate, settings.diversity_weight,
                                     settings.parsimony_weight);
  }
  sort_highest_first(scored);
  List pool(scored.size());
  for (const ScoredCandidate& item : scored)
    pool.append(item.candidate);
  return pool;
}

class Composition {
 public:
  Composition(GraphDepth& graph_depth, const CompositionSettings& settings)
      : graph_depth_(graph_depth), settings_(settings) {}

  [[nodiscard]] bool is_full() const {
    return compares(Comparison::kAtLeast, size(), settings_.batch_size);
  }
  [[nodiscard]] bool has_room() const {
    return compares(Comparison::kLess, size(), settings_.batch_size);
  }

  // Whether an item was added.
  bool add(const std::function<Value()>& factory, Key lineage) {
    const Value item = lineage_candidate_item(graph_depth_, factory, lineage, settings_.max_depth,
                                              settings_.validator);
    if (item.is_absent()) return false;
    batch_.append(item);
    return true;
  }

  // At most as many items as were asked for; the size must be an index here.
  [[nodiscard]] List take() {
    const bool is_index = catching(
        {ErrorKind::kTypeError},
        [this] {
          static_cast<void>(saturated_integer(settings_.batch_size));
          return true;
        },
        [](const Error&) { return false; });
    if (is_index) return std::move(batch_);
    throw TypeError("slice indices must be integers or None or have an __index__ method");
  }

 private:
  [[nodiscard]] Value size() const { return static_cast<std::int64_t>(batch_.size()); }

  GraphDepth& graph_depth_;
  const CompositionSettings& settings_;
  List batch_;
};

}  // namespace

List compose_next_batch(GraphDepth& graph_depth, Eliteness& eliteness, const Value& prior,
                        const CompositionSettings& settings,
                        const std::shared_ptr<RandomGenerator>& rng,
                        const FreshFactory& fresh_random_factory,
                        const EliteFactory& elite_factory) {
  const List elite_pool = diverse_parent_pool(eliteness, scored_pool(eliteness, prior, settings),
                                              settings.elite_fraction, settings.diversity_weight,
                                              settings.parsimony_weight);
  const bool exploration_first = greater(settings.diversity_weight, 0.0);
  const auto breed = [&] { return elite_factory(elite_pool, rng); };

  Composition batch(graph_depth, settings);
  while (batch.has_room()) {
    bool added = false;
    if (exploration_first && fresh_random_factory) {
      added = batch.add(fresh_random_factory, kFreshRandom);
      if (batch.is_full()) break;
    }
    // The factory is handed the pool itself, and may have emptied it.
    if (elite_factory && !elite_pool.empty()) {
      added = batch.add(breed, kEliteDerived) || added;
      if (batch.is_full()) break;
    }
    if (!exploration_first && fresh_random_factory) {
      added = batch.add(fresh_random_factory, kFreshRandom) || added;
    }
    if (!added) break;
  }
  return batch.take();
}

}  // namespace varnholt::genetic
