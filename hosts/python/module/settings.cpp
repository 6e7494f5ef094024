#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "search_templates/genetic/driver/genetic_template.hpp"
#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/settings/operator_rates.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/settings/validators.hpp"

namespace varnholt::python {
namespace {

using genetic::Key;
using genetic::Value;

template <typename Table>
nb::object table(const Table& keys) {
  std::vector<Value> texts;
  texts.reserve(keys.size());
  for (const Key key : keys)
    texts.emplace_back(key);
  return to_python(genetic::Tuple(texts));
}

void init_validators(nb::module_& module) {
  module.def("positive_int", [](const Any& value, const Any& name) {
    return to_python(genetic::positive_int(to_value(value), str_of(name)));
  });
  module.def("optional_nonnegative_int", [](const Any& value, const Any& name) {
    return to_python(genetic::optional_nonnegative_int(to_value(value), str_of(name)));
  });
  module.def("positive_float", [](const Any& value, const Any& name) {
    return to_python(genetic::positive_float(to_value(value), str_of(name)));
  });
  module.def("optional_nonnegative_float", [](const Any& value, const Any& name) {
    return to_python(genetic::optional_nonnegative_float(to_value(value), str_of(name)));
  });
  module.def("nonnegative_float", [](const Any& value, const Any& name) {
    return to_python(genetic::nonnegative_float(to_value(value), str_of(name)));
  });
  module.def("operator_rates", [](const PythonHost& host, const Any& rates) {
    return to_python(genetic::complete_operator_rates(to_value(rates),
                                                      host.constants().default_operator_rates()));
  });
}

void init_random(nb::module_& module) {
  module.def("generate_run_seed", [](PythonHost& host) {
    return to_python(genetic::generate_run_seed(host.secure_random()));
  });
  module.def("managed_rng_state", [](PythonHost& host, const Any& seed) {
    return to_python(genetic::managed_rng_state(host.random_generators(), to_value(seed)));
  });
  module.def("rng_from_state", [](PythonHost& host, const Any& state) {
    return object_of(genetic::rng_from_state(host.random_generators(), opaque_value(state)));
  });
}

}  // namespace

void init_settings(nb::module_& module) {
  init_validators(module);
  init_random(module);

  module.attr("DEFAULT_MAX_IMPROVEMENT_DEPTH") = genetic::DEFAULT_MAX_IMPROVEMENT_DEPTH;
  module.attr("DEFAULT_MAX_IMPROVEMENT_CANDIDATES") = genetic::DEFAULT_MAX_IMPROVEMENT_CANDIDATES;
  module.attr("DEFAULT_MAX_IMPROVEMENT_ROUNDS") = genetic::DEFAULT_MAX_IMPROVEMENT_ROUNDS;
  module.attr("DEFAULT_MAX_REACTION_PLANS_PER_SOURCE") =
      genetic::DEFAULT_MAX_REACTION_PLANS_PER_SOURCE;
  module.attr("DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS") =
      genetic::DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS;
  module.attr("TIE_SEMANTICS") = to_python(genetic::TIE_SEMANTICS);
  module.attr("GENERATED_SEED_BITS") = genetic::GENERATED_SEED_BITS;
  module.attr("GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT") =
      to_python(genetic::genetic_random_weighted_log_context());
  module.attr("GENETIC_REACTION_LOG_CONTEXT") = to_python(genetic::genetic_reaction_log_context());

  module.attr("SEARCH_TERMINAL_IMPROVEMENT_REASONS") =
      table(genetic::SEARCH_TERMINAL_IMPROVEMENT_REASONS);
  module.attr("EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS") =
      table(genetic::EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS);
  module.attr("REACTION_FAILURE_REASONS") = table(genetic::REACTION_FAILURE_REASONS);
  module.attr("CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS") =
      table(genetic::CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS);
  module.attr("GATE_NEAR_MISS_FAILURE_REASONS") = table(genetic::GATE_NEAR_MISS_FAILURE_REASONS);
  module.attr("MINIMUM_FAILURE_REASONS") = table(genetic::MINIMUM_FAILURE_REASONS);
  module.attr("SHARPE_REACTION_FAILURE_REASONS") = table(genetic::SHARPE_REACTION_FAILURE_REASONS);
  module.attr("NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES") =
      table(genetic::NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES);
}

}  // namespace varnholt::python
