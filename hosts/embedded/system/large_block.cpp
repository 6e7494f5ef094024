#include "hosts/embedded/system/large_block.hpp"

#include <cstdint>
#include <new>
#include <utility>

#include <sys/mman.h>

namespace varnholt::embedded {
namespace {

// Of most machines. Where large pages are others, the block only begins and ends elsewhere.
constexpr std::size_t kLargePage = std::size_t{2} << 20;

}  // namespace

LargeBlock::LargeBlock(std::size_t bytes) {
  bytes_ = (bytes + kLargePage - 1) / kLargePage * kLargePage;
  mapped_bytes_ = bytes_ + kLargePage;
  mapping_ = ::mmap(nullptr, mapped_bytes_, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping_ == MAP_FAILED) throw std::bad_alloc();
  const auto address = reinterpret_cast<std::uintptr_t>(mapping_);
  const std::uintptr_t skipped = (kLargePage - address % kLargePage) % kLargePage;
  begin_ = static_cast<std::byte*>(mapping_) + skipped;
  // Advice: where it is not taken, the block works in small pages.
  static_cast<void>(::madvise(begin_, bytes_, MADV_HUGEPAGE));
}

LargeBlock::LargeBlock(LargeBlock&& other) noexcept
    : mapping_(std::exchange(other.mapping_, nullptr)),
      mapped_bytes_(std::exchange(other.mapped_bytes_, 0)),
      begin_(std::exchange(other.begin_, nullptr)),
      bytes_(std::exchange(other.bytes_, 0)) {}

LargeBlock& LargeBlock::operator=(LargeBlock&& other) noexcept {
  std::swap(mapping_, other.mapping_);
  std::swap(mapped_bytes_, other.mapped_bytes_);
  std::swap(begin_, other.begin_);
  std::swap(bytes_, other.bytes_);
  return *this;
}

LargeBlock::~LargeBlock() {
  if (mapping_ != nullptr) ::munmap(mapping_, mapped_bytes_);
}

}  // namespace varnholt::embedded
