#include "search_templates/genetic/population/candidate_batch.hpp"

#include <algorithm>
#include <limits>
#include <memory>

#include "search_templates/genetic/context/context_limits.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/population/batch_composition.hpp"
#include "search_templates/genetic/population/elite_derivation.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// At most `count` items of `sequence`, from `start`.
List slice(const Value& sequence, std::int64_t start, std::int64_t count) {
  List items;
  const auto size = static_cast<std::int64_t>(length(sequence));
  for (std::int64_t i = start; i < size && i - start < count; ++i) {
    items.append(item(sequence, i));
  }
  return items;
}

List thawed_seeds(Host& host, const Value& initial_candidates, std::int64_t batch_size) {
  List graphs;
  const List frozen = slice(initial_candidates, 0, batch_size);
  for (std::size_t i = 0; i < frozen.size(); ++i) {
    graphs.append(thaw_graph_data(frozen.at(i)));
    if (GenerationObserver* const observer = host.generation_observer()) {
      observer->on_seed(graphs.at(i));
    }
  }
  return graphs;
}

List fresh_start(SearchContext& context, SearchConfig& config, FreshCandidates& fresh_candidates,
                 std::int64_t batch_size, bool force_restart) {
  const std::shared_ptr<RandomGenerator> rng = config.rng_for_batch();
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  const std::int64_t requested =
      force_restart && batch_size < kLargest ? batch_size + 1 : batch_size;
  Value graphs = fresh_candidates.draw(context, requested, rng);
  // A restart draws one graph too many and throws the first away, on purpose. The test is against
  // the batch size: a source that returns more than it was asked for loses its first graph as well.
  if (force_restart && static_cast<std::int64_t>(length(graphs)) > batch_size) {
    graphs = slice(graphs, 1, kLargest);
  }
  config.store_rng_state(rng);
  return slice(graphs, 0, batch_size);
}

// The values under "graph" of a batch bred from the prior results.
List bred_batch(const SearchEnvironment& environment, SearchContext& context, SearchConfig& config,
                std::int64_t batch_size, const Value& prior_results) {
  const std::shared_ptr<RandomGenerator> rng = config.rng_for_batch();
  CompositionSettings settings;
  settings.batch_size = batch_size;
  settings.elite_fraction = config.elite_fraction();
  settings.diversity_weight = config.diversity_weight();
  settings.parsimony_weight = config.parsimony_weight();
  settings.max_depth = context_max_depth(context);
  settings.validator = graph_validator(context);

  const FreshFactory fresh = [&]() -> Value {
    // An empty answer fails as an index out of range, which costs the batch this item.
    return Mapping{{keys::kGraph, item(environment.fresh_candidates.draw(context, 1, rng), 0)}};
  };
  const EliteFactory elite = [&](const List& parents,
                                 const std::shared_ptr<RandomGenerator>& generator) -> Value {
    DerivationSettings derivation;
    derivation.operator_rates = config.operator_rates();
    derivation.elite_fraction = config.elite_fraction();
    derivation.diversity_weight = config.diversity_weight();
    derivation.parsimony_weight = config.parsimony_weight();
    return Mapping{
        {keys::kGraph, elite_derived_graph(environment, context, parents, generator, derivation)}};
  };
  const List batch =
      compose_next_batch(environment.host.graph_depth(), environment.host.eliteness(),
                         prior_results, settings, rng, fresh, elite);
  config.store_rng_state(rng);
  List graphs(batch.size());
  for (std::size_t i = 0; i < batch.size(); ++i) {
    graphs.append(batch.at(i).mapping().at(keys::kGraph));
  }
  return graphs;
}

}  // namespace

Value candidate_batch(const SearchEnvironment& environment, SearchContext& context,
                      SearchConfig& config, std::int64_t batch_index, const Value& prior_results,
                      bool force_restart) {
  FreshCandidates& fresh_candidates = environment.fresh_candidates;
  const std::int64_t batch_size = saturated_integer(config.batch_size());
  if (batch_index == 0) {
    // Seeds are for batch 0 alone, and come before a restart.
    if (!config.initial_candidates().is_absent()) {
      return thawed_seeds(environment.host, config.initial_candidates(), batch_size);
    }
  }
  if (batch_index == 0 || force_restart) {
    return fresh_start(context, config, fresh_candidates, batch_size, force_restart);
  }

  if (truth(prior_results)) {
    return bred_batch(environment, context, config, batch_size, prior_results);
  }

  const std::shared_ptr<RandomGenerator> rng = config.rng_for_batch();
  Value graphs = fresh_candidates.draw(context, batch_size, rng);
  config.store_rng_state(rng);
  return graphs;  // Not cut to the batch size, unlike the batches above.
}

}  // namespace varnholt::genetic
