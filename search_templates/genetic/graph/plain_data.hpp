// The test of what is plain graph data, and the walk over it that every form of a graph shares.
#pragma once

#include <cstdint>
#include <optional>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

enum class PlainKind : std::uint8_t { kMapping, kList, kScalar };

// What a value is as plain graph data at `depth` levels below the root. Throws TypeError for what
// is not plain, RecursionError for what lies too deep.
[[nodiscard]] inline PlainKind plain_kind(const Value& value, int depth) {
  switch (exact_kind(value)) {
    case Kind::kMapping:
    case Kind::kList:
      if (depth > kMaximumNesting) throw RecursionError("maximum recursion depth exceeded");
      return value.is_list() ? PlainKind::kList : PlainKind::kMapping;
    case Kind::kAbsent:
    case Kind::kBoolean:
    case Kind::kInteger:
    case Kind::kReal:
    case Kind::kText:
      return PlainKind::kScalar;
    default:
      throw TypeError("genetic initial candidates must contain only plain graph data");
  }
}

// Calls `visit(key, value)` for each entry, in order. A key that is no text fails before its value
// is looked at; entries before it have been visited by then.
template <typename Visit>
void for_each_entry(const Mapping& mapping, const Visit& visit) {
  const auto visit_entry = [&visit](const MappingEntry& entry) {
    if (exact_kind(entry.key) != Kind::kText) {
      throw TypeError("genetic initial candidate graph keys must be strings");
    }
    visit(entry.key, entry.value);
  };
  if (mapping.is_native()) {
    // No host code runs during the walk of a native mapping, so its entries stay where they are.
    for (const MappingEntry& entry : mapping.native_entries())
      visit_entry(entry);
    return;
  }
  MappingCursor cursor(mapping);
  while (const std::optional<MappingEntry> entry = cursor.next())
    visit_entry(*entry);
}

// Calls `visit(item)` for each item, in order.
template <typename Visit>
void for_each_item(const List& list, const Visit& visit) {
  if (list.is_native()) {
    for (const Value& item : list.native_items())
      visit(item);
    return;
  }
  ListCursor cursor(list);
  while (const std::optional<Value> item = cursor.next())
    visit(*item);
}

}  // namespace varnholt::genetic
