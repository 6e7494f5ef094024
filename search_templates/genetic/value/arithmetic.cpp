#include "search_templates/genetic/value/arithmetic.hpp"

#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// In the order of the enumerations.
constexpr std::array<std::string_view, 3> kArithmeticSigns = {"+", "-", "*"};
constexpr std::array<std::string_view, 4> kComparisonSigns = {"<", "<=", ">", ">="};

bool is_whole_number(const Value& value) {
  return value.is_integer() || value.is_boolean();
}

std::int64_t whole(const Value& value) {
  return value.is_boolean() ? static_cast<std::int64_t>(value.boolean()) : value.integer();
}

double real_result(Arithmetic operation, double left, double right) {
  switch (operation) {
    case Arithmetic::kAdd:
      return left + right;
    case Arithmetic::kSubtract:
      return left - right;
    default:
      return left * right;
  }
}

Value whole_result(Arithmetic operation, std::int64_t left, std::int64_t right) {
  std::int64_t result = 0;
  switch (operation) {
    case Arithmetic::kAdd:
      return integer_sum(left, right);
    case Arithmetic::kSubtract:
      if (!__builtin_sub_overflow(left, right, &result)) return result;
      return negated(integer_sum(negated(left), right));
    default:
      if (!__builtin_mul_overflow(left, right, &result)) return result;
      return static_cast<double>(left) * static_cast<double>(right);
  }
}

Value calculated(Arithmetic operation, const Value& left, const Value& right) {
  if (left.is_real() && right.is_real()) {
    return real_result(operation, left.real(), right.real());
  }
  std::optional<Value> answer;
  if (left.is_object()) answer = left.object().calculate(operation, right, false);
  if (!answer && right.is_object()) answer = right.object().calculate(operation, left, true);
  if (answer) return *std::move(answer);
  if (is_whole_number(left) && is_whole_number(right)) {
    return whole_result(operation, whole(left), whole(right));
  }
  const auto is_number = [](const Value& value) {
    const Kind kind = exact_kind(value);
    return kind == Kind::kBoolean || kind == Kind::kInteger || kind == Kind::kReal;
  };
  if (is_number(left) && is_number(right)) {
    return real_result(operation, to_float(left), to_float(right));
  }
  const std::string_view sign = kArithmeticSigns[static_cast<std::size_t>(operation)];
  throw TypeError("unsupported operand type(s) for " + std::string(sign) + ": '" + type_name(left) +
                  "' and '" + type_name(right) + "'");
}

// Of values of our own kinds, among which there is no NaN.
bool native_answer(Comparison comparison, const Value& left, const Value& right) {
  switch (comparison) {
    case Comparison::kLess:
      return less(left, right);
    case Comparison::kGreater:
      return less(right, left);
    case Comparison::kAtMost:
      return !less(right, left);
    default:
      return !less(left, right);
  }
}

}  // namespace

Value plus(const Value& left, const Value& right) {
  return calculated(Arithmetic::kAdd, left, right);
}
Value minus(const Value& left, const Value& right) {
  return calculated(Arithmetic::kSubtract, left, right);
}
Value times(const Value& left, const Value& right) {
  return calculated(Arithmetic::kMultiply, left, right);
}

bool compares(Comparison comparison, const Value& left, const Value& right) {
  std::optional<bool> answer;
  if (left.is_object()) answer = left.object().compare(comparison, right, false);
  if (!answer && right.is_object()) answer = right.object().compare(comparison, left, true);
  if (!answer && !left.is_object() && !right.is_object()) {
    answer = catching(
        {ErrorKind::kTypeError},
        [&] { return std::optional(native_answer(comparison, left, right)); },
        [](const Error&) -> std::optional<bool> { return std::nullopt; });
  }
  if (answer) return *answer;
  const std::string_view sign = kComparisonSigns[static_cast<std::size_t>(comparison)];
  throw TypeError("'" + std::string(sign) + "' not supported between instances of '" +
                  type_name(left) + "' and '" + type_name(right) + "'");
}

Value rounded(const Value& number) {
  if (number.is_object()) return number.object().rounded();
  if (number.is_boolean()) return whole(number);
  if (number.is_integer()) return number;
  if (number.is_real()) {
    if (std::isinf(number.real())) {
      throw OverflowError("cannot convert float infinity to integer");
    }
    return to_integer(std::nearbyint(number.real()));
  }
  throw TypeError("type " + type_name(number) + " doesn't define __round__ method");
}

}  // namespace varnholt::genetic
