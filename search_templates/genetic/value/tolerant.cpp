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
  const std::optional<double> converted = tolerant_float(value);
  if (!converted || !std::isfinite(*converted)) {
    throw ValueError(std::string(kCorrelationMustBeFinite));
  }
  return *converted;
}

}  // namespace varnholt::genetic
