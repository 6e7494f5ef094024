#include "hosts/python/host/python_settings.hpp"

#include "hosts/python/host/python_random.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {

using genetic::Mapping;
using genetic::Value;

Value PythonSearchConfig::setting(const char* name) const {
  return to_value(attribute(config_, name));
}

Value PythonSearchConfig::batch_size() const {
  return setting("_batch_size");
}
Value PythonSearchConfig::initial_candidates() const {
  return setting("_initial_candidates");
}
Value PythonSearchConfig::seed() const {
  return setting("_seed");
}
Value PythonSearchConfig::restart_threshold() const {
  return setting("_restart_threshold");
}
Value PythonSearchConfig::elite_fraction() const {
  return setting("_elite_fraction");
}
Value PythonSearchConfig::diversity_weight() const {
  return setting("_diversity_weight");
}
Value PythonSearchConfig::parsimony_weight() const {
  return setting("_parsimony_weight");
}
Mapping PythonSearchConfig::operator_rates() const {
  return genetic::record_of(setting("_operator_rates"));
}
Value PythonSearchConfig::max_improvement_depth() const {
  return setting("_max_improvement_depth");
}
Value PythonSearchConfig::max_improvement_candidates() const {
  return setting("_max_improvement_candidates");
}
Value PythonSearchConfig::max_improvement_rounds() const {
  return setting("_max_improvement_rounds");
}
Value PythonSearchConfig::process_timeout_seconds() const {
  return setting("_process_timeout_seconds");
}

std::shared_ptr<genetic::RandomGenerator> PythonSearchConfig::rng_for_batch() {
  return generator_or_null(call_method(config_, "_rng_for_batch"));
}

void PythonSearchConfig::store_rng_state(const std::shared_ptr<genetic::RandomGenerator>& rng) {
  call_method(config_, "_store_rng_state", {object_of(rng)});
}

Value PythonModuleConstants::default_batch_size() const {
  return to_value(globals_.get("DEFAULT_BATCH_SIZE"));
}
Value PythonModuleConstants::default_restart_threshold() const {
  return to_value(globals_.get("DEFAULT_RESTART_THRESHOLD"));
}
Value PythonModuleConstants::default_elite_fraction() const {
  return to_value(globals_.get("DEFAULT_ELITE_FRACTION"));
}
Value PythonModuleConstants::default_diversity_weight() const {
  return to_value(globals_.get("DEFAULT_DIVERSITY_WEIGHT"));
}
Value PythonModuleConstants::default_parsimony_weight() const {
  return to_value(globals_.get("DEFAULT_PARSIMONY_WEIGHT"));
}
Mapping PythonModuleConstants::default_operator_rates() const {
  return genetic::record_of(to_value(globals_.get("DEFAULT_OPERATOR_RATES")));
}
Value PythonModuleConstants::default_max_improvement_depth() const {
  return to_value(globals_.get("DEFAULT_MAX_IMPROVEMENT_DEPTH"));
}
Value PythonModuleConstants::default_max_improvement_candidates() const {
  return to_value(globals_.get("DEFAULT_MAX_IMPROVEMENT_CANDIDATES"));
}
Value PythonModuleConstants::default_max_improvement_rounds() const {
  return to_value(globals_.get("DEFAULT_MAX_IMPROVEMENT_ROUNDS"));
}
Value PythonModuleConstants::default_max_reaction_plans_per_source() const {
  return to_value(globals_.get("DEFAULT_MAX_REACTION_PLANS_PER_SOURCE"));
}
Value PythonModuleConstants::default_max_actionable_near_miss_parents() const {
  return to_value(globals_.get("DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS"));
}

bool PythonModuleConstants::is_process_terminal_failure_reason(const Value& reason) const {
  const nb::object reasons = globals_.get("_PROCESS_TERMINAL_FAILURE_REASONS");
  return checked(PySequence_Contains(reasons.ptr(), to_python(reason).ptr())) != 0;
}

Value PythonSearchSettings::setting(const char* name) const {
  return to_value(globals_.get("_search_settings", name));
}

Value PythonSearchSettings::default_batch_size() {
  return setting("DEFAULT_BATCH_SIZE");
}
Value PythonSearchSettings::default_restart_threshold() {
  return setting("DEFAULT_RESTART_THRESHOLD");
}
Value PythonSearchSettings::default_elite_fraction() {
  return setting("DEFAULT_ELITE_FRACTION");
}
Value PythonSearchSettings::default_diversity_weight() {
  return setting("DEFAULT_DIVERSITY_WEIGHT");
}
Value PythonSearchSettings::default_parsimony_weight() {
  return setting("DEFAULT_PARSIMONY_WEIGHT");
}
Value PythonSearchSettings::default_operator_rates() {
  return setting("DEFAULT_OPERATOR_RATES");
}
Value PythonSearchSettings::default_process_priority() {
  return setting("DEFAULT_PROCESS_PRIORITY");
}

}  // namespace varnholt::python
