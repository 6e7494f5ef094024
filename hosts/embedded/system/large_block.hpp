// A block of memory that children read and nobody frees in parts.
#pragma once

#include <cstddef>

namespace varnholt::embedded {

// Mapped on its own, begins with a large page, and lies in large pages where the kernel has them
// (memory_advice.hpp): a fork then copies one entry for each. What is not touched takes no memory.
class LargeBlock {
 public:
  // Of at least so many bytes, more than 0, in whole large pages; all of them 0. std::bad_alloc
  // where the system has none.
  explicit LargeBlock(std::size_t bytes);
  LargeBlock(LargeBlock&& other) noexcept;
  LargeBlock& operator=(LargeBlock&& other) noexcept;
  LargeBlock(const LargeBlock&) = delete;
  LargeBlock& operator=(const LargeBlock&) = delete;
  ~LargeBlock();

  [[nodiscard]] std::byte* data() const noexcept { return begin_; }
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }

 private:
  void* mapping_ = nullptr;
  std::size_t mapped_bytes_ = 0;
  std::byte* begin_ = nullptr;
  std::size_t bytes_ = 0;
};

}  // namespace varnholt::embedded
