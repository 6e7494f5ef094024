#include "search_templates/genetic/population/node_names.hpp"

#include <algorithm>
#include <bit>
#include <optional>

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

template <typename Visit>
void for_each_name(const Value& graph, const Visit& visit, int depth) {
  if (depth > kMaximumNesting) throw RecursionError("maximum recursion depth exceeded");
  Value children;
  if (const std::optional<Mapping> node = as_mapping(graph)) {
    const Value name = node->get(keys::kNode);
    if (is_instance_of(name, Kind::kText) && truth(name)) visit(text_of(name));
    children = node->get(keys::kChildren, Tuple());
  } else if (is_instance_of(graph, Kind::kList) || is_instance_of(graph, Kind::kTuple)) {
    children = graph;
  } else {
    return;
  }
  const auto walk = iterate(children);
  while (const std::optional<Value> child = walk->next())
    for_each_name(*child, visit, depth + 1);
}

double jaccard(std::size_t left, std::size_t right, std::size_t shared) {
  const std::size_t all = left + right - shared;
  return all == 0 ? 0.0 : static_cast<double>(shared) / static_cast<double>(all);
}

}  // namespace

std::set<std::string> graph_node_names(const Value& graph) {
  std::set<std::string> names;
  for_each_name(
      graph, [&names](std::string name) { names.insert(std::move(name)); }, 0);
  return names;
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
  NameSet names;
  for_each_name(
      graph,
      [this, &names](const std::string& name) {
        const std::size_t number = number_of(name);
        if (names.bits_.size() <= number / kWordBits) names.bits_.resize(number / kWordBits + 1);
        std::uint64_t& word = names.bits_[number / kWordBits];
        const std::uint64_t bit = std::uint64_t{1} << (number % kWordBits);
        if ((word & bit) == 0) ++names.size_;
        word |= bit;
      },
      0);
  return names;
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
