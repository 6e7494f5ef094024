// Containers of the host behind our lists and mappings.
//
// A list or mapping that comes from a host, or has once been handed to it, *is* the host's object
// from then on: every read and write goes through one of these classes, so what one side writes the
// other sees. Every operation may throw what the host's container throws.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class ListStorage {
 public:
  virtual ~ListStorage() = default;

  // The host's object itself: two lists are the same object when these are equal.
  [[nodiscard]] virtual const void* identity() const noexcept = 0;
  [[nodiscard]] virtual std::size_t size() const = 0;
  // `index` is below the size at the time of the call; throws IndexError otherwise.
  [[nodiscard]] virtual Value at(std::size_t index) const = 0;
  virtual void set(std::size_t index, const Value& item) = 0;
  virtual void append(const Value& item) = 0;
};

class MappingStorage {
 public:
  // An iterator over the entries, valid only as long as the storage lives. Throws RuntimeError when
  // the container has changed its size meanwhile.
  class Cursor {
   public:
    virtual ~Cursor() = default;
    [[nodiscard]] virtual std::optional<MappingEntry> next() = 0;
  };

  virtual ~MappingStorage() = default;

  // The host's object itself: two mappings are the same object when these are equal.
  [[nodiscard]] virtual const void* identity() const noexcept = 0;
  [[nodiscard]] virtual std::size_t size() const = 0;
  [[nodiscard]] virtual std::optional<Value> find(const Value& key) const = 0;
  // mapping.get(key, fallback) and mapping[key], for containers that define them as more than a
  // look-up.
  [[nodiscard]] virtual Value get(const Value& key, const Value& fallback) const {
    return find(key).value_or(fallback);
  }
  [[nodiscard]] virtual Value at(const Value& key) const;  // KeyError with the key's text form.
  // For containers that define membership as more than a look-up.
  [[nodiscard]] virtual bool contains(const Value& key) const { return find(key).has_value(); }
  virtual void set(const Value& key, const Value& value) = 0;
  virtual bool erase(const Value& key) = 0;
  // mapping.setdefault(key, value), for containers that define it as more than a look-up and a
  // write.
  virtual Value set_default(const Value& key, const Value& value) {
    if (std::optional<Value> held = find(key)) return *std::move(held);
    set(key, value);
    return value;
  }
  [[nodiscard]] virtual std::unique_ptr<Cursor> entries() const = 0;
  // A new mapping with the entries, made as the host makes one of this container; nothing where
  // copying the entries one by one does just that.
  [[nodiscard]] virtual std::optional<Mapping> new_mapping() const { return std::nullopt; }
};

}  // namespace varnholt::genetic
