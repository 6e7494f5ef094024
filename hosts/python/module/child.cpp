#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "hosts/python/host/python_child.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/host/python_queues.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/process/backtest_boundary.hpp"
#include "search_templates/genetic/process/child_guards.hpp"
#include "search_templates/genetic/process/child_record.hpp"
#include "search_templates/genetic/process/child_simulation.hpp"
#include "search_templates/genetic/process/found_pnl_files.hpp"
#include "search_templates/genetic/value/operations.hpp"

namespace varnholt::python {
namespace {

using genetic::Mapping;
using genetic::Value;

void init_guards(nb::module_& module) {
  module.def(
      "replace_child_parent_operation",
      [](const Any& target, const Any& operation_name, const Any& replacement) -> nb::object {
        PythonReplaceableObject object(target);
        const std::optional<genetic::ReplacedOperation> state =
            genetic::replace_child_parent_operation(object, text_of(operation_name),
                                                    opaque_value(replacement));
        if (!state) return nb::none();
        return checked(PyTuple_Pack(3, operation_name.ptr(),
                                    state->had_instance_value ? Py_True : Py_False,
                                    to_python(state->original).ptr()));
      });
  module.def("restore_child_parent_operation", [](const Any& target, const Any& state) {
    if (state.is_none()) return;
    const nb::object fields = checked(PySequence_Tuple(state.ptr()));
    static_cast<void>(genetic::unpack(opaque_value(fields), 3));
    const auto field = [&fields](Py_ssize_t place) {
      return nb::borrow(PyTuple_GET_ITEM(fields.ptr(), place));
    };
    PythonReplaceableObject object(target);
    genetic::restore_child_parent_operation(
        object,
        genetic::ReplacedOperation{text_of(field(0)), is_true(field(1)), opaque_value(field(2))});
  });
  module.def("fail_child_parent_operation", [](const Any& operation_name) {
    genetic::fail_child_parent_operation(str_of(operation_name));
  });
}

void init_boundary(nb::module_& module) {
  module.def("signal_child_backtest_boundary",
             [](const Any& boundary_queue, const Any& queues, const Any& candidate_index,
                const Any& process_attempt, const Any& evaluation_state,
                const nb::tuple& positional, const nb::dict& keywords) {
               std::vector<Value> arguments;
               for (const nb::handle argument : positional)
                 arguments.push_back(opaque_value(argument));
               PythonEvaluationState state(evaluation_state);
               genetic::signal_child_backtest_boundary(
                   {message_queue(boundary_queue), acknowledgement_queues(queues)},
                   to_value(candidate_index), to_value(process_attempt), state, arguments,
                   to_value(keywords).mapping());
             });
}

void init_simulation(nb::module_& module) {
  module.def("process_simulate_candidate", [](PythonHost& host, const Any& ctx,
                                              const Any& candidate, const Any& found_pnl_paths,
                                              const Any& boundary_queue, const Any& queues) {
    PythonSearchContext context(ctx);
    PythonChildStandIns stand_ins({ctx, candidate, found_pnl_paths, boundary_queue, queues});
    return to_python(
        genetic::process_simulate_candidate(host, context, opaque_value(candidate), stand_ins));
  });
  module.def(
      "child_safe_record",
      [](const Any& ctx, const Any& graph, const Any& passed_thresholds,
         const Any& rejection_reason, const Any& stats, const Any& per_column_stats,
         const Any& expression_elapsed_seconds, const Any& tracking_metric_kwargs) {
        PythonSearchContext context(ctx);
        genetic::child_safe_record(
            context,
            {opaque_value(graph), opaque_value(passed_thresholds), opaque_value(rejection_reason),
             opaque_value(stats), opaque_value(per_column_stats),
             opaque_value(expression_elapsed_seconds), opaque_value(tracking_metric_kwargs)});
      });
}

void init_found_pnl_files(nb::module_& module) {
  module.def("prefetch_found_pnl_files", [](PythonHost& host, const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::prefetch_found_pnl_files(host, context));
  });
  // tuple(paths) of Python's own gives back what is a tuple already.
  module.def("found_paths", [](const Any& paths) {
    return is_true(paths) ? checked(PySequence_Tuple(paths.ptr())) : checked(PyTuple_New(0));
  });
  module.def("manifest_of", [](const Any& sync_manager) {
    return to_python(genetic::manifest_of(opaque_value(sync_manager)));
  });
}

}  // namespace

void init_child(nb::module_& module) {
  init_guards(module);
  init_boundary(module);
  init_simulation(module);
  init_found_pnl_files(module);
}

}  // namespace varnholt::python
