#include "search_templates/genetic/graph/plain_data.hpp"

#include <span>

#include "search_templates/genetic/value/tree_copy.hpp"

namespace varnholt::genetic {
namespace {

// Adds the bytes of a value and all below it; false when a container of the host is among them.
bool add_bytes(const Value& value, int depth, std::size_t& bytes);

bool add_list_bytes(const Value& list, int depth, std::size_t& bytes) {
  require_depth(depth);
  if (!is_native_list(list)) return false;
  const std::span<const Value> items = native_items(list);
  bytes += detail::list_bytes(items.size());
  for (const Value& item : items) {
    if (!item.is_scalar() && !add_bytes(item, depth + 1, bytes)) return false;
  }
  return true;
}

// The list of a node's children is walked in its place: the recursion takes one step a node.
bool add_mapping_bytes(const Value& mapping, int depth, std::size_t& bytes) {
  if (!is_native_mapping(mapping)) return false;
  const std::span<const MappingEntry> entries = native_entries(mapping);
  bytes += detail::mapping_bytes(entries.size());
  for (const MappingEntry& entry : entries) {
    require_plain_key(entry.key);
    if (entry.value.is_scalar()) continue;
    if (entry.value.is_list()) {
      if (!add_list_bytes(entry.value, depth + 1, bytes)) return false;
    } else if (!add_bytes(entry.value, depth + 1, bytes)) {
      return false;
    }
  }
  return true;
}

bool add_bytes(const Value& value, int depth, std::size_t& bytes) {
  switch (plain_kind(value, depth)) {
    case PlainKind::kMapping:
      return add_mapping_bytes(value, depth, bytes);
    case PlainKind::kList:
      return add_list_bytes(value, depth, bytes);
    case PlainKind::kScalar:
      break;
  }
  return true;
}

}  // namespace

void refuse_value() {
  throw TypeError("genetic initial candidates must contain only plain graph data");
}

void refuse_key() {
  throw TypeError("genetic initial candidate graph keys must be strings");
}

void refuse_depth() {
  throw RecursionError("maximum recursion depth exceeded");
}

std::optional<std::size_t> native_tree_bytes(const Value& graph) {
  std::size_t bytes = 0;
  return add_bytes(graph, 0, bytes) ? std::optional(bytes) : std::nullopt;
}

}  // namespace varnholt::genetic
