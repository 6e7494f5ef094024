// How well another result's graph serves as the partner of a repair: the elements of the peers'
// sort keys, of which the least comes first.
//
// A result is read as in failure_metrics.hpp, a graph as its keys say (plain_graph.hpp).
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What kind of function a graph has at its root: the part of its name before the first "_", or
// "feature" for a feature. Absent for anything but a mapping, and for a root without a name.
[[nodiscard]] Value graph_root_family(const Value& graph);

// 1 for a graph whose root gives no numbers, else 0.
[[nodiscard]] int numeric_repair_peer_key(const Value& graph);

// How much a peer's features are those of the source: a different set comes before the same one,
// and less in common (the Jaccard index) before more, on purpose. Both zero when either has none.
struct FeatureOverlap {
  int same_feature_set = 0;
  double overlap = 0.0;
};
// `source_features` is anything that can be asked for its truth, its length and its members.
[[nodiscard]] FeatureOverlap peer_feature_overlap_key(const Value& source_features,
                                                      const Value& peer_graph);

// The magnitude of a peer's metric: the host's figure, or that of a failure of this metric. Without
// either, a peer that failed by it is taken as infinitely far, any other as 1.0.
[[nodiscard]] double delta_exposure_peer_value(Host& host, const Value& result);
[[nodiscard]] double max_weight_peer_value(Host& host, const Value& result);

// A peer that did not fail by the metric comes before one that did.
struct PeerRepairKey {
  int has_failure = 0;
  double value = 0.0;
};
[[nodiscard]] PeerRepairKey delta_exposure_peer_repair_key(Host& host, const Value& result);
[[nodiscard]] PeerRepairKey max_weight_peer_repair_key(Host& host, const Value& result);

// Whether a result failed by the metric, so that its repair looks at the metric of its peers.
[[nodiscard]] bool is_delta_exposure_repair(const Value& result);
[[nodiscard]] bool is_max_weight_repair(const Value& result);

}  // namespace varnholt::genetic
