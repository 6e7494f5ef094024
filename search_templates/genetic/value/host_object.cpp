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

bool HostObject::is_whole() const {
  const double real = to_float();
  return std::isfinite(real) && std::trunc(real) == real;
}

double HostObject::to_float() const {
  throw TypeError("float() argument must be a string or a real number, not '" + type_name() + "'");
}

Value HostObject::to_integer() const {
  throw TypeError("int() argument must be a string, a bytes-like object or a real number, not '" +
                  type_name() + "'");
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
