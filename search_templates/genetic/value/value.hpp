// Open data: one small type for everything that the host and the search hand to each other.
//
// A `Value` is absent, a boolean, an integer (64 bits), a real, a text (UTF-8), a list, a tuple, a
// mapping, or an object of the host. It behaves as the host's language does:
//
// - Lists, mappings and objects are shared. Copying a Value copies a handle to the same thing, as
//   naming does in the host's language; `copy.hpp` has the explicit copies.
// - Only the host's exact types become our kinds. A subclass, another kind of mapping, an integer
//   beyond 64 bits, a NaN, a text that is not valid Unicode stay objects (`host_object.hpp`), so
//   that their identity and their own behaviour survive.
// - A mapping keeps the order of insertion, and replacing a value keeps the key's place. Any
//   hashable Value can be a key.
//
// What a list or a mapping stores its entries in is the library's own, with a direct path, or the
// host's container (`storage.hpp`). Truth, equality, order, conversions and texts are named
// functions in `semantics.hpp`.
//
//   Mapping record;
//   record.set(keys::kPasses, true);
//   if (record.get(keys::kStats).is_absent()) ...
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "search_templates/genetic/value/key.hpp"

namespace varnholt::genetic {

class HostObject;
struct HostOrigin;
class List;
class ListStorage;
class Mapping;
class MappingStorage;
class ObjectRef;
class Tuple;
class Value;

// From Text on, a Value holds a counted representation.
enum class Kind : std::uint8_t {
  kAbsent,
  kBoolean,
  kInteger,
  kReal,
  kText,
  kList,
  kTuple,
  kMapping,
  kObject
};

namespace detail {
struct HostedNumberRep;
struct ListRep;
struct MappingRep;
struct TupleRep;
// Gives back what a representation holds, however deep, without recursion.
void destroy(Kind kind, Counted* counted) noexcept;
// The first handle on a new representation.
Value adopt(Kind kind, Counted* counted) noexcept;
}  // namespace detail

class Value {
 public:
  // Absent.
  Value() noexcept : kind_(Kind::kAbsent), is_counted_(false), payload_{.integer = 0} {}
  // The constructors below are conversions on purpose: a record reads as it is written.
  // NOLINTBEGIN(google-explicit-constructor)
  template <typename T>
  requires std::is_same_v<T, bool> Value(T boolean)
  noexcept : kind_(Kind::kBoolean), is_counted_(false), payload_{.boolean = boolean} {}
  template <typename T>
  requires(std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
           (std::is_signed_v<T> || sizeof(T) < sizeof(std::int64_t))) Value(T integer)
  noexcept : kind_(Kind::kInteger), is_counted_(false), payload_{.integer = integer} {}
  // A NaN becomes an object of its own: it equals nothing but itself, by identity.
  Value(double real);
  // `text` must be valid UTF-8 without surrogates.
  Value(std::string_view text);
  Value(const std::string& text) : Value(std::string_view(text)) {}
  Value(const char* text) : Value(std::string_view(text)) {}
  Value(Key key) noexcept;
  Value(List list) noexcept;
  Value(Tuple tuple) noexcept;
  Value(Mapping mapping) noexcept;
  Value(ObjectRef object) noexcept;
  // NOLINTEND(google-explicit-constructor)

  Value(const Value& other) noexcept
      : kind_(other.kind_), is_counted_(other.is_counted_), payload_(other.payload_) {
    retain();
  }
  Value(Value&& other) noexcept
      : kind_(other.kind_), is_counted_(other.is_counted_), payload_(other.payload_) {
    other.kind_ = Kind::kAbsent;
    other.is_counted_ = false;
  }
  Value& operator=(const Value& other) noexcept {
    Value copy(other);
    swap(copy);
    return *this;
  }
  Value& operator=(Value&& other) noexcept {
    Value taken(std::move(other));
    swap(taken);
    return *this;
  }
  ~Value() { release(); }

  void swap(Value& other) noexcept {
    std::swap(kind_, other.kind_);
    std::swap(is_counted_, other.is_counted_);
    std::swap(payload_, other.payload_);
  }

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  [[nodiscard]] bool is_absent() const noexcept { return kind_ == Kind::kAbsent; }
  [[nodiscard]] bool is_boolean() const noexcept { return kind_ == Kind::kBoolean; }
  [[nodiscard]] bool is_integer() const noexcept { return kind_ == Kind::kInteger; }
  [[nodiscard]] bool is_real() const noexcept { return kind_ == Kind::kReal; }
  [[nodiscard]] bool is_text() const noexcept { return kind_ == Kind::kText; }
  [[nodiscard]] bool is_list() const noexcept { return kind_ == Kind::kList; }
  [[nodiscard]] bool is_tuple() const noexcept { return kind_ == Kind::kTuple; }
  // The exact mapping type. `as_mapping` of semantics.hpp asks whether a value is any mapping.
  [[nodiscard]] bool is_mapping() const noexcept { return kind_ == Kind::kMapping; }
  [[nodiscard]] bool is_object() const noexcept { return kind_ == Kind::kObject; }

