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
  const std::optional<double> converted = tolerant_float(value);
  return converted ? Value(*converted) : fallback;
}

Value optional_correlation(const Value& value) {
  if (value.is_absent()) return {};
  const auto must_be_finite = [] { return ValueError(std::string(kCorrelationMustBeFinite)); };
  const double converted = catching(
      kConversionErrors, [&value] { return to_float(value); },
      [&must_be_finite](const Error&) -> double { throw_in_place(must_be_finite()); });
  if (!std::isfinite(converted)) throw must_be_finite();
  return converted;
}

}  // namespace varnholt::genetic
