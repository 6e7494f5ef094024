#include <array>
#include <utility>

#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/driver/genetic_template.hpp"
#include "search_templates/genetic/driver/run_metrics.hpp"
#include "search_templates/genetic/driver/search_loop.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

using genetic::TemplateArguments;
using genetic::Value;

void set_setting(nb::handle object, const char* name, const Value& value) {
  python::set_attribute(object, name, to_python(value));
}

// Sets an attribute past whatever guards the object's attributes.
void set_unguarded(nb::handle object, nb::handle name, nb::handle value) {
  checked(PyObject_GenericSetAttr(object.ptr(), name.ptr(), value.ptr()));
}

TemplateArguments template_arguments(nb::handle named) {
  TemplateArguments arguments;
  const std::array<std::pair<const char*, Value*>, 11> places = {{
      {"batch_size", &arguments.batch_size},
      {"initial_candidates", &arguments.initial_candidates},
      {"restart_threshold", &arguments.restart_threshold},
      {"elite_fraction", &arguments.elite_fraction},
      {"diversity_weight", &arguments.diversity_weight},
      {"parsimony_weight", &arguments.parsimony_weight},
      {"operator_rates", &arguments.operator_rates},
      {"max_improvement_depth", &arguments.max_improvement_depth},
      {"max_improvement_candidates", &arguments.max_improvement_candidates},
      {"max_improvement_rounds", &arguments.max_improvement_rounds},
      {"process_timeout_seconds", &arguments.process_timeout_seconds},
  }};
  for (const auto& [name, place] : places) {
    *place = to_value(checked(PyMapping_GetItemString(named.ptr(), name)));
  }
  return arguments;
}

// Validates the arguments and writes what they became onto `self`, which freezes at the end.
void configure_template(PythonHost& host, const Any& self, const nb::kwargs& arguments) {
  set_setting(self, "_frozen", false);
  const genetic::GeneticTemplate config(host, host.constants(), template_arguments(arguments));
  set_setting(self, "_batch_size", config.batch_size());
  set_setting(self, "_initial_candidates", config.initial_candidates());
  set_setting(self, "_seed", config.seed());
  set_setting(self, "_rng_state", config.rng_state());
  set_setting(self, "_restart_threshold", config.restart_threshold());
  set_setting(self, "_elite_fraction", config.elite_fraction());
  set_setting(self, "_diversity_weight", config.diversity_weight());
  set_setting(self, "_parsimony_weight", config.parsimony_weight());
  set_setting(self, "_operator_rates", config.operator_rates());
  set_setting(self, "_max_improvement_depth", config.max_improvement_depth());
  set_setting(self, "_max_improvement_candidates", config.max_improvement_candidates());
  set_setting(self, "_max_improvement_rounds", config.max_improvement_rounds());
  set_setting(self, "_process_timeout_seconds", config.process_timeout_seconds());
  set_setting(self, "_frozen", true);
}

nb::object thawed_candidates(const Any& frozen) {
  if (frozen.is_none()) return nb::none();
  genetic::List graphs;
  const auto candidates = genetic::iterate(to_value(frozen));
  while (const std::optional<Value> candidate = candidates->next()) {
    graphs.append(genetic::thaw_graph_data(*candidate));
  }
  return to_python(graphs);
}

void init_template(nb::module_& module) {
  module.def("configure_template", &configure_template);
  module.def("set_template_attribute", [](const Any& self, const Any& name, const Any& value) {
    const std::optional<nb::object> frozen = find_attribute(self, "_frozen");
    if (frozen && is_true(*frozen)) {
      throw genetic::AttributeError("genetic template configuration is immutable");
    }
    set_unguarded(self, name, value);
  });
  module.def("store_rng_state", [](const Any& self, const Any& rng) {
    if (rng.is_none()) return;
    set_unguarded(self, text_object("_rng_state"), call_method(rng, "getstate"));
  });
  module.def("thawed_candidates", &thawed_candidates);
}

void init_metrics(nb::module_& module) {
  module.def("callable_accepts_keyword", [](const Any& callable, const Any& keyword) {
    return genetic::callable_accepts_keyword(any_callable(callable), str_of(keyword));
  });
  module.def(
      "record_search_run_metrics",
      [](const Any& ctx, const Any& config, const Any& process_count, const Any& candidate_count,
         const Any& generated_graph_count, const Any& unique_graph_count,
         const Any& duplicate_graph_count, const Any& improvement_round_count,
         const Any& terminal_reason, const Any& failure_count,
         const Any& elapsed_simulation_seconds) {
        PythonSearchContext context(ctx);
        const PythonSearchConfig search_config(config);
        genetic::record_search_run_metrics(
            context, search_config,
            {to_value(process_count), to_value(candidate_count), to_value(generated_graph_count),
             to_value(unique_graph_count), to_value(duplicate_graph_count),
             to_value(improvement_round_count), to_value(terminal_reason), to_value(failure_count),
             to_value(elapsed_simulation_seconds)});
      },
      nb::arg("ctx"), nb::arg("config"), nb::kw_only(), nb::arg("process_count"),
      nb::arg("candidate_count"), nb::arg("generated_graph_count"), nb::arg("unique_graph_count"),
      nb::arg("duplicate_graph_count"), nb::arg("improvement_round_count"),
      nb::arg("terminal_reason"), nb::arg("failure_count"), nb::arg("elapsed_simulation_seconds"));
}

}  // namespace

void init_driver(nb::module_& module) {
  init_template(module);
  init_metrics(module);
  module.def("run_genetic_search", [](PythonHost& host, const Any& ctx, const Any& config) {
    PythonSearchContext context(ctx);
    PythonSearchConfig search_config(config);
    genetic::run_genetic_search(host.environment(), context, search_config);
  });
}

}  // namespace varnholt::python