  // Absent, a boolean, a number or a text: what holds no other values.
  [[nodiscard]] bool is_scalar() const noexcept { return kind_ <= Kind::kText; }

  // What the value holds. The kind must be the right one: check it first.
  [[nodiscard]] bool boolean() const noexcept { return payload_.boolean; }
  [[nodiscard]] std::int64_t integer() const noexcept {
    return is_counted_ ? hosted_integer() : payload_.integer;
  }
  [[nodiscard]] double real() const noexcept { return is_counted_ ? hosted_real() : payload_.real; }
  [[nodiscard]] std::string_view text() const noexcept {
    return {text_rep().characters, text_rep().size};
  }
  [[nodiscard]] List list() const noexcept;
  [[nodiscard]] Tuple tuple() const noexcept;
  [[nodiscard]] Mapping mapping() const noexcept;
  [[nodiscard]] HostObject& object() const noexcept;

  // The hash of a text, computed when it was made.
  [[nodiscard]] std::uint64_t text_hash() const noexcept { return text_rep().hash; }

  // Whether JSON shows every character of the text unescaped, determined when it was made.
  [[nodiscard]] bool text_is_plain() const noexcept { return text_rep().is_plain != 0; }

  // The counted representation of a text or container; null for a number, absent or boolean.
  [[nodiscard]] detail::Counted* counted() const noexcept {
    return kind_ >= Kind::kText ? payload_.counted : nullptr;
  }
  // The same for a value that has one: check it first.
  [[nodiscard]] detail::Counted& representation() const noexcept { return *payload_.counted; }

 private:
  friend class List;
  friend class Tuple;
  friend class Mapping;
  friend class ObjectRef;
  friend void detail::destroy(Kind kind, detail::Counted* counted) noexcept;
  friend Value detail::adopt(Kind kind, detail::Counted* counted) noexcept;
  friend const HostOrigin* host_origin(const Value& value) noexcept;

  Value(Kind kind, detail::Counted* counted) noexcept
      : kind_(kind), is_counted_(true), payload_{.counted = counted} {}

  [[nodiscard]] const detail::TextRep& text_rep() const noexcept {
    return *static_cast<const detail::TextRep*>(payload_.counted);
  }
  [[nodiscard]] std::int64_t hosted_integer() const noexcept;
  [[nodiscard]] double hosted_real() const noexcept;
  void retain() const noexcept {
    if (is_counted_ && payload_.counted->references != detail::kImmortal) {
      ++payload_.counted->references;
    }
  }
  void release() noexcept {
    if (is_counted_ && payload_.counted->references != detail::kImmortal &&
        --payload_.counted->references == 0) {
      detail::destroy(kind_, payload_.counted);
    }
  }

  Kind kind_;
  // Whether the payload is a counted representation: from Text on always, and for a number that is
  // an object of the host (host_origin.hpp).
  bool is_counted_;
  union Payload {
    bool boolean;
    std::int64_t integer;
    double real;
    detail::Counted* counted;
  } payload_;
};

// One key of a mapping with its value.
struct MappingEntry {
  Value key;
  Value value;
};

// A shared, growing sequence.
class List {
 public:
  // A new, empty list of the library's own, with room for `capacity` items.
  explicit List(std::size_t capacity = 0);
  List(std::initializer_list<Value> items);
  // A list that stands for a container of the host.
  explicit List(std::unique_ptr<ListStorage> storage);

  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] bool empty() const { return size() == 0; }
  // Throws IndexError "list index out of range".
  [[nodiscard]] Value at(std::size_t index) const;
  void set(std::size_t index, Value item);
  void append(Value item);
  void extend(const List& other);

  // The items of a list of the library's own, valid until it grows; empty for a host's list.
  [[nodiscard]] std::span<const Value> native_items() const noexcept;
  [[nodiscard]] bool is_native() const noexcept;
  // The host's container, or null.
  [[nodiscard]] ListStorage* storage() const noexcept;
  // From now on the list stands for `storage`. Gives back the items that it held until then, which
  // the caller moves into the new storage: the storage is set first, since a list may contain
  // itself.
  [[nodiscard]] List adopt(std::unique_ptr<ListStorage> storage);

 private:
  friend class Value;
  explicit List(Value value) noexcept : value_(std::move(value)) {}
  [[nodiscard]] detail::ListRep& rep() const noexcept;

  Value value_;
};

// A shared sequence that never changes.
class Tuple {
 public:
  Tuple() : Tuple(std::span<const Value>()) {}
  Tuple(std::initializer_list<Value> items) : Tuple(std::span(items.begin(), items.size())) {}
  explicit Tuple(std::span<const Value> items);

  [[nodiscard]] std::size_t size() const noexcept { return items().size(); }
  [[nodiscard]] const Value& at(std::size_t index) const;  // IndexError "tuple index out of range"
  [[nodiscard]] std::span<const Value> items() const noexcept;

