#include "search_templates/genetic/settings/module_constants.hpp"

#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

LoadedConstants::LoadedConstants(SearchSettings& settings, ProcessEvaluation& process_evaluation)
    : batch_size_(settings.default_batch_size()),
      restart_threshold_(settings.default_restart_threshold()),
      elite_fraction_(settings.default_elite_fraction()),
      diversity_weight_(settings.default_diversity_weight()),
      parsimony_weight_(settings.default_parsimony_weight()),
      operator_rates_(new_mapping(settings.default_operator_rates())),
      worker_failed_(process_evaluation.terminal_worker_failed()),
      worker_timeout_(process_evaluation.terminal_worker_timeout()) {}

Value LoadedConstants::default_max_improvement_depth() const {
  return DEFAULT_MAX_IMPROVEMENT_DEPTH;
}
Value LoadedConstants::default_max_improvement_candidates() const {
  return DEFAULT_MAX_IMPROVEMENT_CANDIDATES;
}
Value LoadedConstants::default_max_improvement_rounds() const {
  return DEFAULT_MAX_IMPROVEMENT_ROUNDS;
}
Value LoadedConstants::default_max_reaction_plans_per_source() const {
  return DEFAULT_MAX_REACTION_PLANS_PER_SOURCE;
}
Value LoadedConstants::default_max_actionable_near_miss_parents() const {
  return DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS;
}

bool LoadedConstants::is_process_terminal_failure_reason(const Value& reason) const {
  return is_same_or_equal(worker_failed_, reason) || is_same_or_equal(worker_timeout_, reason);
}

}  // namespace varnholt::genetic
