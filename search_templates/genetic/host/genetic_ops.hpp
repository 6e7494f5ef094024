// The host's genetic operators: new graphs from old ones.
#pragma once

#include <memory>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Each operator draws from `rng` alone, in an order of its own that never changes, and may ask the
// validator, which throws for a graph that it refuses and may be empty. None changes its arguments.
class GeneticOps {
 public:
  virtual ~GeneticOps() = default;

  // A part of the one graph in the place of a part of the other.
  [[nodiscard]] virtual Value crossover(const Value& elite, const Value& mate,
                                        const std::shared_ptr<RandomGenerator>& rng,
                                        const Callable& validator) = 0;
  // One node changed, or one subtree replaced, with material from the list of graphs
  // `replacements`.
  [[nodiscard]] virtual Value point_mutation(const Value& elite, const Value& replacements,
                                             const std::shared_ptr<RandomGenerator>& rng,
                                             const Callable& validator) = 0;
  [[nodiscard]] virtual Value subtree_mutation(const Value& elite, const Value& replacements,
                                               const std::shared_ptr<RandomGenerator>& rng,
                                               const Callable& validator) = 0;
  // A subtree in the place of the whole. May return its argument itself.
  [[nodiscard]] virtual Value hoist_mutation(const Value& elite,
                                             const std::shared_ptr<RandomGenerator>& rng,
                                             const Callable& validator) = 0;
};

}  // namespace varnholt::genetic
