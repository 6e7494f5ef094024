// Which object of the host a number, text or tuple is.
//
// Such a value is worked with as one of the library's own, and handed back as the very object that
// the host gave: a host may ask for identity. A value that is computed has no origin.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The object, and what gives back the reference that the value holds on it.
struct HostOrigin {
  void* object = nullptr;
  void (*release)(void* object) noexcept = nullptr;
};

// Each takes over one reference on the object. `real` is a number; `text` as in Value.
[[nodiscard]] Value hosted_integer(std::int64_t integer, const HostOrigin& origin);
[[nodiscard]] Value hosted_real(double real, const HostOrigin& origin);
[[nodiscard]] Value hosted_text(std::string_view text, const HostOrigin& origin);
[[nodiscard]] Value hosted_tuple(std::span<const Value> items, const HostOrigin& origin);

// The origin of such a value, or null.
[[nodiscard]] const HostOrigin* host_origin(const Value& value) noexcept;

}  // namespace varnholt::genetic
