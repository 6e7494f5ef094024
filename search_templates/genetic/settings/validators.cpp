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

double finite_float(const Value& value, std::string_view name, std::string_view what) {
  const std::optional<double> number = tolerant_float(value);
  if (!number) throw TypeError(must_be(name, what));
  if (!std::isfinite(*number)) throw ValueError(must_be(name, kFinite));
  return *number;
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

double positive_float(const Value& value, std::string_view name) {
  const double number = finite_float(value, name, kFiniteNumber);
  if (number <= 0.0) throw ValueError(must_be(name, kPositive));
  return number;
}

std::optional<double> optional_nonnegative_float(const Value& value, std::string_view name) {
  if (value.is_absent()) return std::nullopt;
  const double number = finite_float(value, name, kFiniteNumberOrNone);
  if (number < 0.0) throw ValueError(must_be(name, kNonNegative));
  return number;
}

double nonnegative_float(const Value& value, std::string_view name) {
  const double number = finite_float(value, name, kFiniteNumber);
  if (number < 0.0) throw ValueError(must_be(name, kNonNegative));
  return number;
}

}  // namespace varnholt::genetic
