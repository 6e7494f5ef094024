// The names in a graph's nodes, and how much two graphs share of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "search_templates/genetic/graph/host_graph.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The texts under "node" anywhere in a graph: a mapping with "node" and "children", or a list or
// tuple of such. Anything else contributes nothing. A missing "children" counts as none, while one
// that cannot be iterated fails with TypeError. RecursionError beyond kMaximumNesting.
[[nodiscard]] std::set<std::string> graph_node_names(const Value& graph);
// The same for the nodes of type "feature" alone: the data that a graph uses.
[[nodiscard]] std::set<std::string> graph_feature_names(const Value& graph);

// The Jaccard index of the two sets of names: the number of shared names over the number of all,
// from 0.0 to 1.0. Two graphs without names are not similar: 0.0.
[[nodiscard]] double graph_similarity(const Value& left, const Value& right);

// A set of names as bits, for many comparisons within one call.
class NameSet {
 public:
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  friend class NameTable;

  std::vector<std::uint64_t> bits_;
  std::size_t size_ = 0;
};

// Numbers the names that one call meets. Each graph is walked once, by `names_of` or by
// `feature_names_of`.
class NameTable {
 public:
  [[nodiscard]] NameSet names_of(const Value& graph);
  [[nodiscard]] NameSet feature_names_of(const Value& graph);
  // As graph_similarity() of the graphs.
  [[nodiscard]] static double similarity(const NameSet& left, const NameSet& right);

 private:
  // Nothing for a graph that does not tell its names by itself.
  [[nodiscard]] std::optional<NameSet> told_names(const Value& graph, NamedNodes which);
  [[nodiscard]] std::size_t number_of(std::string_view name);
  void add(NameSet& names, std::string_view name);

  std::unordered_map<std::string, std::size_t> numbers_;
};

}  // namespace varnholt::genetic
