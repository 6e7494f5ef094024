// The copy of a tree into one block of memory: one allocation and one freeing, however many lists
// and mappings it has. For `deep_copy` and the plain copy of graphs, which measure a tree first.
#pragma once

#include <cstddef>

#include "search_templates/genetic/value/representation.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::detail {

// What the copy of a native list or mapping of so many items takes of the block.
[[nodiscard]] constexpr std::size_t list_bytes(std::size_t items) noexcept {
  return sizeof(ListRep) + items * sizeof(Value);
}
[[nodiscard]] constexpr std::size_t mapping_bytes(std::size_t entries) noexcept {
  return sizeof(MappingRep) + entries * sizeof(MappingEntry);
}

// A copy of `tree`. Every list and mapping in it must be native and is copied wherever it occurs;
// anything else is shared, also when it is the whole tree. `bytes` is the sum of what the lists and
// mappings take. The depth must have been checked: the copy recurses.
[[nodiscard]] Value copy_tree(const Value& tree, std::size_t bytes);

}  // namespace varnholt::genetic::detail
