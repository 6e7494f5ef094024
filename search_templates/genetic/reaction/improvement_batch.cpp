#include "search_templates/genetic/reaction/improvement_batch.hpp"

#include <optional>
#include <utility>
#include <vector>

#include "search_templates/genetic/context/context_limits.hpp"
#include "search_templates/genetic/graph/graph_filters.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/reaction/derivation.hpp"
#include "search_templates/genetic/reaction/near_misses.hpp"
#include "search_templates/genetic/reaction/peers.hpp"
#include "search_templates/genetic/reaction/priority.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/list_order.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

// The number of improvements to accept from one source; nothing for no limit.
std::optional<std::int64_t> plan_limit_of(const ModuleConstants& constants, const Value& limit) {
  if (limit.is_absent()) return std::nullopt;
  const std::optional<Value> number = tolerant_integer(limit);
  if (number && less(0, *number)) return saturated_integer(*number);
  return saturated_integer(constants.default_max_reaction_plans_per_source());
}

std::vector<Value> expanded_results(const ReactionEnvironment& environment, const Value& results) {
  std::vector<Value> expanded;
  const auto walk = iterate(results);
  while (const std::optional<Value> result = walk->next())
    expanded.push_back(environment.expanded(*result));
  return expanded;
}

std::vector<Value> in_repair_order(JsonReader& json_reader, const std::vector<Value>& results) {
  std::vector<RepairPriority> keys;
  keys.reserve(results.size());
  for (const Value& result : results)
    keys.push_back(reaction_repair_priority_key(json_reader, result));
  std::vector<Value> ordered;
  ordered.reserve(results.size());
  for (const std::size_t place :
       list_order(keys.size(), [&keys](std::size_t left, std::size_t right) {
         return keys[left].is_less_than(keys[right]);
       })) {
    ordered.push_back(results[place]);
  }
  return ordered;
}

// One batch on its way.
class Derivation {
 public:
  Derivation(const ReactionEnvironment& environment, SeenGraphs& evaluated,
             const ImprovementLimits& limits)
      : environment_(environment),
        evaluated_(evaluated),
        limits_(limits),
        plan_limit_(plan_limit_of(environment.constants, limits.max_plans_per_result)) {}

  ImprovementBatch derive(const Value& results) {
    const std::vector<Value> ordered =
        in_repair_order(environment_.host.json_reader(), expanded_results(environment_, results));
    graph_max_depth_ = context_max_depth(environment_.context);
    PeerRanking peers(environment_.host, ordered);
    for (const Value& result : ordered) {
      if (!is_source(result)) continue;
      // The planner gives all that it has: the limit for one source counts what is accepted.
      const Value improvements =
          derive_reaction_improvements(environment_, result, Value(), peers.graphs_for(result));
      if (truth(improvements)) accept(improvements);
      if (batch_.candidate_limit_reached) break;
    }
    return std::move(batch_);
  }

 private:
  // A result at the depth limit is eligible, and no source.
  bool is_source(const Value& result) {
    if (!has_reaction_failure(result)) return false;
    ++batch_.eligible_count;
    if (limits_.max_depth.is_absent()) return true;
    if (!at_least(improvement_depth(result), limits_.max_depth)) return true;
    ++batch_.depth_limited_count;
    return false;
  }

  // Takes in the improvements of one source.
  void accept(const Value& improvements) {
    std::int64_t accepted = 0;
    const auto walk = iterate(improvements);
    while (const std::optional<Value> improvement = walk->next()) {
      if (!reaction_improvement_within_graph_max_depth(environment_.host.graph_depth(),
                                                       *improvement, graph_max_depth_)) {
        ++batch_.depth_limited_count;
        continue;
      }
      const Value graph = item(*improvement, keys::kGraph);
      const StructuralKey key = structural_key(graph);
      if (evaluated_.contains(graph, key)) {
        ++batch_.duplicate_count;
        continue;
      }
      if (is_full()) {
        batch_.candidate_limit_reached = true;
        return;
      }
      evaluated_.add(graph, key);
      batch_.improvements.append(*improvement);
      ++accepted;
      if (plan_limit_ && accepted >= *plan_limit_) return;
    }
  }

  [[nodiscard]] bool is_full() const {
    return !limits_.remaining_candidates.is_absent() &&
           at_least(static_cast<std::int64_t>(batch_.improvements.size()),
                    limits_.remaining_candidates);
  }

  const ReactionEnvironment& environment_;
  SeenGraphs& evaluated_;
  const ImprovementLimits& limits_;
  std::optional<std::int64_t> plan_limit_;
  Value graph_max_depth_;
  ImprovementBatch batch_;
};

// The results of a pool, one of each structure.
class SourcePool {
 public:
  explicit SourcePool(const ReactionEnvironment& environment) : environment_(environment) {}

  void append_all(const Value& results) {
    const auto walk = iterate(results);
    while (const std::optional<Value> raw_result = walk->next()) {
      const Value result = environment_.expanded(*raw_result);
      const std::optional<Mapping> record = as_mapping(result);
      const Value graph = record ? record->get(keys::kGraph) : Value();
      if (!as_mapping(graph)) continue;
      if (seen_graphs_.insert(structural_key(graph)).second) pool_.append(result);
    }
  }

  [[nodiscard]] List take() { return std::move(pool_); }

 private:
  const ReactionEnvironment& environment_;
  StructuralKeySet seen_graphs_;
  List pool_;
};

}  // namespace

List improvement_source_pool(const ReactionEnvironment& environment,
                             const Value& generation_results, const Value& current_round_results,
                             const Value& batch_size) {
  return improvement_source_pool_of(
      environment, select_actionable_near_miss_parents(environment, generation_results, batch_size),
      current_round_results);
}

List improvement_source_pool_of(const ReactionEnvironment& environment, const Value& near_misses,
                                const Value& current_round_results) {
  SourcePool pool(environment);
  pool.append_all(near_misses);
  pool.append_all(current_round_results);
  return pool.take();
}

ImprovementBatch derive_improvement_batch(const ReactionEnvironment& environment,
                                          const Value& results, SeenGraphs& evaluated,
                                          const ImprovementLimits& limits) {
  return Derivation(environment, evaluated, limits).derive(results);
}

}  // namespace varnholt::genetic
