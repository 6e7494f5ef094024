#include "hosts/embedded/host/embedded_planning.hpp"

#include <cmath>
#include <limits>
#include <optional>

#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/planner/repair_planner.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/graph/graph_filters.hpp"
#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::List;
using genetic::Mapping;
using genetic::ReactionRequest;
using genetic::Value;

namespace {

std::optional<double> finite(const Value& value) {
  if (value.is_absent()) return std::nullopt;
  const std::optional<double> number = genetic::tolerant_float(value);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

// Absent is no limit.
std::int64_t plan_limit(const Value& max_plans) {
  if (max_plans.is_absent()) return std::numeric_limits<std::int64_t>::max();
  return genetic::saturated_integer(genetic::to_integer(max_plans));
}

FunctionNames names_of(const List& rotations) {
  FunctionNames names;
  genetic::ListCursor cursor(rotations);
  while (const std::optional<Value> rotation = cursor.next())
    names.insert(genetic::str(genetic::record_of(*rotation).get(keys::kName)));
  return names;
}

}  // namespace

EmbeddedPlanning::EmbeddedPlanning(const Vocabulary& vocabulary, const RandomGraphOptions& graphs,
                                   genetic::JsonReader& json_reader, Lineage& lineage,
                                   StopQuestion is_stopping, const GraphMaking& making,
                                   KnownBehaviours* behaviours)
    : vocabulary_(vocabulary),
      graphs_(graphs),
      json_reader_(json_reader),
      lineage_(lineage),
      is_stopping_(std::move(is_stopping)),
      making_(making),
      behaviours_(behaviours) {}

Value EmbeddedPlanning::derive_reaction_improvements(const Value& result,
                                                     const ReactionRequest& request) {
  const std::int64_t limit = plan_limit(request.max_plans);
  // No worker runs while repairs are planned.
  if (behaviours_ != nullptr) behaviours_->settle();
  List improvements;
  if (is_stopping_ && is_stopping_()) return improvements;
  const Mapping record = genetic::record_of(result);
  const Value tried = record.get(keys::kGraph);
  if (!is_valid(tried)) return improvements;
  const RepairCase failed = case_of(record);
  const std::vector<Value> peers = peers_of(request);
  const RepairMaterial material = material_of(request, peers);
  for (const PlannedRepair& repair : plan_repairs(failed, material)) {
    if (std::cmp_greater_equal(improvements.size(), limit)) break;
    if (!genetic::graph_passes_validator(repair.graph, request.validator)) continue;
    std::vector<Value> parents = {tried};
    if (repair.plan->peer) parents.push_back(peers.at(*repair.plan->peer));
    lineage_.note_repair(repair.graph, std::move(parents),
                         {std::string(repair.plan->name), std::string(repair.reason),
                          std::string(repair.plan->explanation),
                          genetic::saturated_integer(request.improvement_depth)});
    improvements.append(
        Mapping{{keys::kGraph, repair.graph},
                {keys::kSourceResult, result},
                {keys::kReactionPlan, Mapping{{keys::kName, repair.plan->name},
                                              {keys::kReason, repair.reason},
                                              {"explanation", repair.plan->explanation}}},
                {keys::kImprovementDepth, request.improvement_depth}});
  }
  return improvements;
}

RepairCase EmbeddedPlanning::case_of(const Mapping& result) const {
  RepairCase failed;
  failed.graph = lineage_.as_recorded(result.get(keys::kGraph));
  if (const auto failures = genetic::as_mapping(result.get(keys::kFailures))) {
    genetic::MappingCursor cursor(*failures);
    while (const auto failure = cursor.next()) {
      const genetic::MetricPair missed = genetic::failure_metric_pair(json_reader_, failure->value);
      failed.failures.push_back(
          {genetic::str(failure->key), finite(missed.value), finite(missed.threshold)});
    }
  }
  if (const auto statistics = statistics_of(result.get(keys::kStats))) {
    failed.sharpe = statistics->sharpe;
    failed.gross_sharpe = statistics->gross_returns_sharpe;
  }
  return failed;
}

std::vector<Value> EmbeddedPlanning::peers_of(const ReactionRequest& request) const {
  std::vector<Value> found;
  const auto peers = genetic::iterate(request.extra_data_graphs);
  while (found.size() < kPeersUsed) {
    const std::optional<Value> peer = peers->next();
    if (!peer) break;
    if (is_valid(*peer)) found.push_back(*peer);
  }
  return found;
}

RepairMaterial EmbeddedPlanning::material_of(const ReactionRequest& request,
                                             const std::vector<Value>& peers) const {
  RepairMaterial material;
  material.making = making_;
  material.functions = names_of(request.safe_rotation_specs);
  for (const int window : vocabulary_.windows) {
    if (window <= graphs_.max_window) material.windows.push_back(window);
  }
  material.limits = {graphs_.max_depth, graphs_.max_nodes};
  for (const Value& peer : peers)
    material.peers.push_back(lineage_.as_recorded(peer));
  return material;
}

bool EmbeddedPlanning::is_valid(const Value& graph) const {
  try {
    static_cast<void>(check_graph(graph, vocabulary_));
    return true;
  } catch (const GraphError&) {
    return false;
  }
}

}  // namespace varnholt::embedded
