#include "search_templates/genetic/value/operations.hpp"

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "search_templates/genetic/value/big_integer.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/native_objects.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/storage.hpp"

namespace varnholt::genetic {
namespace {

bool can_be_walked(const Value& value) {
  if (value.is_object()) return value.object().can_be_walked();
  return !value.is_scalar() || value.is_text();
}

bool text_contains(const Value& text, const Value& part) {
  if (!is_instance_of(part, Kind::kText)) {
    throw TypeError("'in <string>' requires string as left operand, not " + type_name(part));
  }
  return text.text().find(part.is_text() ? part.text() : std::string_view(part.object().text())) !=
         std::string_view::npos;
}

bool sequence_contains(const Value& sequence, const Value& item) {
  const auto walk = iterate(sequence);
  while (const std::optional<Value> candidate = walk->next()) {
    if (is_same_or_equal(*candidate, item)) return true;
  }
  return false;
}

// Stands for a value that was expected to be a record and is none.
class NoRecord : public MappingStorage {
 public:
  explicit NoRecord(Value value) : value_(std::move(value)) {}

  [[nodiscard]] const void* identity() const noexcept override { return this; }
  [[nodiscard]] std::size_t size() const override { return genetic::length(value_); }
  [[nodiscard]] std::optional<Value> find(const Value& /*key*/) const override { lacks("get"); }
  [[nodiscard]] Value at(const Value& key) const override { return item(value_, key); }
  [[nodiscard]] bool contains(const Value& key) const override {
    return genetic::contains(value_, key);
  }
  void set(const Value& key, const Value& value) override {
    if (value_.is_list()) {
      if (key.is_integer()) return set_item(key.integer(), value);
      throw TypeError("list indices must be integers or slices, not " + type_name(key));
    }
    throw TypeError("'" + type_name(value_) + "' object does not support item assignment");
  }
  bool erase(const Value& /*key*/) override {
    if (value_.is_list()) throw TypeError("pop expected at most 1 argument, got 2");
    lacks("pop");
  }
  Value set_default(const Value& /*key*/, const Value& /*value*/) override { lacks("setdefault"); }
  [[nodiscard]] std::unique_ptr<Cursor> entries() const override { lacks("items"); }

 private:
  void set_item(std::int64_t index, const Value& item) {
    const List list = value_.list();
    if (index < 0) index += static_cast<std::int64_t>(list.size());
    if (index < 0) throw IndexError("list assignment index out of range");
    List(list).set(static_cast<std::size_t>(index), item);
  }
  [[noreturn]] void lacks(std::string_view operation) const {
    throw AttributeError("'" + type_name(value_) + "' object has no attribute '" +
                         std::string(operation) + "'");
  }

  Value value_;
};

Value negated_integer(std::int64_t integer) {
  if (integer != std::numeric_limits<std::int64_t>::min()) return -integer;
  return make_object<BigIntegerObject>(BigInteger(integer).negated());
}

}  // namespace

std::vector<Value> unpack(const Value& value, std::size_t count) {
  if (!can_be_walked(value)) {
    throw TypeError("cannot unpack non-iterable " + type_name(value) + " object");
  }
  const auto walk = iterate(value);
  std::vector<Value> items;
  while (items.size() < count) {
    std::optional<Value> item = walk->next();
    if (!item) {
      throw ValueError("not enough values to unpack (expected " + std::to_string(count) + ", got " +
                       std::to_string(items.size()) + ")");
    }
    items.push_back(*std::move(item));
  }
  if (walk->next()) {
    throw ValueError("too many values to unpack (expected " + std::to_string(count) + ")");
  }
  return items;
}

std::pair<Value, Value> unpack_pair(const Value& value) {
  std::vector<Value> items = unpack(value, 2);
  return {std::move(items[0]), std::move(items[1])};
}

bool contains(const Value& container, const Value& item) {
  switch (container.kind()) {
    case Kind::kMapping:
      return container.mapping().contains(item);
    case Kind::kText:
      return text_contains(container, item);
    case Kind::kList:
    case Kind::kTuple:
      return sequence_contains(container, item);
    case Kind::kObject:
      return container.object().contains(item);
    default:
      throw TypeError("argument of type '" + type_name(container) + "' is not iterable");
  }
}

Value negated(const Value& value) {
  switch (value.kind()) {
    case Kind::kBoolean:
      return value.boolean() ? -1 : 0;
    case Kind::kInteger:
      return negated_integer(value.integer());
    case Kind::kReal:
      return -value.real();
    case Kind::kObject:
      return value.object().negated();
    default:
      throw TypeError("bad operand type for unary -: '" + type_name(value) + "'");
  }
}

Value required_attribute(const Value& value, std::string_view name) {
  if (value.is_object()) return value.object().required_attribute(name);
  throw AttributeError("'" + type_name(value) + "' object has no attribute '" + std::string(name) +
                       "'");
}

bool differ(const Value& left, const Value& right) {
  if (left.is_object()) return left.object().differs(right);
  if (right.is_object()) return right.object().differs(left);
  return !(left == right);
}

Value integer_sum(const Value& integer, std::int64_t addend) {
  std::int64_t sum = 0;
  if (integer.is_integer()) {
    if (!__builtin_add_overflow(integer.integer(), addend, &sum)) return sum;
    return make_object<BigIntegerObject>(BigInteger(integer.integer()).plus(addend));
  }
  const std::string text = repr(integer);
  const bool is_negative = text.front() == '-';
  const BigInteger number = BigInteger::from_decimal_digits(
                                std::string_view(text).substr(is_negative ? 1 : 0), is_negative)
                                .plus(addend);
  if (const auto small = number.to_int64()) return *small;
  return make_object<BigIntegerObject>(number);
}

bool at_least(const Value& left, const Value& right) {
  std::optional<bool> answer;
  if (left.is_object()) answer = left.object().at_least(right);
  if (!answer && right.is_object()) answer = right.object().at_most(left);
  if (answer) return *answer;
  // Without objects there is no NaN, and what is not greater is less or equal.
  const std::optional<bool> is_less = catching(
      {ErrorKind::kTypeError}, [&] { return std::optional(less(left, right)); },
      [](const Error&) -> std::optional<bool> { return std::nullopt; });
  if (is_less) return !*is_less;
  throw TypeError("'>=' not supported between instances of '" + type_name(left) + "' and '" +
                  type_name(right) + "'");
}

Mapping expected_record(const Value& value) {
  if (std::optional<Mapping> record = as_record(value)) return *std::move(record);
  return Mapping(std::make_unique<NoRecord>(value));
}

Value entry(const Value& value, const Value& key) {
  if (const std::optional<Mapping> mapping = as_mapping(value)) return mapping->get(key);
  if (value.is_object()) return value.object().get(key);
  throw AttributeError("'" + type_name(value) + "' object has no attribute 'get'");
}

}  // namespace varnholt::genetic
