// The public breeding step: the next batch from the results of the last.
#pragma once

#include <functional>
#include <memory>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/host/graph_depth.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Makes an item with a fresh random graph, and one with an offspring of the parents. Each may be
// empty, and then contributes nothing.
using FreshFactory = std::function<Value()>;
using EliteFactory =
    std::function<Value(const List& parents, const std::shared_ptr<RandomGenerator>& rng)>;

struct CompositionSettings {
  Value batch_size = 0;
  Value elite_fraction = 0.0;  // Sets the size of the parent pool, not the mix of the batch.
  Value diversity_weight = 0.0;
  Value parsimony_weight = 0.0;
  Value max_depth;     // Absent is no limit.
  Callable validator;  // May be empty.
};

// At most `batch_size` candidate items. Each round adds a fresh one and an offspring, in this order
// with a diversity weight above 0.0 and in the other without; so a batch is about half and half. An
// item that is too deep, refused by the validator or not available costs its round that one slot; a
// round that adds nothing ends the batch early. The parent pool is selected even if nothing is bred
// from it.
[[nodiscard]] List compose_next_batch(GraphDepth& graph_depth, Eliteness& eliteness,
                                      const Value& prior, const CompositionSettings& settings,
                                      const std::shared_ptr<RandomGenerator>& rng,
                                      const FreshFactory& fresh_random_factory,
                                      const EliteFactory& elite_factory);

}  // namespace varnholt::genetic
