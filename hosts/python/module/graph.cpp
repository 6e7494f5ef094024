#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/graph_walks.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/context/context_limits.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/graph/graph_filters.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"

namespace varnholt::python {
namespace {

nb::object frozen(const Any& value) {
  if (nb::object form = walk_frozen(value); form.is_valid()) return form;
  return to_python(genetic::freeze_graph_data(to_value(value)));
}

void init_forms(nb::module_& module) {
  module.def("plain_graph_data", [](const Any& value) {
    if (nb::object copy = walk_plain(value); copy.is_valid()) return copy;
    return to_python(genetic::plain_graph_data(to_value(value)));
  });
  module.def("freeze_graph_data", &frozen);
  module.def("thaw_graph_data", [](const Any& value) {
    if (nb::object graph = walk_thawed(value); graph.is_valid()) return graph;
    return to_python(genetic::thaw_graph_data(to_value(value)));
  });
  module.def("plain_initial_candidates", [](const Any& candidates) {
    return to_python(genetic::plain_initial_candidates(to_value(candidates)));
  });
  // The frozen form is the key that Python code can hold: it is equal exactly when the key is.
  module.def("structural_key", &frozen);
  module.def("canonical_graph_string", [](const Any& graph) {
    return text_object(genetic::canonical_graph_string(to_value(graph)));
  });
}

void init_depth_filters(nb::module_& module) {
  module.def("graph_within_max_depth",
             [](PythonHost& host, const Any& graph, const Any& max_depth) {
               return genetic::graph_within_max_depth(host.graph_depth(), to_value(graph),
                                                      to_value(max_depth));
             });
  module.def("candidate_item_within_max_depth",
             [](PythonHost& host, const Any& item, const Any& max_depth) {
               return genetic::candidate_item_within_max_depth(host.graph_depth(), to_value(item),
                                                               to_value(max_depth));
             });
  module.def("reaction_improvement_within_graph_max_depth",
             [](PythonHost& host, const Any& improvement, const Any& max_depth) {
               return genetic::reaction_improvement_within_graph_max_depth(
                   host.graph_depth(), to_value(improvement), to_value(max_depth));
             });
  module.def("context_max_depth", [](const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::context_max_depth(context));
  });
}

void init_validator_filters(nb::module_& module) {
  module.def("graph_passes_validator", [](const Any& graph, const Any& validator) {
    return genetic::graph_passes_validator(to_value(graph), callable_unless_none(validator));
  });
  module.def("candidate_item_passes_validator", [](const Any& item, const Any& validator) {
    return genetic::candidate_item_passes_validator(to_value(item),
                                                    callable_unless_none(validator));
  });
  module.def("lineage_candidate_item", [](PythonHost& host, const Any& factory, const Any& lineage,
                                          const Any& max_depth, const Any& validator) {
    const auto make = [&factory] { return to_value(call(factory)); };
    return to_python(genetic::lineage_candidate_item(host.graph_depth(), make, to_value(lineage),
                                                     to_value(max_depth),
                                                     callable_unless_none(validator)));
  });
  module.def("graph_validator", [](const Any& ctx) {
    PythonSearchContext context(ctx);
    return object_of(genetic::graph_validator(context));
  });
}

}  // namespace

void init_graph(nb::module_& module) {
  init_forms(module);
  init_depth_filters(module);
  init_validator_filters(module);
}

}  // namespace varnholt::python
