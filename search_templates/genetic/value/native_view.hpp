// Direct reading of lists and mappings of the library's own: no handle is made and no virtual
// function is called, which makes the walk over a graph fast.
//
// The views are valid only as long as the container does not change, so a walk that may call the
// host reads them again after each step, and holds a handle on each container that it descends
// into.
#pragma once

#include <span>

#include "search_templates/genetic/value/representation.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// All of them: `value` must be a list or a mapping, as the name says.

// Whether it is the library's own.
[[nodiscard]] inline bool is_native_list(const Value& value) noexcept {
  return static_cast<const detail::ListRep&>(value.representation()).storage == nullptr;
}
[[nodiscard]] inline bool is_native_mapping(const Value& value) noexcept {
  return static_cast<const detail::MappingRep&>(value.representation()).storage == nullptr;
}

// The items or entries of one that is; empty for one of the host's.
[[nodiscard]] inline std::span<const Value> native_items(const Value& value) noexcept {
  return static_cast<detail::ListRep&>(value.representation()).items.items();
}
[[nodiscard]] inline std::span<const MappingEntry> native_entries(const Value& value) noexcept {
  return static_cast<detail::MappingRep&>(value.representation()).entries.items();
}

}  // namespace varnholt::genetic
