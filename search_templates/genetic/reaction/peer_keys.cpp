#include "search_templates/genetic/reaction/peer_keys.hpp"

#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "search_templates/genetic/graph/node_types.hpp"
#include "search_templates/genetic/population/node_names.hpp"
#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

constexpr char kFamilyEnd = '_';
constexpr double kValueOfUnmeasured = 1.0;

// A metric that a peer must not bring in anew, and the failures that say that it is too high.
struct PeerMetric {
  Key name;
  std::array<Key, 2> failures;
};
constexpr PeerMetric kDeltaExposureMetric = {
    keys::kDeltaExposure, {reasons::kDeltaExposureMax, reasons::kDeltaExposureExceeded}};
constexpr PeerMetric kMaxWeightMetric = {keys::kMaxWeight,
                                         {reasons::kMaxWeightMax, reasons::kMaxWeightExceeded}};

std::optional<double> failed_value(JsonReader& json_reader, const Value& result,
                                   std::span<const Key> reason_names) {
  const std::optional<Mapping> record = as_mapping(result);
  if (!record) return std::nullopt;
  const std::optional<Mapping> failures = as_mapping(record->get(keys::kFailures));
  if (!failures) return std::nullopt;
  for (const Key reason : reason_names) {
    const MetricPair pair = failure_metric_pair(json_reader, failures->get(reason));
    if (const auto value = tolerant_float(pair.value)) return value;
  }
  return std::nullopt;
}

double peer_value(Host& host, const Value& result, const PeerMetric& metric) {
  const Value metrics = stats_gate_metrics_for_result(host.gates(), result);
  if (const auto value = tolerant_float(entry(metrics, metric.name))) return std::abs(*value);
  if (const auto value = failed_value(host.json_reader(), result, metric.failures)) {
    return std::abs(*value);
  }
  return has_failure_reason(result, metric.failures) ? std::numeric_limits<double>::infinity()
                                                     : kValueOfUnmeasured;
}

PeerRepairKey repair_key(Host& host, const Value& result, const PeerMetric& metric) {
  const int has_failure = has_failure_reason(result, metric.failures) ? 1 : 0;
  return {has_failure, peer_value(host, result, metric)};
}

}  // namespace

Value graph_root_family(const Value& graph) {
  const std::optional<Mapping> root = as_mapping(graph);
  if (!root) return {};
  if (root->get(keys::kType) == node_types::kFeature) return node_types::kFeature;
  const Value name = root->get(keys::kNode);
  if (!is_instance_of(name, Kind::kText) || !truth(name)) return {};
  const std::string text = name.is_text() ? std::string(name.text()) : name.object().text();
  const std::size_t end = text.find(kFamilyEnd);
  // A text that is a family of its own is that very text.
  return end == std::string::npos && name.is_text() ? name : Value(text.substr(0, end));
}

int numeric_repair_peer_key(const Value& graph) {
  return is_member(NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES, graph_root_family(graph)) ? 1 : 0;
}

FeatureOverlap peer_feature_overlap_key(const Value& source_features, const Value& peer_graph) {
  const std::set<std::string> peer_features = graph_feature_names(peer_graph);
  if (!truth(source_features) || peer_features.empty()) return {};
  std::size_t shared = 0;
  for (const std::string& name : peer_features)
    shared += contains(source_features, name) ? 1 : 0;
  const std::size_t all = length(source_features) + peer_features.size() - shared;
  return {shared == all ? 1 : 0, static_cast<double>(shared) / static_cast<double>(all)};
}

double delta_exposure_peer_value(Host& host, const Value& result) {
  return peer_value(host, result, kDeltaExposureMetric);
}
double max_weight_peer_value(Host& host, const Value& result) {
  return peer_value(host, result, kMaxWeightMetric);
}

PeerRepairKey delta_exposure_peer_repair_key(Host& host, const Value& result) {
  return repair_key(host, result, kDeltaExposureMetric);
}
PeerRepairKey max_weight_peer_repair_key(Host& host, const Value& result) {
  return repair_key(host, result, kMaxWeightMetric);
}

bool is_delta_exposure_repair(const Value& result) {
  return has_failure_reason(result, kDeltaExposureMetric.failures);
}
bool is_max_weight_repair(const Value& result) {
  return has_failure_reason(result, kMaxWeightMetric.failures);
}

}  // namespace varnholt::genetic
