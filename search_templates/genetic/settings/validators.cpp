#include "search_templates/genetic/settings/validators.hpp"

#include <cmath>
#include <string>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

// The ends of the messages.
constexpr std::string_view kInteger = "an integer";
constexpr std::string_view kIntegerOrNone = "an integer or None";
constexpr std::string_view kFiniteNumber = "a finite number";
constexpr std::string_view kFiniteNumberOrNone = "a finite number or None";
constexpr std::string_view kFinite = "finite";
constexpr std::string_view kPositive = "positive";
constexpr std::string_view kNonNegative = "non-negative";

std::string must_be(std::string_view name, std::string_view what) {
  return "genetic " + std::string(name) + " must be " + std::string(what);
}

Value finite_float(const Value& value, std::string_view name, std::string_view what) {
  Value number = catching(
      kConversionErrors, [&value] { return float_of(value); },
      [name, what](const Error&) -> Value { throw TypeError(must_be(name, what)); });
  // A NaN is no real here, but an object.
  if (!number.is_real() || !std::isfinite(number.real())) throw ValueError(must_be(name, kFinite));
  return number;
}

}  // namespace

Value positive_int(const Value& value, std::string_view name) {
  if (exact_kind(value) != Kind::kInteger) throw TypeError(must_be(name, kInteger));
  if (!less(0, value)) throw ValueError(must_be(name, kPositive));
  return value;
}

Value optional_nonnegative_int(const Value& value, std::string_view name) {
  if (value.is_absent()) return value;
  if (exact_kind(value) != Kind::kInteger) throw TypeError(must_be(name, kIntegerOrNone));
  if (less(value, 0)) throw ValueError(must_be(name, kNonNegative));
  return value;
}

Value positive_float(const Value& value, std::string_view name) {
  Value number = finite_float(value, name, kFiniteNumber);
  if (number.real() <= 0.0) throw ValueError(must_be(name, kPositive));
  return number;
}

Value optional_nonnegative_float(const Value& value, std::string_view name) {
  if (value.is_absent()) return value;
  Value number = finite_float(value, name, kFiniteNumberOrNone);
  if (number.real() < 0.0) throw ValueError(must_be(name, kNonNegative));
  return number;
}

Value nonnegative_float(const Value& value, std::string_view name) {
  Value number = finite_float(value, name, kFiniteNumber);
  if (number.real() < 0.0) throw ValueError(must_be(name, kNonNegative));
  return number;
}

}  // namespace varnholt::genetic
