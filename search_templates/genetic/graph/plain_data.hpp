// The test for plain graph data, and the walk over it that all forms of a graph share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/native_view.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

enum class PlainKind : std::uint8_t { kMapping, kList, kScalar };

// The texts of what the functions below throw.
[[noreturn]] void refuse_value();
[[noreturn]] void refuse_key();
[[noreturn]] void refuse_depth();

inline void require_depth(int depth) {
  if (depth > kMaximumNesting) refuse_depth();
}

// What a value is as plain graph data at `depth` levels below the root. Throws TypeError for a
// value that is not plain, RecursionError for one nested too deep.
[[nodiscard]] inline PlainKind plain_kind(const Value& value, int depth) {
  if (value.is_scalar()) return PlainKind::kScalar;
  if (value.is_mapping() || value.is_list()) {
    require_depth(depth);
    return value.is_list() ? PlainKind::kList : PlainKind::kMapping;
  }
  // An object may be a scalar that our kinds cannot hold; a tuple is not plain.
  if (value.is_tuple() || exact_kind(value) == Kind::kObject) refuse_value();
  return PlainKind::kScalar;
}

inline void require_plain_key(const Value& key) {
  if (!key.is_text() && exact_kind(key) != Kind::kText) refuse_key();
}

// Calls `visit(key, value)` for each entry of a mapping, in order. A key that is not a text fails
// before its value is looked at; entries before it have been visited by then.
template <typename Visit>
void for_each_entry(const Value& mapping, const Visit& visit) {
  MappingCursor cursor(mapping.mapping());
  while (const std::optional<MappingEntry> entry = cursor.next()) {
    require_plain_key(entry->key);
    visit(entry->key, entry->value);
  }
}

// Calls `visit(item)` for each item of a list, in order.
template <typename Visit>
void for_each_item(const Value& list, const Visit& visit) {
  ListCursor cursor(list.list());
  while (const std::optional<Value> item = cursor.next())
    visit(*item);
}

// Tests a graph whose lists and mappings are all the library's own, and returns the bytes that a
// copy of them takes in one block of memory. Nothing at the first container of the host: what
// follows it is then not tested. Throws as plain_kind and for_each_entry do.
[[nodiscard]] std::optional<std::size_t> native_tree_bytes(const Value& graph);

}  // namespace varnholt::genetic
