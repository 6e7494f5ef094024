#include "search_templates/genetic/value/tree_copy.hpp"

#include <new>
#include <span>

#include "search_templates/genetic/value/native_view.hpp"

namespace varnholt::genetic::detail {
namespace {

class TreeCopy {
 public:
  explicit TreeCopy(std::size_t bytes)
      : block_(new (::operator new(sizeof(TreeBlock) + bytes)) TreeBlock),
        next_(reinterpret_cast<std::byte*>(block_ + 1)) {}

  Value copy(const Value& value) noexcept {
    if (value.is_list()) return copy_list(value);
    if (value.is_mapping()) return copy_container(value);
    return value;
  }

 private:
  // A list is copied in the place where it is met, so that the recursion takes one step a mapping.
  [[gnu::noinline]] Value copy_container(const Value& value) noexcept {
    return value.is_list() ? copy_list(value) : copy_mapping(value);
  }

  Value copy_list(const Value& list) noexcept {
    const std::span<const Value> items = native_items(list);
    auto* const rep = make<ListRep, Value>(items.size());
    Value result = adopt(Kind::kList, rep);
    rep->items.append_copies(items, [this](const Value& item) noexcept {
      return item.is_list() || item.is_mapping() ? copy_container(item) : item;
    });
    return result;
  }

  Value copy_mapping(const Value& mapping) noexcept {
    const std::span<const MappingEntry> entries = native_entries(mapping);
    auto* const rep = make<MappingRep, MappingEntry>(entries.size());
    Value result = adopt(Kind::kMapping, rep);
    rep->entries.append_copies(entries, [this](const MappingEntry& entry) noexcept {
      return MappingEntry{entry.key, copy(entry.value)};
    });
    return result;
  }

  template <typename T, typename Item>
  T* make(std::size_t capacity) noexcept {
    std::byte* const tail = next_ + sizeof(T);
    T* const rep = new (next_) T(tail, capacity);
    next_ = tail + capacity * sizeof(Item);
    rep->block = block_;
    ++block_->containers;
    return rep;
  }

  TreeBlock* block_;
  std::byte* next_;
};

}  // namespace

Value copy_tree(const Value& tree, std::size_t bytes) {
  if (!tree.is_list() && !tree.is_mapping()) return tree;
  return TreeCopy(bytes).copy(tree);
}

}  // namespace varnholt::genetic::detail
