#include "search_templates/genetic/population/node_names.hpp"

#include <algorithm>
#include <bit>
#include <optional>
#include <utility>

#include "search_templates/genetic/graph/host_graph.hpp"
#include "search_templates/genetic/graph/node_types.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::size_t kWordBits = 64;

// The text itself, which a type derived from the text type may show otherwise.
std::string text_of(const Value& text) {
  return text.is_text() ? std::string(text.text()) : text.object().text();
}

bool is_any_node(const Mapping& /*node*/) {
  return true;
}
bool is_feature(const Mapping& node) {
  return node.get(keys::kType) == node_types::kFeature;
}

// Visits the names of the nodes that `takes` takes.
template <typename Takes, typename Visit>
void for_each_name(const Value& graph, const Takes& takes, const Visit& visit, int depth = 0) {
  if (depth > kMaximumNesting) throw RecursionError("maximum recursion depth exceeded");
  Value children;
  if (const std::optional<Mapping> node = as_mapping(graph)) {
    if (takes(*node)) {
      const Value name = node->get(keys::kNode);
      if (is_instance_of(name, Kind::kText) && truth(name)) visit(text_of(name));
    }
    children = node->get(keys::kChildren, Tuple());
  } else if (is_instance_of(graph, Kind::kList) || is_instance_of(graph, Kind::kTuple)) {
    children = graph;
  } else {
    return;
  }
  const auto walk = iterate(children);
  while (const std::optional<Value> child = walk->next())
    for_each_name(*child, takes, visit, depth + 1);
}

template <typename Takes>
std::set<std::string> names_taken_by(const Takes& takes, const Value& graph) {
  std::set<std::string> names;
  for_each_name(graph, takes, [&names](std::string name) { names.insert(std::move(name)); });
  return names;
}

double jaccard(std::size_t left, std::size_t right, std::size_t shared) {
  const std::size_t all = left + right - shared;
  return all == 0 ? 0.0 : static_cast<double>(shared) / static_cast<double>(all);
}

}  // namespace

std::set<std::string> graph_node_names(const Value& graph) {
  return names_taken_by(is_any_node, graph);
}

std::set<std::string> graph_feature_names(const Value& graph) {
  return names_taken_by(is_feature, graph);
}

double graph_similarity(const Value& left, const Value& right) {
  const std::set<std::string> left_names = graph_node_names(left);
  const std::set<std::string> right_names = graph_node_names(right);
  const auto shared = static_cast<std::size_t>(std::count_if(
      left_names.begin(), left_names.end(),
      [&right_names](const std::string& name) { return right_names.contains(name); }));
  return jaccard(left_names.size(), right_names.size(), shared);
}

NameSet NameTable::names_of(const Value& graph) {
  if (std::optional<NameSet> names = told_names(graph, NamedNodes::kAll)) return *std::move(names);
  NameSet names;
  for_each_name(graph, is_any_node, [&](const std::string& name) { add(names, name); });
  return names;
}

NameSet NameTable::feature_names_of(const Value& graph) {
  if (std::optional<NameSet> names = told_names(graph, NamedNodes::kFeatures)) {
    return *std::move(names);
  }
  NameSet names;
  for_each_name(graph, is_feature, [&](const std::string& name) { add(names, name); });
  return names;
}

std::optional<NameSet> NameTable::told_names(const Value& graph, NamedNodes which) {
  const HostGraph* const source = host_graph(graph);
  if (source == nullptr) return std::nullopt;
  NameSet names;
  const bool told = source->tell_names(which, [&](std::string_view name) { add(names, name); });
  return told ? std::optional(std::move(names)) : std::nullopt;
}

void NameTable::add(NameSet& names, std::string_view name) {
  const std::size_t number = number_of(name);
  if (names.bits_.size() <= number / kWordBits) names.bits_.resize(number / kWordBits + 1);
  std::uint64_t& word = names.bits_[number / kWordBits];
  const std::uint64_t bit = std::uint64_t{1} << (number % kWordBits);
  if ((word & bit) == 0) ++names.size_;
  word |= bit;
}

double NameTable::similarity(const NameSet& left, const NameSet& right) {
  std::size_t shared = 0;
  const std::size_t words = std::min(left.bits_.size(), right.bits_.size());
  for (std::size_t i = 0; i < words; ++i) {
    shared += static_cast<std::size_t>(std::popcount(left.bits_[i] & right.bits_[i]));
  }
  return jaccard(left.size_, right.size_, shared);
}

std::size_t NameTable::number_of(std::string_view name) {
  return numbers_.try_emplace(std::string(name), numbers_.size()).first->second;
}

}  // namespace varnholt::genetic
