// Conversions that give nothing instead of failing.
//
// They tolerate exactly TypeError, ValueError and OverflowError; whatever else a value's own
// conversion throws propagates.
#pragma once

#include <optional>
#include <utility>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

// The result of `conversion()`, or nothing when it fails with one of the three tolerated errors.
template <typename Conversion>
[[nodiscard]] auto tolerate(Conversion&& conversion)
    -> std::optional<decltype(std::forward<Conversion>(conversion)())> {
  using Result = std::optional<decltype(std::forward<Conversion>(conversion)())>;
  return catching(
      kConversionErrors,
      [&conversion]() -> Result { return std::forward<Conversion>(conversion)(); },
      [](const Error&) -> Result { return std::nullopt; });
}

// float(value), or nothing. There is no test for finiteness.
[[nodiscard]] inline std::optional<double> tolerant_float(const Value& value) {
  return tolerate([&value] { return to_float(value); });
}

// int(value), or nothing.
[[nodiscard]] inline std::optional<Value> tolerant_integer(const Value& value) {
  return tolerate([&value] { return to_integer(value); });
}

// float(value), or `fallback` as it is when the conversion fails. NaN and infinities pass through.
[[nodiscard]] Value number(const Value& value, const Value& fallback = Value(0.0));

// A candidate's correlation. Absent stays absent; ValueError "candidate correlation must be a
// finite number or None" for a value that cannot be converted or is not finite.
[[nodiscard]] Value optional_correlation(const Value& value);

}  // namespace varnholt::genetic
