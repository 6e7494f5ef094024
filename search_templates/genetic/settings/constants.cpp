#include "search_templates/genetic/settings/constants.hpp"

#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::genetic {

Mapping genetic_random_weighted_log_context() {
  return {{keys::kTemplate, "genetic"},
          {keys::kStage, "fresh_candidates"},
          {keys::kGenerator, "random_weighted_graphs"}};
}

Mapping genetic_reaction_log_context() {
  return {{keys::kTemplate, "genetic"},
          {keys::kStage, "reaction_planning"},
          {keys::kGenerator, "safe_reaction_rotations"}};
}

}  // namespace varnholt::genetic
