// The structures that a search has met, as the library keeps them: by key alone.
//
// A search that runs for days meets millions of structures, and forks a process for each of them.
// So a key takes its encoding and some 50 bytes, without an allocation of its own, and all of it
// lies in memory that the host chooses: one that a fork does not copy, for instance. It is used in
// the parent alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <vector>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/population/deduplication.hpp"

namespace varnholt::genetic {

class SeenGraphKeys : public SeenGraphs {
 public:
  // `memory` must outlive the object.
  explicit SeenGraphKeys(std::pmr::memory_resource& memory = *std::pmr::new_delete_resource());

  [[nodiscard]] bool contains(const Value& /*graph*/, const StructuralKey& key) override {
    return contains(key);
  }
  void add(const Value& /*graph*/, const StructuralKey& key) override { insert(key); }

  [[nodiscard]] bool contains(const StructuralKey& key) const;
  void insert(const StructuralKey& key);
  [[nodiscard]] std::size_t size() const noexcept { return count_ + with_objects_.size(); }

 private:
  struct Place {
    std::uint64_t hash = 0;
    const char* encoding = nullptr;  // Null in an empty place.
    std::size_t size = 0;
  };

  // Where the key stands, or the empty place where it would.
  [[nodiscard]] std::size_t place_of(const StructuralKey& key) const;
  void grow();

  // Behind a pointer, so that the object can be moved.
  std::unique_ptr<std::pmr::monotonic_buffer_resource> encodings_;
  std::pmr::vector<Place> places_;  // A power of two, at most two thirds of them taken.
  std::size_t count_ = 0;
  // Keys that are told apart by objects too; there are hardly any.
  StructuralKeySet with_objects_;
};

}  // namespace varnholt::genetic
