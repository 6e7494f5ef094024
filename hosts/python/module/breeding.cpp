#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/graph_readings.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/population/batch_composition.hpp"
#include "search_templates/genetic/population/elite_derivation.hpp"
#include "search_templates/genetic/population/node_names.hpp"
#include "search_templates/genetic/population/parent_pool.hpp"
#include "search_templates/genetic/population/parent_scoring.hpp"
#include "search_templates/genetic/population/safe_rotations.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

using genetic::List;
using genetic::Value;
using Generator = std::shared_ptr<genetic::RandomGenerator>;

// A list is handed on as it is, and of any other sequence the items; what is false has none.
List parents_of(const Any& parents) {
  const Value given = to_value(parents);
  if (given.is_list()) return given.list();
  List items;
  if (!genetic::truth(given)) return items;
  const auto size = static_cast<std::int64_t>(genetic::length(given));
  for (std::int64_t i = 0; i < size; ++i)
    items.append(genetic::item(given, i));
  return items;
}

nb::object python_set(const std::set<std::string>& texts) {
  nb::object made = checked(PySet_New(nullptr));
  for (const std::string& text : texts)
    checked(PySet_Add(made.ptr(), text_object(text).ptr()));
  return made;
}

// The share of names that both sets have in the names that either has.
double similarity(const nb::object& left, const nb::object& right) {
  const Py_ssize_t all = PySet_GET_SIZE(left.ptr()) + PySet_GET_SIZE(right.ptr());
  if (all == 0) return 0.0;
  const nb::object shared = checked(PyNumber_And(left.ptr(), right.ptr()));
  const auto both = static_cast<double>(PySet_GET_SIZE(shared.ptr()));
  return both / (static_cast<double>(all) - both);
}

void init_node_names(nb::module_& module) {
  module.def("graph_node_names", [](const Any& graph) {
    if (nb::object found = walk_node_names(graph); found.is_valid()) return found;
    return python_set(genetic::graph_node_names(to_value(graph)));
  });
  module.def("graph_similarity", [](const Any& left, const Any& right) {
    const nb::object left_names = walk_node_names(left);
    const nb::object right_names = left_names.is_valid() ? walk_node_names(right) : nb::object();
    if (right_names.is_valid()) return similarity(left_names, right_names);
    return genetic::graph_similarity(to_value(left), to_value(right));
  });
}

void init_parents(nb::module_& module) {
  module.def("candidate_eliteness", [](PythonHost& host, const Any& candidate,
                                       const Any& diversity_weight, const Any& parsimony_weight) {
    return to_python(genetic::candidate_eliteness(host.eliteness(), to_value(candidate),
                                                  to_value(diversity_weight),
                                                  to_value(parsimony_weight)));
  });
  module.def("selected_redundancy", [](const Any& candidate, const Any& selected) {
    return genetic::selected_redundancy(to_value(candidate), to_value(selected));
  });
  module.def("diversity_adjusted_parent_score",
             [](PythonHost& host, const Any& candidate, const Any& selected,
                const Any& diversity_weight, const Any& parsimony_weight) {
               return to_python(genetic::diversity_adjusted_parent_score(
                   host.eliteness(), to_value(candidate), to_value(selected),
                   to_value(diversity_weight), to_value(parsimony_weight)));
             });
  module.def("diverse_parent_pool",
             [](PythonHost& host, const Any& prior, const Any& elite_fraction,
                const Any& diversity_weight, const Any& parsimony_weight) {
               return to_python(genetic::diverse_parent_pool(
                   host.eliteness(), to_value(prior), to_value(elite_fraction),
                   to_value(diversity_weight), to_value(parsimony_weight)));
             });
}

nb::object compose_next_batch(PythonHost& host, const Any& prior, const Any& batch_size,
                              const Any& rng, const Any& fresh_random_factory,
                              const Any& elite_factory, const Any& elite_fraction,
                              const Any& diversity_weight, const Any& parsimony_weight,
                              const Any& max_depth, const Any& validator) {
  genetic::CompositionSettings settings;
  settings.batch_size = to_value(batch_size);
  settings.elite_fraction = to_value(elite_fraction);
  settings.diversity_weight = to_value(diversity_weight);
  settings.parsimony_weight = to_value(parsimony_weight);
  settings.max_depth = to_value(max_depth);
  settings.validator = callable_unless_none(validator);
  genetic::FreshFactory fresh;
  if (!fresh_random_factory.is_none()) {
    fresh = [&] { return to_value(call(fresh_random_factory)); };
  }
  genetic::EliteFactory elite;
  if (!elite_factory.is_none()) {
    elite = [&](const List& parents, const Generator& generator) {
      return to_value(call(elite_factory, {to_python(parents), object_of(generator)}));
    };
  }
  return to_python(genetic::compose_next_batch(host.graph_depth(), host.eliteness(),
                                               to_value(prior), settings, generator_or_null(rng),
                                               fresh, elite));
}

nb::object elite_derived_graph(PythonHost& host, const Any& ctx, const Any& parents, const Any& rng,
                               const Any& operator_rates, const Any& elite_fraction,
                               const Any& diversity_weight, const Any& parsimony_weight) {
  PythonSearchContext context(ctx);
  const genetic::DerivationSettings settings = {to_value(operator_rates), to_value(elite_fraction),
                                                to_value(diversity_weight),
                                                to_value(parsimony_weight)};
  return to_python(genetic::elite_derived_graph(host.environment(), context, parents_of(parents),
                                                generator_or_null(rng), settings));
}

void init_offspring(nb::module_& module) {
  module.def("choose_operator", [](const Any& operator_rates, const Any& rng) {
    return to_python(genetic::choose_operator(genetic::record_of(to_value(operator_rates)),
                                              generator_or_null(rng).get()));
  });
  module.def("weighted_parent_index", [](PythonHost& host, const Any& parents, const Any& rng,
                                         const Any& diversity_weight, const Any& parsimony_weight) {
    return genetic::weighted_parent_index(host.eliteness(), parents_of(parents),
                                          generator_or_null(rng).get(), to_value(diversity_weight),
                                          to_value(parsimony_weight));
  });
  module.def("data_graph_child_count",
             [](const Any& graph) { return genetic::data_graph_child_count(to_value(graph)); });
  module.def("restore_elite_root_node",
             [](const Any& child, const Any& elite_root_node, const Any& elite_data_child_count,
                const Any& validator) {
               genetic::restore_elite_root_node(to_value(child), to_value(elite_root_node),
                                                to_value(elite_data_child_count),
                                                callable_unless_none(validator));
               // The very object that was given, whatever its type.
               return child;
             });
  module.def("elite_derived_graph", &elite_derived_graph);
}

void init_rotations(nb::module_& module) {
  module.def("safe_reaction_rotations", [](PythonHost& host, const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::safe_reaction_rotations(host.random_graph_limits(), context));
  });
  module.def("safe_reaction_rotation_names", [](PythonHost& host, const Any& ctx) {
    PythonSearchContext context(ctx);
    return python_set(genetic::safe_reaction_rotation_names(host.random_graph_limits(), context));
  });
}

}  // namespace

void init_breeding(nb::module_& module) {
  init_node_names(module);
  init_parents(module);
  module.def("compose_next_batch", &compose_next_batch);
  init_offspring(module);
  init_rotations(module);
}

}  // namespace varnholt::python
