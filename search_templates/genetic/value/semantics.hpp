// What values mean: truth, identity, equality, order, conversion, text form. All as the host's
// language has it, so that a rule gives the same answer on both sides of the boundary.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The name of the value's exact type, as messages show it: "NoneType", "bool", "int", ...
[[nodiscard]] std::string type_name(const Value& value);

// Absent, false, 0, 0.0, and an empty text, list, tuple or mapping are false; an object decides.
[[nodiscard]] bool truth(const Value& value);

// Whether both name the same thing. Scalars of one kind are the same when they are equal.
[[nodiscard]] bool same_object(const Value& left, const Value& right);

// Equality: 1 == 1.0 == true, integers compare with reals exactly, mappings ignore order, the same
// object is equal to itself inside a container. RecursionError for values nested too deep.
[[nodiscard]] bool operator==(const Value& left, const Value& right);

// Identity, or else equality: how the host's containers look for an item.
[[nodiscard]] bool is_same_or_equal(const Value& left, const Value& right);

// Equal values hash alike. TypeError "unhashable type: 'list'" for lists and mappings.
[[nodiscard]] std::uint64_t hash_slow(const Value& value);
[[nodiscard]] inline std::uint64_t hash(const Value& value) {
  return value.is_text() ? value.text_hash() : hash_slow(value);
}

[[nodiscard]] inline bool is_same_key(const Value& left, const Value& right) {
  if (left.is_text() && right.is_text()) {
    return left.counted() == right.counted() ||
           (left.text_hash() == right.text_hash() && left.text() == right.text());
  }
  return is_same_or_equal(left, right);
}

// left < right. Lists and tuples compare by the first pair that is not equal.
// TypeError "'<' not supported between instances of 'str' and 'int'".
[[nodiscard]] bool less(const Value& left, const Value& right);

// float(value): booleans, numbers, numeric texts. TypeError, ValueError or OverflowError.
[[nodiscard]] double to_float(const Value& value);
// The same as a value: what is exactly a real is that very object.
[[nodiscard]] Value float_of(const Value& value);

// int(value): truncates reals, reads decimal texts. The result is an integer, or an object beyond
// 64 bits. TypeError, ValueError or OverflowError.
[[nodiscard]] Value to_integer(const Value& value);

// An integer of any size, cut to what 64 bits hold: for counts and sizes, which never grow larger.
// TypeError for anything that cannot be an index.
[[nodiscard]] std::int64_t saturated_integer(const Value& value);
// left + right, cut likewise.
[[nodiscard]] std::int64_t saturated_sum(std::int64_t left, std::int64_t right) noexcept;

// str(value) and repr(value).
[[nodiscard]] std::string str(const Value& value);
// str(value) as a value: what is exactly a text is that very object, and an object may give a text
// of a subclass.
[[nodiscard]] Value text_form(const Value& value);
[[nodiscard]] std::string repr(const Value& value);
void append_repr(std::string& out, const Value& value);

// A handle on the value as a mapping, when it is any kind of mapping.
[[nodiscard]] std::optional<Mapping> as_mapping(const Value& value);
// The same for a record that a rule reads or writes by key: it may be any object of the host
// (HostObject::as_record). record_of throws AttributeError "'int' object has no attribute 'get'"
// for a value that has no such handle.
[[nodiscard]] std::optional<Mapping> as_record(const Value& value);
[[nodiscard]] Mapping record_of(const Value& value);
// Whether it is a text, list or tuple, or an instance of a subclass of it.
[[nodiscard]] bool is_instance_of(const Value& value, Kind kind);
// The kind whose exact type the value has; kObject where it is not one of ours.
[[nodiscard]] Kind exact_kind(const Value& value);

// len(value): TypeError "object of type 'int' has no len()".
[[nodiscard]] std::size_t length(const Value& value);
// iter(value): the keys of a mapping, the characters of a text, the items of a sequence.
// TypeError "'int' object is not iterable".
[[nodiscard]] std::unique_ptr<ValueIterator> iterate(const Value& value);
// value[index] of a text or sequence or value[key] of a mapping; IndexError, KeyError or TypeError.
[[nodiscard]] Value item(const Value& value, const Value& key);
// The attribute of an object; empty when it has none of that name; values of our own kinds have no
// attributes.
[[nodiscard]] std::optional<Value> attribute(const Value& value, std::string_view name);
// The entry `key` of a mapping or else the attribute of that name; `fallback` when it is missing.
[[nodiscard]] Value field_value(const Value& value, Key key, const Value& fallback = Value());

}  // namespace varnholt::genetic
