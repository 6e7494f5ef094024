#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/module/quick_paths.hpp"
#include "hosts/python/values/conversion.hpp"
#include "search_templates/genetic/context/verdicts.hpp"
#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

void init_numbers(nb::module_& module) {
  module.def("number", [](const Any& value, const Any& fallback) {
    if (nb::object quick = quick_number(value); quick.is_valid()) return quick;
    return to_python(genetic::number(to_value(value), to_value(fallback)));
  });
  module.def("optional_correlation", [](const Any& value) {
    return to_python(genetic::optional_correlation(to_value(value)));
  });
}

void init_failures(nb::module_& module) {
  module.def("evaluation_exception_failure", [](PythonHost& host, const Any& error) {
    const genetic::EvaluationFailure failure =
        genetic::evaluation_exception_failure(host.runtime_readiness(), to_value(error));
    return to_python(genetic::Tuple{failure.reason, failure.detail});
  });
  module.def("derive_candidate_failure", [](const Any& ctx, const Any& record, const Any& stats) {
    PythonSearchContext context(ctx);
    const genetic::DerivedFailure derived = genetic::derive_candidate_failure(
        context, genetic::record_of(to_value(record)), to_value(stats));
    return to_python(
        genetic::Tuple{derived.reason, derived.detail, derived.tracking_metric_kwargs});
  });
  module.def("process_evaluation_error_is_search_fatal", [](PythonHost& host, const Any& error) {
    return genetic::process_evaluation_error_is_search_fatal(host.process_evaluation(),
                                                             to_value(error));
  });
}

}  // namespace

void init_evaluation(nb::module_& module) {
  init_numbers(module);
  init_failures(module);
  module.def("simulate_candidate", [](PythonHost& host, const Any& ctx, const Any& graph) {
    PythonSearchContext context(ctx);
    return to_python(genetic::simulate_candidate(host, context, to_value(graph)));
  });
  module.def("candidate_exception_result",
             [](PythonHost& host, const Any& ctx, const Any& graph, const Any& error) {
               PythonSearchContext context(ctx);
               return to_python(genetic::candidate_exception_result(host, context, to_value(graph),
                                                                    to_value(error)));
             });
  module.def("candidate_process_evaluation_error_result", [](PythonHost& host, const Any& graph,
                                                             const Any& error) {
    return to_python(genetic::candidate_process_evaluation_error_result(
        host.process_evaluation(), host.evaluation_verdicts(), to_value(graph), to_value(error)));
  });
  module.def("process_evaluation_error_results", [](PythonHost& host, const Any& batch,
                                                    const Any& error) {
    return to_python(genetic::process_evaluation_error_results(
        host.process_evaluation(), host.evaluation_verdicts(), to_value(batch), to_value(error)));
  });
  module.def("not_evaluated_verdict", [](PythonHost& host) {
    return to_python(genetic::not_evaluated_verdict(host.evaluation_verdicts()));
  });
}

}  // namespace varnholt::python
