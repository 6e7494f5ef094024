#include "search_templates/genetic/value/native_objects.hpp"

#include <compare>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
namespace {

// How `number` stands to another number; nothing when `other` is no number that is known here.
std::optional<std::partial_ordering> order(const BigInteger& number, const Value& other) {
  switch (other.kind()) {
    case Kind::kBoolean:
      return compare_exactly(number, static_cast<std::int64_t>(other.boolean()));
    case Kind::kInteger:
      return compare_exactly(number, other.integer());
    case Kind::kReal:
      return compare_exactly(number, other.real());
    case Kind::kObject:
      if (const auto* const big = dynamic_cast<const BigIntegerObject*>(&other.object())) {
        return number <=> big->number();
      }
      if (dynamic_cast<const NotANumber*>(&other.object()) != nullptr) {
        return std::partial_ordering::unordered;
      }
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

bool is_number(const Value& value) {
  switch (value.kind()) {
    case Kind::kBoolean:
    case Kind::kInteger:
    case Kind::kReal:
      return true;
    case Kind::kObject: {
      const Kind exact = value.object().exact_kind();
      return exact == Kind::kInteger || exact == Kind::kReal;
    }
    default:
      return false;
  }
}

}  // namespace

std::optional<bool> NotANumber::less(const Value& other) const {
  return is_number(other) ? std::optional(false) : std::nullopt;
}

std::optional<bool> NotANumber::greater(const Value& other) const {
  return less(other);
}

Value NotANumber::to_integer() const {
  throw ValueError("cannot convert float NaN to integer");
}

Value NotANumber::negated() const {
  return make_object<NotANumber>();
}

bool NotANumber::append_json(std::string& out) const {
  out += "NaN";
  return true;
}

bool BigIntegerObject::equals(const Value& other) const {
  return order(number_, other) == std::partial_ordering::equivalent;
}

std::uint64_t BigIntegerObject::hash() const {
  return static_cast<std::uint64_t>(number_.hash());
}

std::optional<bool> BigIntegerObject::less(const Value& other) const {
  const auto ordering = order(number_, other);
  return ordering ? std::optional(*ordering < 0) : std::nullopt;
}

std::optional<bool> BigIntegerObject::greater(const Value& other) const {
  const auto ordering = order(number_, other);
  return ordering ? std::optional(*ordering > 0) : std::nullopt;
}

double BigIntegerObject::to_float() const {
  return number_.to_double();
}

Value BigIntegerObject::negated() const {
  const Integer opposite = genetic::to_integer(number_.negated());
  if (const auto* const small = std::get_if<std::int64_t>(&opposite)) return *small;
  return make_object<BigIntegerObject>(std::get<BigInteger>(opposite));
}

std::string BigIntegerObject::repr() const {
  return number_.to_decimal();
}

bool BigIntegerObject::append_json(std::string& out) const {
  number_.append_decimal(out);
  return true;
}

}  // namespace varnholt::genetic
