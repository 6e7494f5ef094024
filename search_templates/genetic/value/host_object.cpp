#include "search_templates/genetic/value/host_object.hpp"

#include <cmath>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {

bool HostObject::equals(const Value& /*other*/) const {
  return false;
}

std::uint64_t HostObject::hash() const {
  // Objects are aligned, so the lowest bits of an address say nothing.
  const auto address = reinterpret_cast<std::uintptr_t>(identity());
  return (address >> 4U) | (address << 60U);
}

std::optional<bool> HostObject::less(const Value& /*other*/) const {
  return std::nullopt;
}
std::optional<bool> HostObject::greater(const Value& /*other*/) const {
  return std::nullopt;
}

std::optional<bool> HostObject::at_least(const Value& other) const {
  const std::optional<bool> is_greater = greater(other);
  if (!is_greater) return std::nullopt;
  return *is_greater || equals(other);
}
std::optional<bool> HostObject::at_most(const Value& other) const {
  const std::optional<bool> is_less = less(other);
  if (!is_less) return std::nullopt;
  return *is_less || equals(other);
}

std::optional<Value> HostObject::calculate(Arithmetic /*operation*/, const Value& /*other*/,
                                           bool /*reversed*/) const {
  return std::nullopt;
}

std::optional<bool> HostObject::compare(Comparison comparison, const Value& other,
                                        bool reversed) const {
  switch (comparison) {
    case Comparison::kLess:
      return reversed ? greater(other) : less(other);
    case Comparison::kGreater:
      return reversed ? less(other) : greater(other);
    case Comparison::kAtLeast:
      return reversed ? at_most(other) : at_least(other);
    case Comparison::kAtMost:
      return reversed ? at_least(other) : at_most(other);
  }
  return std::nullopt;
}

Value HostObject::rounded() const {
  if (exact_kind() == Kind::kInteger || exact_kind() == Kind::kReal) return to_integer();
  throw TypeError("type " + type_name() + " doesn't define __round__ method");
}

bool HostObject::is_whole() const {
  const double real = to_float();
  return std::isfinite(real) && std::trunc(real) == real;
}

double HostObject::to_float() const {
  throw TypeError("float() argument must be a string or a real number, not '" + type_name() + "'");
}

Value HostObject::float_value() const {
  return exact_kind() == Kind::kReal ? self() : Value(to_float());
}

Value HostObject::to_integer() const {
  throw TypeError("int() argument must be a string, a bytes-like object or a real number, not '" +
                  type_name() + "'");
}

Value HostObject::to_index() const {
  if (is_instance_of(Kind::kInteger)) return to_integer();
  throw TypeError("'" + type_name() + "' object cannot be interpreted as an integer");
}

std::string HostObject::repr() const {
  return "<" + type_name() + " object>";
}

bool HostObject::append_json(std::string& /*out*/) const {
  return false;
}

bool HostObject::is_instance_of(Kind kind) const {
  return exact_kind() == kind;
}

std::size_t HostObject::length() const {
  throw TypeError("object of type '" + type_name() + "' has no len()");
}

std::unique_ptr<ValueIterator> HostObject::iterate() const {
  throw TypeError("'" + type_name() + "' object is not iterable");
}

Value HostObject::item(const Value& /*key*/) const {
  throw TypeError("'" + type_name() + "' object is not subscriptable");
}

bool HostObject::contains(const Value& /*item*/) const {
  throw TypeError("argument of type '" + type_name() + "' is not iterable");
}

Value HostObject::get(const Value& /*key*/) const {
  throw AttributeError("'" + type_name() + "' object has no attribute 'get'");
}

Value HostObject::negated() const {
  throw TypeError("bad operand type for unary -: '" + type_name() + "'");
}

Value HostObject::call(std::span<const Value> /*positional*/, const Mapping& /*keywords*/) const {
  throw TypeError("'" + type_name() + "' object is not callable");
}

std::optional<Value> HostObject::attribute(std::string_view /*name*/) const {
  return std::nullopt;
}

Value HostObject::required_attribute(std::string_view name) const {
  std::optional<Value> found = attribute(name);
  if (found) return *std::move(found);
  throw AttributeError("'" + type_name() + "' object has no attribute '" + std::string(name) + "'");
}

Value HostObject::deep_copy() const {
  return self();
}

std::optional<Value> HostObject::deep_copy_of(const Value& /*root*/) const {
  return std::nullopt;
}

Value HostObject::self() const {
  auto* const object =
      const_cast<HostObject*>(this);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  ++object->references;
  return ObjectRef(object);
}

}  // namespace varnholt::genetic
