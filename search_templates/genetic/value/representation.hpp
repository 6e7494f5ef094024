// How lists, tuples and mappings of the library's own lie in memory. Private to `value/`.
//
// A container made with a capacity is one block: its head, and room for that many items behind it.
// Only when it outgrows that room do its items move to a block of their own. The containers of a
// copied tree lie in one block together (`tree_copy.hpp`), which is given back with the last of
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "search_templates/genetic/value/host_origin.hpp"
#include "search_templates/genetic/value/storage.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::detail {

// The head of a block that holds the containers of a tree.
struct TreeBlock {
  std::size_t containers = 0;  // Those that are alive.
};

// What lists, tuples and mappings begin with.
struct ContainerRep : Counted {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): see `next`.
  explicit ContainerRep(Kind container_kind) : kind(container_kind) {}

  Kind kind;
  // Links the containers that wait to be given back, and means nothing before.
  ContainerRep* next;
  // The block that it shares, or null when its block is its own.
  TreeBlock* block = nullptr;
};

// A growing array whose first room is the tail of its owner's block.
template <typename T>
class TailBuffer {
 public:
  TailBuffer(void* tail, std::size_t capacity) noexcept
      : first_(static_cast<T*>(tail)), tail_(first_), capacity_(capacity) {}
  TailBuffer(const TailBuffer&) = delete;
  TailBuffer& operator=(const TailBuffer&) = delete;
  ~TailBuffer() {
    clear();
    if (first_ != tail_) ::operator delete(first_);
  }

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] T& operator[](std::size_t index) noexcept { return first_[index]; }
  [[nodiscard]] std::span<T> items() noexcept { return {first_, size_}; }

  // Appends a copy of each of `sources`, which must have room.
  template <typename Copy>
  void append_copies(std::span<const T> sources, const Copy& copy) noexcept {
    static_assert(noexcept(copy(sources.front())));
    T* next = first_ + size_;
    for (const T& source : sources)
      new (next++) T(copy(source));
    size_ += sources.size();
  }
  void append(T item) {
    if (size_ == capacity_) grow();
    new (first_ + size_) T(std::move(item));
    ++size_;
  }
  void erase(std::size_t index) {
    for (std::size_t i = index; i + 1 < size_; ++i)
      first_[i] = std::move(first_[i + 1]);
    --size_;
    first_[size_].~T();
  }
  void clear() noexcept {
    while (size_ > 0)
      first_[--size_].~T();
  }
  // Empties the array after everything that its items held has been taken out of them.
  void forget() noexcept { size_ = 0; }

 private:
  void grow() {
    const std::size_t capacity = capacity_ < 4 ? 8 : capacity_ * 2;
    T* const larger = static_cast<T*>(::operator new(capacity * sizeof(T)));
    for (std::size_t i = 0; i < size_; ++i) {
      new (larger + i) T(std::move(first_[i]));
      first_[i].~T();
    }
    if (first_ != tail_) ::operator delete(first_);
    first_ = larger;
    capacity_ = capacity;
  }

  T* first_;
  T* tail_;
  std::size_t size_ = 0;
  std::size_t capacity_;
};

// A block that holds a T and room for `capacity` items behind it.
template <typename T, typename Item>
[[nodiscard]] T* make_container(std::size_t capacity) {
  static_assert(sizeof(T) % alignof(Item) == 0);
  void* const block = ::operator new(sizeof(T) + capacity * sizeof(Item));
  return new (block) T(static_cast<std::byte*>(block) + sizeof(T), capacity);
}

struct ListRep : ContainerRep {
  ListRep(void* tail, std::size_t capacity) : ContainerRep(Kind::kList), items(tail, capacity) {}

  std::unique_ptr<ListStorage> storage;
  TailBuffer<Value> items;
};

struct TupleRep : ContainerRep {
  TupleRep(void* tail, std::size_t capacity) : ContainerRep(Kind::kTuple), items(tail, capacity) {}

  HostOrigin origin;
  TailBuffer<Value> items;
};

// A number that is an object of the host.
struct HostedNumberRep : Counted {
  HostedNumberRep(std::int64_t integer, const HostOrigin& host)
      : number{.integer = integer}, origin(host) {}
  HostedNumberRep(double real, const HostOrigin& host) : number{.real = real}, origin(host) {}

  union {
    std::int64_t integer;
    double real;
  } number;
  HostOrigin origin;
};

// Mappings up to this size are searched linearly; most records and all graph nodes are that small.
inline constexpr std::size_t kLargestScanned = 16;

struct MappingRep : ContainerRep {
  MappingRep(void* tail, std::size_t capacity)
      : ContainerRep(Kind::kMapping), entries(tail, capacity) {}

  // The position of `key` among the entries, or their number when it is not there.
  [[nodiscard]] std::size_t position(const Value& key);
  void append(Value key, Value value);
  void erase(std::size_t index);

  std::unique_ptr<MappingStorage> storage;
  TailBuffer<MappingEntry> entries;
  // A hash table of positions plus one, for mappings too large for a linear search. Built when it
  // is first needed: many a copy is never searched.
  std::vector<std::uint32_t> slots;

 private:
  void place(std::size_t index);
  void rebuild_slots();
};

}  // namespace varnholt::genetic::detail
