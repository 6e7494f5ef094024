#include "search_templates/genetic/reaction/peers.hpp"

#include <algorithm>
#include <utility>

#include "search_templates/genetic/reaction/peer_keys.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/list_order.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tuple_order.hpp"

namespace varnholt::genetic {

PeerRanking::PeerRanking(Host& host, std::vector<Value> ordered_results) : host_(host) {
  peers_.resize(ordered_results.size());
  for (std::size_t place = 0; place < peers_.size(); ++place)
    peers_[place].result = std::move(ordered_results[place]);
}

List PeerRanking::graphs_for(const Value& source_result) {
  ++source_count_;
  Peer other;
  Peer& source = peer_of(source_result, other);
  read_graph(source);
  const NameSet no_features;
  std::optional<std::size_t> source_structure;
  if (source.has_graph) source_structure = structure_of(source);
  const NameSet source_features = source.has_graph ? features_of(source) : no_features;
  // Both are looked at; a source that failed by both is repaired by its delta exposure.
  const bool is_delta_repair = is_delta_exposure_repair(source_result);
  const bool is_weight_repair = is_max_weight_repair(source_result);
  const Form form = is_delta_repair    ? Form::kDeltaExposure
                    : is_weight_repair ? Form::kMaxWeight
                                       : Form::kPlain;

  std::vector<SortKey> keys;
  keys.reserve(peers_.size());
  for (std::size_t place = 0; place < peers_.size(); ++place) {
    Peer& peer = peers_[place];
    if (same_object(peer.result, source_result)) continue;
    read_graph(peer);
    if (!peer.has_graph) continue;
    const std::size_t structure = structure_of(peer);
    if (structure == source_structure) continue;
    if (std::exchange(met_by_[structure], source_count_) == source_count_) continue;
    keys.push_back(key_of(form, source_features, place));
  }

  List graphs(keys.size());
  for (const std::size_t index : list_order(keys.size(), [&](std::size_t left, std::size_t right) {
         return is_less(keys[left], keys[right]);
       })) {
    graphs.append(peers_[keys[index].place].graph);
  }
  return graphs;
}

// The source among the results, by identity, or else made of it.
PeerRanking::Peer& PeerRanking::peer_of(const Value& source_result, Peer& other) {
  const auto place = std::find_if(peers_.begin(), peers_.end(), [&](const Peer& peer) {
    return same_object(peer.result, source_result);
  });
  if (place != peers_.end()) return *place;
  other.result = source_result;
  return other;
}

void PeerRanking::read_graph(Peer& peer) {
  if (peer.has_graph) return;
  Value graph = entry(peer.result, keys::kGraph);
  if (!as_mapping(graph)) return;
  peer.graph = std::move(graph);
  peer.has_graph = true;
}

std::size_t PeerRanking::structure_of(Peer& peer) {
  if (!peer.structure) {
    peer.structure =
        structures_.try_emplace(structural_key(peer.graph), structures_.size()).first->second;
    met_by_.resize(structures_.size());
  }
  return *peer.structure;
}

const NameSet& PeerRanking::features_of(Peer& peer) {
  if (!peer.features) peer.features = names_.feature_names_of(peer.graph);
  return *peer.features;
}

PeerRanking::SortKey PeerRanking::key_of(Form form, const NameSet& source_features,
                                         std::size_t place) {
  Peer& peer = peers_[place];
  SortKey key;
  key.place = place;
  if (form != Form::kPlain) {
    if (!peer.not_numeric) peer.not_numeric = numeric_repair_peer_key(peer.graph);
    key.not_numeric = *peer.not_numeric;
    const PeerRepairKey repair = form == Form::kDeltaExposure
                                     ? delta_exposure_peer_repair_key(host_, peer.result)
                                     : max_weight_peer_repair_key(host_, peer.result);
    key.has_failure = repair.has_failure;
    key.metric = repair.value;
  }
  const NameSet& features = features_of(peer);
  if (source_features.size() != 0 && features.size() != 0) {
    key.overlap = NameTable::similarity(source_features, features);
    // All of them are shared.
    key.same_feature_set = key.overlap == 1.0 ? 1 : 0;
  }
  if (!peer.priority) peer.priority = reaction_priority_key(peer.result);
  return key;
}

bool PeerRanking::is_less(const SortKey& left, const SortKey& right) const {
  TupleOrder order;
  order.then(left.not_numeric, right.not_numeric)
      .then(left.has_failure, right.has_failure)
      .then(left.metric, right.metric)
      .then(left.same_feature_set, right.same_feature_set)
      .then(left.overlap, right.overlap);
  if (!order.is_decided()) {
    peers_[left.place].priority->continue_order(order, *peers_[right.place].priority);
    order.then(left.place, right.place);
  }
  return order.is_less();
}

List reaction_peer_graphs(Host& host, const Value& ordered_results, const Value& source_result) {
  std::vector<Value> results;
  const auto walk = iterate(ordered_results);
  while (std::optional<Value> result = walk->next())
    results.push_back(*std::move(result));
  return PeerRanking(host, std::move(results)).graphs_for(source_result);
}

}  // namespace varnholt::genetic
