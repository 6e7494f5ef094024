// The host's default settings. All but the last are read once, when the module is loaded.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class SearchSettings {
 public:
  virtual ~SearchSettings() = default;

  [[nodiscard]] virtual Value default_batch_size() = 0;
  [[nodiscard]] virtual Value default_restart_threshold() = 0;
  [[nodiscard]] virtual Value default_elite_fraction() = 0;
  [[nodiscard]] virtual Value default_diversity_weight() = 0;
  [[nodiscard]] virtual Value default_parsimony_weight() = 0;
  // A mapping of operator name to rate.
  [[nodiscard]] virtual Value default_operator_rates() = 0;
  // The priority of worker processes, read for each batch.
  [[nodiscard]] virtual Value default_process_priority() = 0;
};

}  // namespace varnholt::genetic
