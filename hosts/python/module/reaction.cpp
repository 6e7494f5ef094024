#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/module/quick_paths.hpp"
#include "hosts/python/values/conversion.hpp"
#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/reaction/lineage.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

using genetic::Value;

nb::object pair_object(const genetic::MetricPair& pair) {
  return to_python(genetic::Tuple{pair.value, pair.threshold});
}

// The very object that was given when nothing changes, whatever its type.
nb::object with_expanded_reaction_failures(PythonHost& host, const Any& ctx, const Any& result) {
  PythonSearchContext context(ctx);
  const Value given = to_value(result);
  const Value expanded = genetic::with_expanded_reaction_failures(
      ctx.is_none() ? nullptr : &context, host.gates(), host.json_reader(), given);
  return genetic::same_object(given, expanded) ? nb::object(result) : to_python(expanded);
}

void init_failure_tests(nb::module_& module) {
  module.def("has_reaction_failure",
             [](const Any& result) { return genetic::has_reaction_failure(to_value(result)); });
  module.def("has_gate_near_miss_failure", [](const Any& result) {
    return genetic::has_gate_near_miss_failure(to_value(result));
  });
  module.def("has_actionable_near_miss_failure", [](const Any& result) {
    return genetic::has_actionable_near_miss_failure(to_value(result));
  });
  module.def("has_failure_reason", [](const Any& result, const Any& reason_names) {
    return genetic::has_failure_reason(to_value(result), to_value(reason_names));
  });
}

void init_failure_metrics(nb::module_& module) {
  module.def("stats_gate_metrics_for_result", [](PythonHost& host, const Any& result) {
    return to_python(genetic::stats_gate_metrics_for_result(host.gates(), to_value(result)));
  });
  module.def("expanded_threshold_failures", [](PythonHost& host, const Any& ctx,
                                               const Any& result) {
    PythonSearchContext context(ctx);
    return to_python(genetic::expanded_threshold_failures(context, host.gates(), to_value(result)));
  });
  module.def("with_expanded_reaction_failures", &with_expanded_reaction_failures);
  module.def("failure_metric_pair", [](PythonHost& host, const Any& failure) {
    if (nb::object quick = quick_failure_metric_pair(failure); quick.is_valid()) return quick;
    return pair_object(genetic::failure_metric_pair(host.json_reader(), to_value(failure)));
  });
  module.def("sharpe_reaction_value", [](PythonHost& host, const Any& result) {
    return to_python(
        genetic::sharpe_reaction_value(host.gates(), host.json_reader(), to_value(result)));
  });
  module.def("sharpe_reaction_metric_pair", [](PythonHost& host, const Any& result) {
    return pair_object(
        genetic::sharpe_reaction_metric_pair(host.gates(), host.json_reader(), to_value(result)));
  });
  module.def("is_negative_sharpe_reaction_candidate", [](PythonHost& host, const Any& result) {
    return genetic::is_negative_sharpe_reaction_candidate(host.gates(), host.json_reader(),
                                                          to_value(result));
  });
}

}  // namespace

void init_reaction(nb::module_& module) {
  init_failure_tests(module);
  init_failure_metrics(module);
  module.def("annotate_candidate_results",
             [](const Any& results, const Any& start_index, const Any& improvement_depth,
                const Any& improvements) {
               if (!quick_annotation(results, start_index, improvement_depth, improvements)) {
                 static_cast<void>(genetic::annotate_candidate_results(
                     to_value(results), to_value(start_index), to_value(improvement_depth),
                     to_value(improvements)));
               }
               // The very object that was given, whatever its type.
               return results;
             });
  module.def("elapsed_candidate_seconds", [](const Any& results) {
    return to_python(genetic::elapsed_candidate_seconds(to_value(results)));
  });
}

}  // namespace varnholt::python
