#include "search_templates/genetic/value/copy.hpp"

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/storage.hpp"

namespace varnholt::genetic {
namespace {

// One deep copy. Only what can be met twice is remembered: a container that nothing else refers to
// is met once, so that the copy of a plain tree remembers nothing.
class DeepCopy {
 public:
  Value copy(const Value& value) {
    switch (value.kind()) {
      case Kind::kList:
        return copy_list(value);
      case Kind::kTuple:
        return copy_tuple(value);
      case Kind::kMapping:
        return copy_mapping(value);
      case Kind::kObject:
        return copy_object(value);
      default:
        return value;
    }
  }

 private:
  class Deeper {
   public:
    explicit Deeper(int& depth) : depth_(depth) {
      if (++depth_ > kMaximumNesting) {
        --depth_;
        throw RecursionError("maximum recursion depth exceeded");
      }
    }
    Deeper(const Deeper&) = delete;
    Deeper& operator=(const Deeper&) = delete;
    ~Deeper() { --depth_; }

   private:
    int& depth_;
  };

  Value copy_list(const Value& value) {
    const List source = value.list();
    const ListStorage* const storage = source.storage();
    const void* const identity = storage ? storage->identity() : value.counted();
    const bool may_recur = storage != nullptr || value.counted()->references > kOwnHandles;
    if (may_recur) {
      if (const Value* const known = find(identity)) return *known;
    }
    const Deeper deeper(depth_);
    List result(source.size());
    if (may_recur) remember(identity, value, result);
    if (storage == nullptr) {
      // Read anew at each step: an object among the items may change the list while it is copied.
      for (std::size_t i = 0; i < source.native_items().size(); ++i) {
        result.append(copy(source.native_items()[i]));
      }
      return result;
    }
    ListCursor cursor(source);
    while (const std::optional<Value> item = cursor.next())
      result.append(copy(*item));
    return result;
  }

  Value copy_mapping(const Value& value) {
    const Mapping source = value.mapping();
    const MappingStorage* const storage = source.storage();
    const void* const identity = storage ? storage->identity() : value.counted();
    const bool may_recur = storage != nullptr || value.counted()->references > kOwnHandles;
    if (may_recur) {
      if (const Value* const known = find(identity)) return *known;
    }
    const Deeper deeper(depth_);
    Mapping result(source.size());
    if (may_recur) remember(identity, value, result);
    if (storage == nullptr) {
      for (std::size_t i = 0; i < source.native_entries().size(); ++i) {
        const Value key = source.native_entries()[i].key;
        result.append_new(key, copy(source.native_entries()[i].value));
      }
      return result;
    }
    MappingCursor cursor(source);
    while (const std::optional<MappingEntry> entry = cursor.next()) {
      result.set(copy(entry->key), copy(entry->value));
    }
    return result;
  }

  Value copy_tuple(const Value& value) {
    const Deeper deeper(depth_);
    std::vector<Value> items;
    for (const Value& item : value.tuple().items())
      items.push_back(copy(item));
    return Tuple(items);
  }

  // The handle is taken by value: the object's own code may drop the one that it was met by.
  Value copy_object(Value value) {
    const void* const identity = value.object().identity();
    if (const Value* const known = find(identity)) return *known;
    Value result = value.object().deep_copy();
    remember(identity, value, result);
    return result;
  }

  [[nodiscard]] const Value* find(const void* identity) const {
    const auto known = copies_.find(identity);
    return known == copies_.end() ? nullptr : &known->second.copy;
  }
  // The source is kept alive, lest another object take its place in memory during the copy.
  void remember(const void* identity, const Value& source, const Value& copy) {
    copies_.emplace(identity, Known{source, copy});
  }

  // The count of a container that nothing else refers to: its parent's or the caller's handle, and
  // the typed handle made here.
  static constexpr std::uint32_t kOwnHandles = 2;

  struct Known {
    Value source;
    Value copy;
  };
  std::unordered_map<const void*, Known> copies_;
  int depth_ = 0;
};

}  // namespace

Value shallow_copy(const Value& value) {
  switch (value.kind()) {
    case Kind::kList: {
      List copy(value.list().size());
      copy.extend(value.list());
      return copy;
    }
    case Kind::kMapping:
      return shallow_copy(value.mapping());
    case Kind::kObject:
      return value.object().shallow_copy();
    default:
      return value;
  }
}

Mapping shallow_copy(const Mapping& mapping) {
  Mapping copy(mapping.size());
  if (mapping.is_native()) {
    for (const MappingEntry& entry : mapping.native_entries()) {
      copy.append_new(entry.key, entry.value);
    }
  } else {
    copy.update(mapping);
  }
  return copy;
}

Mapping new_mapping(const Value& source) {
  if (const std::optional<Mapping> mapping = as_mapping(source)) return shallow_copy(*mapping);
  Mapping result;
  const auto pairs = iterate(source);
  for (std::size_t index = 0; const std::optional<Value> pair = pairs->next(); ++index) {
    const auto elements = iterate(*pair);
    std::vector<Value> items;
    while (std::optional<Value> element = elements->next())
      items.push_back(*std::move(element));
    if (items.size() != 2) {
      throw ValueError("dictionary update sequence element #" + std::to_string(index) +
                       " has length " + std::to_string(items.size()) + "; 2 is required");
    }
    result.set(items[0], items[1]);
  }
  return result;
}

Value deep_copy(const Value& value) {
  return DeepCopy().copy(value);
}

}  // namespace varnholt::genetic
