#include "search_templates/genetic/graph/plain_graph.hpp"

#include <optional>
#include <vector>

#include "search_templates/genetic/graph/host_graph.hpp"
#include "search_templates/genetic/graph/plain_data.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tree_copy.hpp"

namespace varnholt::genetic {
namespace {

constexpr Key kDict = key<"dict">();
constexpr Key kList = key<"list">();
constexpr Key kScalar = key<"scalar">();

// The copy that the host makes of its own mapping, where it can.
std::optional<Value> copy_of_the_host(const Value& value) {
  const HostGraph* const graph = host_graph(value);
  return graph == nullptr ? std::nullopt : graph->plain_copy();
}

// The copy of a graph with containers of the host in it.
Value copy_plain(const Value& value, int depth) {
  switch (plain_kind(value, depth)) {
    case PlainKind::kMapping: {
      Mapping copy(value.mapping().size());
      for_each_entry(value, [&](const Value& key, const Value& child) {
        copy.append_new(key, copy_plain(child, depth + 1));
      });
      return copy;
    }
    case PlainKind::kList: {
      List copy(value.list().size());
      for_each_item(value, [&](const Value& child) { copy.append(copy_plain(child, depth + 1)); });
      return copy;
    }
    case PlainKind::kScalar:
      break;
  }
  return value;
}

Value freeze(const Value& value, int depth) {
  switch (plain_kind(value, depth)) {
    case PlainKind::kMapping: {
      std::vector<Value> pairs;
      for_each_entry(value, [&](const Value& key, const Value& child) {
        pairs.emplace_back(Tuple{key, freeze(child, depth + 1)});
      });
      return Tuple{kDict, Tuple(pairs)};
    }
    case PlainKind::kList: {
      std::vector<Value> items;
      for_each_item(value, [&](const Value& child) { items.push_back(freeze(child, depth + 1)); });
      return Tuple{kList, Tuple(items)};
    }
    case PlainKind::kScalar:
      break;
  }
  return Tuple{kScalar, value};
}

Value thaw(const Value& frozen, int depth) {
  if (depth > kMaximumNesting) throw RecursionError("maximum recursion depth exceeded");
  // Read by index, so that a sequence longer than a pair is not refused.
  const Value kind = item(frozen, 0);
  Value payload = item(frozen, 1);
  if (kind == kDict) {
    Mapping mapping;
    const auto pairs = iterate(payload);
    while (const std::optional<Value> pair = pairs->next()) {
      mapping.set(item(*pair, 0), thaw(item(*pair, 1), depth + 1));
    }
    return mapping;
  }
  if (kind == kList) {
    List list;
    const auto items = iterate(payload);
    while (const std::optional<Value> child = items->next())
      list.append(thaw(*child, depth + 1));
    return list;
  }
  if (kind == kScalar) return payload;
  throw TypeError("invalid frozen genetic graph data");
}

}  // namespace

Value plain_graph_data(const Value& value) {
  const std::optional<std::size_t> bytes = native_tree_bytes(value);
  if (bytes) return detail::copy_tree(value, *bytes);
  std::optional<Value> copy = copy_of_the_host(value);
  return copy ? *std::move(copy) : copy_plain(value, 0);
}

Value freeze_graph_data(const Value& value) {
  return freeze(value, 0);
}

Value thaw_graph_data(const Value& frozen) {
  return thaw(frozen, 0);
}

Value plain_initial_candidates(const Value& initial_candidates) {
  if (initial_candidates.is_absent()) return {};
  if (!initial_candidates.is_list()) {
    throw TypeError("genetic initial_candidates must be a list of graph dictionaries");
  }
  std::vector<Value> frozen;
  for_each_item(initial_candidates,
                [&](const Value& graph) { frozen.push_back(freeze_graph_data(graph)); });
  return Tuple(frozen);
}

}  // namespace varnholt::genetic
