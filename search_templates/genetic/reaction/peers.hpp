// Which other graphs of a generation a repair may be combined with, the best first.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/population/node_names.hpp"
#include "search_templates/genetic/reaction/priority.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Ranks the results of one pass as peers of one source after another.
//
// A graph is walked once for its structure and once for its features, when they are first needed,
// however many sources there are; the graphs must not change in between. The host is asked for a
// peer's metrics once for each source whose repair looks at them, and never for any other.
class PeerRanking {
 public:
  PeerRanking(Host& host, std::vector<Value> ordered_results);

  // The graphs of all results but the source and those of its structure, one of each structure: the
  // first result of a structure counts, with its metrics. For a source that failed by delta
  // exposure, or else by maximal weight, numeric peers come first, then those that did not fail by
  // that metric, then those with small values of it. After that, and for any other source, the
  // peers whose features differ most come first, then those of the better priority, then the
  // earlier. The order is total.
  //
  // AttributeError for a result without the operation `get`; a graph that is a mapping but no plain
  // data fails the whole call.
  [[nodiscard]] List graphs_for(const Value& source_result);

 private:
  enum class Form { kDeltaExposure, kMaxWeight, kPlain };

  // A result's graph with what has been computed of it so far.
  struct Peer {
    Value result;
    Value graph;  // Absent for anything but a mapping.
    bool has_graph = false;
    std::optional<std::size_t> structure;  // A number for each structure.
    std::optional<NameSet> features;
    std::optional<int> not_numeric;
    std::optional<ReactionPriority> priority;
  };

  // A peer's sort key. Elements that a form does not use are the same in all of its keys.
  struct SortKey {
    int not_numeric = 0;
    int has_failure = 0;
    double metric = 0.0;
    int same_feature_set = 0;
    double overlap = 0.0;
    std::size_t place = 0;
  };

  void read_graph(Peer& peer);
  [[nodiscard]] std::size_t structure_of(Peer& peer);
  [[nodiscard]] const NameSet& features_of(Peer& peer);
  [[nodiscard]] SortKey key_of(Form form, const NameSet& source_features, std::size_t place);
  [[nodiscard]] bool is_less(const SortKey& left, const SortKey& right) const;
  [[nodiscard]] Peer& peer_of(const Value& source_result, Peer& other);

  Host& host_;
  std::vector<Peer> peers_;
  std::unordered_map<StructuralKey, std::size_t, StructuralKeyHash> structures_;
  NameTable names_;
  // The source by which each structure was met last, counted from 1.
  std::vector<std::size_t> met_by_;
  std::size_t source_count_ = 0;
};

// PeerRanking for a single source.
[[nodiscard]] List reaction_peer_graphs(Host& host, const Value& ordered_results,
                                        const Value& source_result);

}  // namespace varnholt::genetic
