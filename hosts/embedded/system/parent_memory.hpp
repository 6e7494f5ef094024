// Memory that only this process has: a fork copies neither it nor its page tables. Who touches it
// in a child is ended by a signal.
#pragma once

#include <cstddef>
#include <memory_resource>

namespace varnholt::embedded {

// For what grows with a search and is never looked at in a child. Every block is mapped on its own,
// so it serves who asks for large ones, such as a monotonic buffer.
class ParentMemory : public std::pmr::memory_resource {
 private:
  // std::bad_alloc where the system has none.
  void* do_allocate(std::size_t bytes, std::size_t alignment) override;
  void do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) override;
  [[nodiscard]] bool do_is_equal(const memory_resource& other) const noexcept override;
};

}  // namespace varnholt::embedded
