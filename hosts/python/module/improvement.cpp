#include <set>
#include <string>

#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/host/python_population.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/graph_readings.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/population/node_names.hpp"
#include "search_templates/genetic/reaction/derivation.hpp"
#include "search_templates/genetic/reaction/failure_progress.hpp"
#include "search_templates/genetic/reaction/improvement_batch.hpp"
#include "search_templates/genetic/reaction/improvement_outcome.hpp"
#include "search_templates/genetic/reaction/near_misses.hpp"
#include "search_templates/genetic/reaction/peer_keys.hpp"
#include "search_templates/genetic/reaction/peers.hpp"
#include "search_templates/genetic/reaction/priority.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::python {
namespace {

namespace keys = genetic::keys;
using genetic::Tuple;
using genetic::Value;

// What a rule of this subsystem is given; a `ctx` of None stands for none.
class Scope {
 public:
  Scope(PythonHost& host, const nb::object& ctx)
      : context_(ctx), environment_{host, host.constants(), context_, !ctx.is_none()} {}
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
  ~Scope() = default;

  [[nodiscard]] const genetic::ReactionEnvironment& environment() const { return environment_; }

 private:
  PythonSearchContext context_;
  genetic::ReactionEnvironment environment_;
};

nb::object key_object(const genetic::PeerRepairKey& key) {
  return to_python(Tuple{key.has_failure, key.value});
}

nb::object repair_priority_key(PythonHost& host, const Any& result) {
  const genetic::RepairPriority key =
      genetic::reaction_repair_priority_key(host.json_reader(), to_value(result));
  const auto& [negated_quality, depth, index] = key.plain;
  if (!key.is_close) return to_python(Tuple{1, negated_quality, depth, index});
  return to_python(Tuple{0, key.total_violation, depth, negated_quality, index});
}

nb::object near_miss_key(PythonHost& host, const Any& result) {
  const Scope scope(host, nb::none());
  const auto& [progress, negated_eliteness, priority] =
      genetic::actionable_near_miss_key(scope.environment(), to_value(result));
  return to_python(Tuple{progress.failure_count, progress.total_violation, negated_eliteness,
                         priority.negated_quality, priority.improvement_depth,
                         priority.candidate_index});
}

// Called as (ctx, results, batch_size), or as (results, batch_size): the third argument tells.
genetic::List near_miss_parents(PythonHost& host, const Any& ctx_or_results,
                                const Any& results_or_batch_size, const Any& batch_size) {
  const bool has_context = !batch_size.is_none();
  const Scope scope(host, has_context ? nb::object(ctx_or_results) : nb::none());
  return genetic::select_actionable_near_miss_parents(
      scope.environment(), to_value(has_context ? results_or_batch_size : ctx_or_results),
      to_value(has_context ? batch_size : results_or_batch_size));
}

// The near misses are asked for with three arguments whatever they are: an absent batch size makes
// the context the results, which is meant.
genetic::List improvement_source_pool(PythonHost& host, const Any& ctx,
                                      const Any& generation_results,
                                      const Any& current_round_results, const Any& batch_size) {
  const genetic::List parents = near_miss_parents(host, ctx, generation_results, batch_size);
  const Scope scope(host, ctx);
  return genetic::improvement_source_pool_of(scope.environment(), parents,
                                             to_value(current_round_results));
}

nb::object derive_improvement_batch(PythonHost& host, const Any& ctx, const Any& results,
                                    const Any& evaluated_keys, const Any& max_depth,
                                    const Any& remaining_candidates,
                                    const Any& max_plans_per_result) {
  const Scope scope(host, ctx);
  PythonSeenGraphs evaluated(evaluated_keys);
  const genetic::ImprovementBatch batch = genetic::derive_improvement_batch(
      scope.environment(), to_value(results), evaluated,
      {to_value(max_depth), to_value(remaining_candidates), to_value(max_plans_per_result)});
  return to_python(genetic::Mapping{{keys::kImprovements, batch.improvements},
                                    {keys::kEligibleCount, batch.eligible_count},
                                    {keys::kDuplicateCount, batch.duplicate_count},
                                    {keys::kDepthLimitedCount, batch.depth_limited_count},
                                    {keys::kCandidateLimitReached, batch.candidate_limit_reached}});
}

void init_outcome(nb::module_& module) {
  module.def("improvement_terminal_ends_search", [](const Any& reason) {
    return genetic::improvement_terminal_ends_search(to_value(reason));
  });
  module.def("improvement_terminal_exhausts_near_misses",
             [](const Any& reason, const Any& generation_improvement_count,
                const Any& generation_round_count) {
               return genetic::improvement_terminal_exhausts_near_misses(
                   to_value(reason), to_value(generation_improvement_count),
                   to_value(generation_round_count));
             });
}

void init_derivation(nb::module_& module) {
  // What is only handed on to the planner stays the object that it is.
  module.def("derive_reaction_improvements", [](PythonHost& host, const Any& ctx, const Any& result,
                                                const Any& max_plans,
                                                const Any& extra_data_graphs) {
    const Scope scope(host, ctx);
    return to_python(genetic::derive_reaction_improvements(scope.environment(), to_value(result),
                                                           opaque_value(max_plans),
                                                           opaque_value(extra_data_graphs)));
  });
  module.def("derive_reaction_improvement", [](PythonHost& host, const Any& ctx,
                                               const Any& result) {
    const Scope scope(host, ctx);
    return to_python(genetic::derive_reaction_improvement(scope.environment(), to_value(result)));
  });
}

void init_priority(nb::module_& module) {
  module.def("improvement_depth", [](const Any& result) {
    return to_python(genetic::improvement_depth(to_value(result)));
  });
  module.def("candidate_quality", [](const Any& result) {
    return to_python(genetic::candidate_quality_value(to_value(result)));
  });
  module.def("reaction_priority_key", [](const Any& result) {
    const auto& [negated_quality, depth, index] = genetic::reaction_priority_key(to_value(result));
    return to_python(Tuple{negated_quality, depth, index});
  });
  module.def("reaction_repair_priority_key", &repair_priority_key);
}

void init_progress(nb::module_& module) {
  module.def("failure_violation", [](PythonHost& host, const Any& reason, const Any& failure) {
    return genetic::failure_violation(host.json_reader(), to_value(reason), to_value(failure));
  });
  module.def("failure_progress_key", [](PythonHost& host, const Any& result) {
    const auto& [count, violation] =
        genetic::failure_progress_key(host.json_reader(), to_value(result));
    return to_python(Tuple{count, violation});
  });
  module.def("is_improved_result", [](PythonHost& host, const Any& result, const Any& source) {
    return genetic::is_improved_result(host.json_reader(), to_value(result), to_value(source));
  });
  module.def("failure_signature", [](const Any& result) {
    return to_python(genetic::failure_signature(to_value(result)));
  });
}

void init_peers(nb::module_& module) {
  module.def("graph_feature_names", [](const Any& graph) {
    if (nb::object found = walk_feature_names(graph); found.is_valid()) return found;
    nb::object names = checked(PySet_New(nullptr));
    for (const std::string& name : genetic::graph_feature_names(to_value(graph)))
      checked(PySet_Add(names.ptr(), text_object(name).ptr()));
    return names;
  });
  module.def("graph_root_family", [](const Any& graph) {
    return to_python(genetic::graph_root_family(to_value(graph)));
  });
  module.def("numeric_repair_peer_key",
             [](const Any& graph) { return genetic::numeric_repair_peer_key(to_value(graph)); });
  module.def("peer_feature_overlap_key", [](const Any& source_features, const Any& peer_graph) {
    const auto& [same_feature_set, overlap] =
        genetic::peer_feature_overlap_key(to_value(source_features), to_value(peer_graph));
    return to_python(Tuple{same_feature_set, overlap});
  });
  module.def("delta_exposure_peer_value", [](PythonHost& host, const Any& result) {
    return genetic::delta_exposure_peer_value(host, to_value(result));
  });
  module.def("max_weight_peer_value", [](PythonHost& host, const Any& result) {
    return genetic::max_weight_peer_value(host, to_value(result));
  });
  module.def("delta_exposure_peer_repair_key", [](PythonHost& host, const Any& result) {
    return key_object(genetic::delta_exposure_peer_repair_key(host, to_value(result)));
  });
  module.def("max_weight_peer_repair_key", [](PythonHost& host, const Any& result) {
    return key_object(genetic::max_weight_peer_repair_key(host, to_value(result)));
  });
  module.def("reaction_peer_graphs",
             [](PythonHost& host, const Any& ordered_results, const Any& source_result) {
               return to_python(genetic::reaction_peer_graphs(host, to_value(ordered_results),
                                                              to_value(source_result)));
             });
}

}  // namespace

void init_improvement(nb::module_& module) {
  init_outcome(module);
  init_derivation(module);
  init_priority(module);
  init_progress(module);
  init_peers(module);
  module.def("actionable_near_miss_key", &near_miss_key);
  module.def("select_actionable_near_miss_parents", [](PythonHost& host, const Any& ctx_or_results,
                                                       const Any& results_or_batch_size,
                                                       const Any& batch_size) {
    return to_python(near_miss_parents(host, ctx_or_results, results_or_batch_size, batch_size));
  });
  module.def("improvement_source_pool",
             [](PythonHost& host, const Any& ctx, const Any& generation_results,
                const Any& current_round_results, const Any& batch_size) {
               return to_python(improvement_source_pool(host, ctx, generation_results,
                                                        current_round_results, batch_size));
             });
  module.def("derive_improvement_batch", &derive_improvement_batch);
}

}  // namespace varnholt::python
