#include "hosts/embedded/system/parent_memory.hpp"

#include <new>

#include <sys/mman.h>

namespace varnholt::embedded {

// A mapping begins with a page, which is beyond every alignment that is asked for.
void* ParentMemory::do_allocate(std::size_t bytes, std::size_t /*alignment*/) {
  void* const memory =
      ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  // Refused by no kernel; where it were, the memory would only be copied as all other is.
  static_cast<void>(::madvise(memory, bytes, MADV_DONTFORK));
  return memory;
}

void ParentMemory::do_deallocate(void* memory, std::size_t bytes, std::size_t /*alignment*/) {
  ::munmap(memory, bytes);
}

bool ParentMemory::do_is_equal(const memory_resource& other) const noexcept {
  return dynamic_cast<const ParentMemory*>(&other) != nullptr;
}

}  // namespace varnholt::embedded
