// The host's default settings. All but the last are read once, when the module is loaded.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// A host overrides what it wants to differ.
class SearchSettings {
 public:
  virtual ~SearchSettings() = default;

  // Candidates a batch.
  [[nodiscard]] virtual Value default_batch_size() { return 32; }
  // Batches in a row without a better candidate, after which the search begins anew.
  [[nodiscard]] virtual Value default_restart_threshold() { return 5; }
  // The share of the results that become parents, above 0 and up to 1.
  [[nodiscard]] virtual Value default_elite_fraction() { return 0.25; }
  [[nodiscard]] virtual Value default_diversity_weight() { return 0.5; }
  [[nodiscard]] virtual Value default_parsimony_weight() { return 0.005; }
  // A mapping of operator name to rate.
  [[nodiscard]] virtual Value default_operator_rates() {
    return Mapping{{"crossover", 0.4},
                   {"point_mutation", 0.3},
                   {"subtree_mutation", 0.2},
                   {"hoist_mutation", 0.1}};
  }
  // The priority of worker processes, read for each batch. Absent: that of the search.
  [[nodiscard]] virtual Value default_process_priority() { return {}; }
};

}  // namespace varnholt::genetic