 private:
  friend class Value;
  explicit Tuple(Value value) noexcept : value_(std::move(value)) {}

  Value value_;
};

// A shared mapping in the order of insertion.
class Mapping {
 public:
  // A new, empty mapping of the library's own, with room for `capacity` entries.
  explicit Mapping(std::size_t capacity = 0);
  Mapping(std::initializer_list<MappingEntry> entries);
  // A mapping that stands for a container of the host.
  explicit Mapping(std::unique_ptr<MappingStorage> storage);

  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] bool empty() const { return size() == 0; }
  // A missing key and an absent value differ here.
  [[nodiscard]] std::optional<Value> find(const Value& key) const;
  // `fallback` when the key is missing; an absent value that is there stays absent.
  [[nodiscard]] Value get(const Value& key, const Value& fallback = Value()) const;
  // Throws KeyError with the key's text form.
  [[nodiscard]] Value at(const Value& key) const;
  [[nodiscard]] bool contains(const Value& key) const;
  // Throws TypeError "unhashable type: ..." for a value that cannot be a key.
  void set(const Value& key, Value value);
  // Sets the key unless it is there, whatever value it holds; returns what it holds then.
  Value set_default(const Value& key, const Value& value);
  // Whether the key was there.
  bool erase(const Value& key);
  // Sets every entry of `other`, in its order, as new_mapping() reads them (copy.hpp).
  void update(const Mapping& other);

  // The entries of a mapping of the library's own, valid until it changes; empty for a host's.
  [[nodiscard]] std::span<const MappingEntry> native_entries() const noexcept;
  [[nodiscard]] bool is_native() const noexcept;
  // The host's container, or null.
  [[nodiscard]] MappingStorage* storage() const noexcept;
  // As List::adopt.
  [[nodiscard]] Mapping adopt(std::unique_ptr<MappingStorage> storage);

  // Appends without checking whether the key is there: for copies, whose keys are known to differ.
  void append_new(Value key, Value value);

 private:
  friend class Value;
  explicit Mapping(Value value) noexcept : value_(std::move(value)) {}
  [[nodiscard]] detail::MappingRep& rep() const noexcept;

  Value value_;
};

// A counted reference to an object of the host.
class ObjectRef {
 public:
  // Takes over the reference that a new object is born with.
  explicit ObjectRef(HostObject* object) noexcept;

  [[nodiscard]] HostObject& operator*() const noexcept { return value_.object(); }
  [[nodiscard]] HostObject* operator->() const noexcept { return &value_.object(); }

 private:
  friend class Value;

  Value value_;
};

template <typename T, typename... Arguments>
[[nodiscard]] ObjectRef make_object(Arguments&&... arguments) {
  return ObjectRef(new T(std::forward<Arguments>(arguments)...));
}

// An iterator over a list, as the host's language has it: by index, so that items appended
// meanwhile are seen.
class ListCursor {
 public:
  explicit ListCursor(List list) : list_(std::move(list)) {}
  [[nodiscard]] std::optional<Value> next();

 private:
  List list_;
  std::size_t index_ = 0;
};

// An iterator over a mapping in its order. `next` throws RuntimeError "dictionary changed size
// during iteration" when the size has changed meanwhile; a mapping that is handed to the host
// during the iteration is iterated to its end.
class MappingCursor {
 public:
  explicit MappingCursor(Mapping mapping);
  MappingCursor(const MappingCursor&) = delete;
  MappingCursor& operator=(const MappingCursor&) = delete;
  MappingCursor(MappingCursor&&) noexcept;
  MappingCursor& operator=(MappingCursor&&) noexcept;
  ~MappingCursor();
  [[nodiscard]] std::optional<MappingEntry> next();

 private:
  struct Host;
  Mapping mapping_;
  std::size_t index_ = 0;
  std::size_t size_at_start_ = 0;
  std::unique_ptr<Host> host_;
};

inline Value::Value(Key key) noexcept
    : kind_(Kind::kText),
      is_counted_(true),
      // The count of a fixed text says that nobody may write it, so constness is kept in fact.
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
      payload_{.counted = const_cast<detail::TextRep*>(&key.rep())} {}
inline Value detail::adopt(Kind kind, Counted* counted) noexcept {
  return {kind, counted};
}
inline Value::Value(List list) noexcept : Value(std::move(list.value_)) {}
inline Value::Value(Tuple tuple) noexcept : Value(std::move(tuple.value_)) {}
inline Value::Value(Mapping mapping) noexcept : Value(std::move(mapping.value_)) {}
inline Value::Value(ObjectRef object) noexcept : Value(std::move(object.value_)) {}
inline List Value::list() const noexcept {
  return List(Value(*this));
}
inline Tuple Value::tuple() const noexcept {
  return Tuple(Value(*this));
}
inline Mapping Value::mapping() const noexcept {
  return Mapping(Value(*this));
}

}  // namespace varnholt::genetic
