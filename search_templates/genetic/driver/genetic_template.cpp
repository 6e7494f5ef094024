#include "search_templates/genetic/driver/genetic_template.hpp"

#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/settings/operator_rates.hpp"
#include "search_templates/genetic/settings/validators.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

Value elite_fraction_of(const Value& value) {
  Value fraction = positive_float(value, "elite_fraction");
  if (fraction.real() > 1.0) throw ValueError("genetic elite_fraction must be <= 1");
  return fraction;
}

}  // namespace

TemplateArguments default_template_arguments(const ModuleConstants& constants,
                                             ProcessEvaluation& process_evaluation) {
  TemplateArguments arguments;
  arguments.batch_size = constants.default_batch_size();
  arguments.restart_threshold = constants.default_restart_threshold();
  arguments.elite_fraction = constants.default_elite_fraction();
  arguments.diversity_weight = constants.default_diversity_weight();
  arguments.parsimony_weight = constants.default_parsimony_weight();
  arguments.max_improvement_depth = constants.default_max_improvement_depth();
  arguments.max_improvement_candidates = constants.default_max_improvement_candidates();
  arguments.max_improvement_rounds = constants.default_max_improvement_rounds();
  arguments.process_timeout_seconds = process_evaluation.default_search_template_timeout_seconds();
  return arguments;
}

// The members are initialised in the order in which the settings are validated.
GeneticTemplate::GeneticTemplate(RandomGenerators& generators, SecureRandom& secure_random,
                                 const ModuleConstants& constants,
                                 const TemplateArguments& arguments)
    : generators_(generators),
      batch_size_(positive_int(arguments.batch_size, "batch_size")),
      initial_candidates_(plain_initial_candidates(arguments.initial_candidates)),
      seed_(generate_run_seed(secure_random)),
      rng_state_(managed_rng_state(generators_, seed_)),
      restart_threshold_(positive_int(arguments.restart_threshold, "restart_threshold")),
      elite_fraction_(elite_fraction_of(arguments.elite_fraction)),
      diversity_weight_(nonnegative_float(arguments.diversity_weight, "diversity_weight")),
      parsimony_weight_(nonnegative_float(arguments.parsimony_weight, "parsimony_weight")),
      operator_rates_(
          complete_operator_rates(arguments.operator_rates, constants.default_operator_rates())),
      max_improvement_depth_(
          optional_nonnegative_int(arguments.max_improvement_depth, "max_improvement_depth")),
      max_improvement_candidates_(optional_nonnegative_int(arguments.max_improvement_candidates,
                                                           "max_improvement_candidates")),
      max_improvement_rounds_(
          optional_nonnegative_int(arguments.max_improvement_rounds, "max_improvement_rounds")),
      process_timeout_seconds_(
          positive_float(arguments.process_timeout_seconds, "process_timeout_seconds")) {}

Mapping GeneticTemplate::operator_rates() const {
  return shallow_copy(operator_rates_);
}

Value GeneticTemplate::thawed_initial_candidates() const {
  if (initial_candidates_.is_absent()) return {};
  List graphs;
  for (const Value& frozen : initial_candidates_.tuple().items()) {
    graphs.append(thaw_graph_data(frozen));
  }
  return graphs;
}

std::shared_ptr<RandomGenerator> GeneticTemplate::rng_for_batch() {
  return rng_from_state(generators_, rng_state_);
}

void GeneticTemplate::store_rng_state(const std::shared_ptr<RandomGenerator>& rng) {
  if (rng != nullptr) rng_state_ = rng->getstate();
}

Value generate_run_seed(SecureRandom& secure_random) {
  const std::uint64_t bits = secure_random.randbits(GENERATED_SEED_BITS);
  return bits == 0 ? std::int64_t{1} : static_cast<std::int64_t>(bits);
}

Value managed_rng_state(RandomGenerators& generators, const Value& seed) {
  return generators.seeded(seed)->getstate();
}

std::shared_ptr<RandomGenerator> rng_from_state(RandomGenerators& generators, const Value& state) {
  return state.is_absent() ? nullptr : generators.from_state(state);
}

}  // namespace varnholt::genetic
