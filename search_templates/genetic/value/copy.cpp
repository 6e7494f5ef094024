#include "search_templates/genetic/value/copy.hpp"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/native_view.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/storage.hpp"
#include "search_templates/genetic/value/tree_copy.hpp"

namespace varnholt::genetic {
namespace {

// Thrown where an object is met whose host copies the whole value: what was copied so far is given
// up, since the object may share containers with it. Nothing of the host has seen it.
struct CopiedAsAWhole {
  Value copy;
};

// One deep copy. Only what can be met twice is remembered: a container that nothing else refers to
// is met once, so that the copy of a plain tree remembers nothing.
class DeepCopy {
 public:
  explicit DeepCopy(const Value& root) : root_(root) {}

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
  // One level of nesting, for as long as it lives.
  class Deeper {
   public:
    explicit Deeper(int& depth) : depth_(depth) {
      if (depth_ == kMaximumNesting) throw RecursionError("maximum recursion depth exceeded");
      ++depth_;
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
    const bool may_recur = storage != nullptr || may_be_met_again(value);
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
    const bool may_recur = storage != nullptr || may_be_met_again(value);
    if (may_recur) {
      if (const Value* const known = find(identity)) return *known;
    }
    const Deeper deeper(depth_);
    Mapping result(source.size());
    if (may_recur) remember(identity, value, result);
    if (storage == nullptr) {
      for (std::size_t i = 0; i < source.native_entries().size(); ++i) {
        copy_entry(result, source.native_entries()[i]);
      }
      return result;
    }
    MappingCursor cursor(source);
    while (const std::optional<MappingEntry> entry = cursor.next())
      copy_entry(result, *entry);
    return result;
  }

  // A text is a key of its own as it is; the copy of another key might equal one that is there.
  void copy_entry(Mapping& result, const MappingEntry& entry) {
    if (entry.key.is_text()) {
      Value key = entry.key;
      result.append_new(std::move(key), copy(entry.value));
      return;
    }
    const Value key = entry.key;
    Value value = copy(entry.value);
    result.set(copy(key), std::move(value));
  }

  // A tuple cannot be remembered before its items are copied.
  Value copy_tuple(const Value& value) {
    const Value source = value;
    const bool may_recur = may_be_met_again(value);
    if (may_recur) {
      if (const Value* const known = find(source.counted())) return *known;
    }
    const Deeper deeper(depth_);
    const Tuple tuple = source.tuple();
    std::vector<Value> items;
    items.reserve(tuple.size());
    bool changed = false;
    for (const Value& item : tuple.items()) {
      items.push_back(copy(item));
      changed = changed || !same_object(items.back(), item);
    }
    if (!may_recur) return changed ? Value(Tuple(items)) : source;
    // An item that contains the tuple has led to the copy of it already, in which the item is met
    // for the second time and so was remembered.
    if (const Value* const known = find(source.counted())) return *known;
    Value result = changed ? Value(Tuple(items)) : source;
    remember(source.counted(), source, result);
    return result;
  }

  // The handle is taken by value: the object's own code may drop the one that it was met by.
  Value copy_object(Value value) {
    const void* const identity = value.object().identity();
    if (const Value* const known = find(identity)) return *known;
    if (std::optional<Value> whole = value.object().deep_copy_of(root_)) {
      throw CopiedAsAWhole{*std::move(whole)};
    }
    Value result = value.object().deep_copy();
    remember(identity, value, result);
    return result;
  }

  [[nodiscard]] static bool may_be_met_again(const Value& value) noexcept {
    return value.counted()->references > kOwnHandles;
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
  // the handle made here.
  static constexpr std::uint32_t kOwnHandles = 2;

  struct Known {
    Value source;
    Value copy;
  };
  Value root_;
  std::unordered_map<const void*, Known> copies_;
  int depth_ = 0;
};

// Whether a value that is no scalar is referred to from one place alone.
bool has_one_handle(const Value& value) noexcept {
  return value.representation().references == 1;
}

// Adds what the copy of a list or mapping takes; false unless it is a simple tree, in which nothing
// can be met twice and nothing copies itself: native lists, native mappings with texts as keys, and
// scalars, where each of the containers within has no other handle than its place.
bool add_simple_tree_bytes(const Value& value, int depth, std::size_t& bytes);

bool add_simple_list_bytes(const Value& list, int depth, std::size_t& bytes) {
  if (depth > kMaximumNesting || !is_native_list(list)) return false;
  const std::span<const Value> items = native_items(list);
  bytes += detail::list_bytes(items.size());
  for (const Value& item : items) {
    if (item.is_scalar()) continue;
    if (!has_one_handle(item) || !add_simple_tree_bytes(item, depth + 1, bytes)) return false;
  }
  return true;
}

// A list is walked in the place where it is met, so that the recursion takes one step a mapping.
bool add_simple_mapping_bytes(const Value& mapping, int depth, std::size_t& bytes) {
  if (depth > kMaximumNesting || !is_native_mapping(mapping)) return false;
  const std::span<const MappingEntry> entries = native_entries(mapping);
  bytes += detail::mapping_bytes(entries.size());
  for (const MappingEntry& entry : entries) {
    if (!entry.key.is_text()) return false;
    if (entry.value.is_scalar()) continue;
    if (!has_one_handle(entry.value)) return false;
    if (entry.value.is_list()) {
      if (!add_simple_list_bytes(entry.value, depth + 1, bytes)) return false;
    } else if (!add_simple_tree_bytes(entry.value, depth + 1, bytes)) {
      return false;
    }
  }
  return true;
}

bool add_simple_tree_bytes(const Value& value, int depth, std::size_t& bytes) {
  if (value.is_list()) return add_simple_list_bytes(value, depth, bytes);
  return value.is_mapping() && add_simple_mapping_bytes(value, depth, bytes);
}

// Walks the pair number `index` of a sequence that a mapping is made from.
std::unique_ptr<ValueIterator> elements_of(const Value& pair, std::size_t index) {
  std::unique_ptr<ValueIterator> elements = catching(
      {ErrorKind::kTypeError}, [&pair] { return iterate(pair); },
      [](const Error&) -> std::unique_ptr<ValueIterator> { return nullptr; });
  if (elements != nullptr) return elements;
  throw TypeError("cannot convert dictionary update sequence element #" + std::to_string(index) +
                  " to a sequence");
}

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
  if (!mapping.is_native()) {
    if (std::optional<Mapping> copy = mapping.storage()->new_mapping()) return *std::move(copy);
  }
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
  if (source.is_object()) {
    if (std::optional<Mapping> made = source.object().new_mapping()) return *std::move(made);
  }
  if (const std::optional<Mapping> mapping = as_mapping(source)) return shallow_copy(*mapping);
  Mapping result;
  const auto pairs = iterate(source);
  for (std::size_t index = 0; const std::optional<Value> pair = pairs->next(); ++index) {
    const auto elements = elements_of(*pair, index);
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
  std::size_t bytes = 0;
  if (add_simple_tree_bytes(value, 1, bytes)) return detail::copy_tree(value, bytes);
  try {
    return DeepCopy(value).copy(value);
  } catch (const CopiedAsAWhole& whole) {
    return whole.copy;
  }
}

}  // namespace varnholt::genetic
