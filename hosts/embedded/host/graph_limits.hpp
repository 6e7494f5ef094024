// How large graphs may be, and which rotations fit.
#pragma once

#include <string_view>

#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/graph_depth.hpp"
#include "search_templates/genetic/host/random_graph_limits.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class EmbeddedGraphLimits : public genetic::GraphDepth, public genetic::RandomGraphLimits {
 public:
  explicit EmbeddedGraphLimits(const RandomGraphOptions& graphs) : graphs_(graphs) {}

  // Nodes on the longest way down. genetic::ValueError for anything but a graph of nodes.
  [[nodiscard]] genetic::Value graph_depth_for_attempt_marker(const genetic::Value& graph) override;
  // The vocabulary's functions are its rotations; there is no other kind of function.
  [[nodiscard]] genetic::Value function_entries_for_kind(const genetic::Value& vocabulary,
                                                         std::string_view kind) override;
  [[nodiscard]] genetic::Value random_weighted_window_limit(
      genetic::SearchContext& context, const genetic::Value& max_depth) override;
  [[nodiscard]] genetic::Value random_weighted_node_limit(genetic::SearchContext& context) override;
  // Every rotation that fits into the node limit is safe: none of the vocabulary's can fail.
  [[nodiscard]] genetic::Value signal_generation_safe_rotations(
      const genetic::SafeRotationsRequest& request) override;

 private:
  RandomGraphOptions graphs_;
};

}  // namespace varnholt::embedded
