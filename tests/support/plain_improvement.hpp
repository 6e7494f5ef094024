// Peers and near misses as their rules read, and nothing saved: every graph is walked again for
// every pair that it is part of. What the library's are compared with, and how slow it is.
//
// Results are native mappings with plain graphs and figures that are numbers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/population/node_names.hpp"
#include "search_templates/genetic/population/parent_scoring.hpp"
#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/reaction/failure_progress.hpp"
#include "search_templates/genetic/reaction/peer_keys.hpp"
#include "search_templates/genetic/reaction/priority.hpp"
#include "search_templates/genetic/reaction/reaction_environment.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::test {

class PlainImprovement {
 public:
  explicit PlainImprovement(const ReactionEnvironment& environment) : environment_(environment) {}

  [[nodiscard]] std::vector<Value> peers(const std::vector<Value>& ordered, const Value& source) {
    const Value source_graph = graph_of(source);
    const bool has_graph = source_graph.is_mapping();
    const std::set<std::string> source_features = graph_feature_names(source_graph);
    const bool is_delta_repair = is_delta_exposure_repair(source);
    const bool is_weight_repair = is_max_weight_repair(source);
    std::vector<StructuralKey> seen;
    std::vector<std::pair<PeerKey, Value>> ranked;
    for (std::size_t order = 0; order < ordered.size(); ++order) {
      const Value& result = ordered[order];
      const Value graph = graph_of(result);
      if (same_object(result, source) || !graph.is_mapping()) continue;
      const StructuralKey key = structural_key(graph);
      if (has_graph && key == structural_key(source_graph)) continue;
      if (std::find(seen.begin(), seen.end(), key) != seen.end()) continue;
      seen.push_back(key);
      PeerRepairKey repair;
      if (is_delta_repair) {
        repair = delta_exposure_peer_repair_key(environment_.host, result);
      } else if (is_weight_repair) {
        repair = max_weight_peer_repair_key(environment_.host, result);
      }
      const bool ranks_families = is_delta_repair || is_weight_repair;
      const auto [same_set, overlap] = overlap_of(source_features, graph);
      const ReactionPriority plain = reaction_priority_key(result);
      ranked.push_back({{ranks_families ? numeric_repair_peer_key(graph) : 0, repair.has_failure,
                         repair.value, same_set, overlap, plain.negated_quality,
                         plain.improvement_depth.integer(), plain.candidate_index.integer(), order},
                        graph});
    }
    std::sort(ranked.begin(), ranked.end(),
              [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<Value> graphs;
    for (const auto& entry : ranked)
      graphs.push_back(entry.second);
    return graphs;
  }

  [[nodiscard]] std::vector<Value> near_misses(const std::vector<Value>& results,
                                               std::size_t batch_size) {
    const std::vector<Value> candidates = filtered(results);
    std::vector<std::pair<Tuple, Value>> best;
    for (const Value& result : candidates) {
      const Tuple signature = failure_signature(result);
      const auto names = signature.items();
      if (std::none_of(names.begin(), names.end(), [](const Value& name) {
            return is_member(REACTION_FAILURE_REASONS, name);
          })) {
        continue;
      }
      const auto prior = std::find_if(best.begin(), best.end(), [&](const auto& entry) {
        return Value(entry.first) == Value(signature);
      });
      if (prior == best.end()) {
        best.emplace_back(signature, result);
      } else {
        const MissKey own = key_of(result);
        if (own < key_of(prior->second)) prior->second = result;
      }
    }
    std::vector<Value> selected;
    for (const auto& entry : best)
      selected.push_back(entry.second);
    selected = sorted(selected);
    const std::size_t limit = std::max<std::size_t>(4 * batch_size, 8);
    for (const Value& result : sorted(candidates)) {
      if (selected.size() >= limit) break;
      const bool is_in = std::any_of(selected.begin(), selected.end(), [&](const Value& other) {
        return same_object(result, other);
      });
      if (!is_in) selected.push_back(result);
    }
    if (selected.size() > limit) selected.resize(limit);
    return selected;
  }

 private:
  using PeerKey =
      std::tuple<int, int, double, int, double, double, std::int64_t, std::int64_t, std::size_t>;
  using MissKey = std::tuple<std::int64_t, double, double, double, std::int64_t, std::int64_t>;

  static Value graph_of(const Value& result) { return result.mapping().get("graph"); }

  static std::pair<int, double> overlap_of(const std::set<std::string>& source,
                                           const Value& graph) {
    const std::set<std::string> peer = graph_feature_names(graph);
    if (source.empty() || peer.empty()) return {0, 0.0};
    std::set<std::string> all = source;
    all.insert(peer.begin(), peer.end());
    const std::size_t shared = source.size() + peer.size() - all.size();
    return {source == peer ? 1 : 0, static_cast<double>(shared) / static_cast<double>(all.size())};
  }

  std::vector<Value> filtered(const std::vector<Value>& results) {
    std::vector<Value> candidates;
    std::vector<StructuralKey> seen;
    for (const Value& raw_result : results) {
      const Value result = environment_.expanded(raw_result);
      const Value graph = graph_of(result);
      if (!graph.is_mapping() || !has_actionable_near_miss_failure(result)) continue;
      const bool is_reversible = is_negative_sharpe_reaction_candidate(
          environment_.host.gates(), environment_.host.json_reader(), result);
      const double sharpe = to_float(result.mapping().get("sharpe", 0.0));
      if (!is_reversible && (sharpe <= 0.0 || candidate_quality(result) <= 0.0)) continue;
      const StructuralKey key = structural_key(graph);
      if (std::find(seen.begin(), seen.end(), key) != seen.end()) continue;
      seen.push_back(key);
      candidates.push_back(result);
    }
    return candidates;
  }

  MissKey key_of(const Value& result) {
    const FailureProgress progress = failure_progress_key(environment_.host.json_reader(), result);
    const double eliteness =
        to_float(candidate_eliteness(environment_.host.eliteness(), result,
                                     to_float(environment_.constants.default_diversity_weight()),
                                     to_float(environment_.constants.default_parsimony_weight())));
    const ReactionPriority plain = reaction_priority_key(result);
    return {
        progress.failure_count, progress.total_violation,          -eliteness,
        plain.negated_quality,  plain.improvement_depth.integer(), plain.candidate_index.integer()};
  }

  std::vector<Value> sorted(const std::vector<Value>& results) {
    std::vector<std::pair<MissKey, Value>> keyed;
    for (const Value& result : results)
      keyed.emplace_back(key_of(result), result);
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<Value> values;
    for (const auto& entry : keyed)
      values.push_back(entry.second);
    return values;
  }

  const ReactionEnvironment& environment_;
};

}  // namespace varnholt::genetic::test
