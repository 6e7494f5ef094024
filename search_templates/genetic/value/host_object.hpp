// An object of the host inside a Value: whatever is not exactly one of our kinds.
//
// The object answers for itself. The defaults are those of a plain object of the host's language:
// true, equal to itself alone, not a number, not a sequence, without attributes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "search_templates/genetic/value/number_operators.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// An iterator over anything that can be iterated: one item a call.
class ValueIterator {
 public:
  virtual ~ValueIterator() = default;
  [[nodiscard]] virtual std::optional<Value> next() = 0;
};

class HostObject : public detail::Counted {
 public:
  HostObject() = default;
  HostObject(const HostObject&) = delete;
  HostObject& operator=(const HostObject&) = delete;
  virtual ~HostObject() = default;

  // The name of its exact type, as messages show it.
  [[nodiscard]] virtual std::string type_name() const = 0;

  // The kind whose exact type the object has although it cannot be stored as that kind: an integer
  // beyond 64 bits, a NaN, a text that is not valid Unicode. kObject for every other object.
  [[nodiscard]] virtual Kind exact_kind() const { return Kind::kObject; }
  // Two objects are the same when these are equal.
  [[nodiscard]] virtual const void* identity() const noexcept { return this; }

  [[nodiscard]] virtual bool truth() const { return true; }
  // Equality in the host's sense; identity has been tested before.
  [[nodiscard]] virtual bool equals(const Value& other) const;
  // Whether equals() has asked the other side as well, so that its answer stands.
  [[nodiscard]] virtual bool equals_for_both() const { return false; }
  // this != other, which a class may answer otherwise than by equality.
  [[nodiscard]] virtual bool differs(const Value& other) const { return !equals(other); }
  // Equal values hash alike, also an object and a value of ours (`hash` of semantics.hpp).
  // Throws TypeError when the object cannot be a key.
  [[nodiscard]] virtual std::uint64_t hash() const;
  // this < other, and other < this. Empty when the host has no such order.
  [[nodiscard]] virtual std::optional<bool> less(const Value& other) const;
  [[nodiscard]] virtual std::optional<bool> greater(const Value& other) const;
  // this >= other, and other >= this: by the order above and equality, unless the object defines
  // them otherwise.
  [[nodiscard]] virtual std::optional<bool> at_least(const Value& other) const;
  [[nodiscard]] virtual std::optional<bool> at_most(const Value& other) const;

  // this + other and so on, or other + this where `reversed`; this < other and so on likewise.
  // Empty when the host has no such operation for the two.
  [[nodiscard]] virtual std::optional<Value> calculate(Arithmetic operation, const Value& other,
                                                       bool reversed) const;
  [[nodiscard]] virtual std::optional<bool> compare(Comparison comparison, const Value& other,
                                                    bool reversed) const;
  // round(this).
  [[nodiscard]] virtual Value rounded() const;

  // For an instance of the real type: whether it has no fraction, by its own answer.
  [[nodiscard]] virtual bool is_whole() const;
  // float() and int() of the object; TypeError when it is not convertible.
  [[nodiscard]] virtual double to_float() const;
  // float() as a value: an object that is exactly a real is itself.
  [[nodiscard]] virtual Value float_value() const;
  [[nodiscard]] virtual Value to_integer() const;
  // The object as a count or an index; TypeError "'float' object cannot be interpreted as an
  // integer".
  [[nodiscard]] virtual Value to_index() const;
  [[nodiscard]] virtual std::string str() const { return repr(); }
  // str() as a value, which may be an object: a text of a subclass.
  [[nodiscard]] virtual Value text_form() const { return str(); }
  [[nodiscard]] virtual std::string repr() const;
  // Appends the object's JSON text and returns true, or returns false when it has none.
  virtual bool append_json(std::string& out) const;

  // A handle on the object as a mapping, when it is one (an exact mapping is no object).
  [[nodiscard]] virtual std::optional<Mapping> as_mapping() const { return std::nullopt; }
  // A handle on the object as what is read by `get` and written by key, whether or not it is a
  // mapping; an operation that it lacks fails when it is called. Nothing when the host has no such
  // objects.
  [[nodiscard]] virtual std::optional<Mapping> as_record() const { return as_mapping(); }
  // A new mapping made of the object as the host makes one; nothing when that is what new_mapping()
  // of copy.hpp does.
  [[nodiscard]] virtual std::optional<Mapping> new_mapping() const { return std::nullopt; }
  // Whether it is an instance of the list, tuple or text type.
  [[nodiscard]] virtual bool is_instance_of(Kind kind) const;
  // The text of an instance of the text type.
  [[nodiscard]] virtual std::string text() const { return str(); }
  [[nodiscard]] virtual std::size_t length() const;                      // TypeError: has no len()
  [[nodiscard]] virtual std::unique_ptr<ValueIterator> iterate() const;  // TypeError: not iterable
  // Whether it has a walk at all, whatever that then gives or fails with.
  [[nodiscard]] virtual bool can_be_walked() const { return true; }
  [[nodiscard]] virtual Value item(const Value& key) const;  // TypeError: no items
  // Whether the object holds `item`. TypeError when the object does not support the question.
  [[nodiscard]] virtual bool contains(const Value& item) const;
  // The object's operation `get`, for one that is not a mapping. AttributeError when it has none.
  [[nodiscard]] virtual Value get(const Value& key) const;
  // -value. TypeError for anything but a number.
  [[nodiscard]] virtual Value negated() const;
  [[nodiscard]] virtual bool is_callable() const { return false; }
  // object(*positional, **keywords); TypeError for what cannot be called.
  [[nodiscard]] virtual Value call(std::span<const Value> positional,
                                   const Mapping& keywords) const;
  // A missing attribute and an absent value differ.
  [[nodiscard]] virtual std::optional<Value> attribute(std::string_view name) const;
  // AttributeError for a missing one.
  [[nodiscard]] virtual Value required_attribute(std::string_view name) const;

  [[nodiscard]] virtual Value deep_copy() const;
  // The deep copy of the whole value `root` in which this object was found, for a host that copies
  // its objects together with what they share; nothing when the object is copied by itself, by
  // deep_copy(), which is not called otherwise.
  [[nodiscard]] virtual std::optional<Value> deep_copy_of(const Value& root) const;
  [[nodiscard]] virtual Value shallow_copy() const { return self(); }

 protected:
  // A handle on this very object.
  [[nodiscard]] Value self() const;
};

}  // namespace varnholt::genetic
