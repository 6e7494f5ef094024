#include "search_templates/genetic/value/tolerant.hpp"

#include <cmath>
#include <string>
#include <string_view>

namespace varnholt::genetic {
namespace {

constexpr std::string_view kCorrelationMustBeFinite =
    "candidate correlation must be a finite number or None";

}  // namespace

Value number(const Value& value, const Value& fallback) {
  return tolerate([&value] { return float_of(value); }).value_or(fallback);
}

Value optional_correlation(const Value& value) {
  if (value.is_absent()) return {};
  const auto must_be_finite = [] { return ValueError(std::string(kCorrelationMustBeFinite)); };
  Value converted = catching(
      kConversionErrors, [&value] { return float_of(value); },
      [&must_be_finite](const Error&) -> Value { throw_in_place(must_be_finite()); });
  // A NaN is no real here, but an object.
  if (!converted.is_real() || !std::isfinite(converted.real())) throw must_be_finite();
  return converted;
}

}  // namespace varnholt::genetic
