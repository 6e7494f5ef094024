#include "hosts/embedded/pool/mailbox.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <sys/mman.h>

#include "hosts/embedded/pool/pool_types.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::size_t kMailboxesInBlock = 64;
constexpr std::size_t kBlockBytes = kMailboxesInBlock * kMailboxBytes;
constexpr std::uint32_t kRingBytes = kMailboxBytes - 2 * sizeof(std::uint32_t);

std::uint32_t next(std::uint32_t place) {
  return place + 1 == kRingBytes ? 0 : place + 1;
}

}  // namespace

// Both are places in the ring, each written by one side only: what stands from `taken` up to
// `written` is there to be taken. Equal places are an empty ring, so it is never filled to the last
// byte, and a reader that sleeps on a place never misses that it was left.
struct Mailbox::Page {
  std::uint32_t written;
  std::uint32_t taken;
  char ring[kRingBytes];
};

Mailbox::Mailbox(SystemCalls& system, void* page) noexcept
    : system_(system), page_(static_cast<Page*>(page)) {
  static_assert(sizeof(Page) == kMailboxBytes);
  static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);
}

std::uint32_t Mailbox::copy_in(std::uint32_t place, std::string_view bytes) {
  for (const char byte : bytes) {
    page_->ring[place] = byte;
    place = next(place);
  }
  return place;
}

std::uint32_t Mailbox::copy_out(std::uint32_t place, char* bytes, std::size_t size) const {
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = page_->ring[place];
    place = next(place);
  }
  return place;
}

bool Mailbox::put(std::string_view message) {
  const std::uint32_t written = page_->written;
  const std::uint32_t taken = std::atomic_ref(page_->taken).load(std::memory_order_acquire);
  const std::size_t used = (written + kRingBytes - taken) % kRingBytes;
  std::uint32_t size = 0;
  if (sizeof(size) + message.size() >= kRingBytes - used) return false;
  size = static_cast<std::uint32_t>(message.size());
  std::array<char, sizeof(size)> head{};
  std::memcpy(head.data(), &size, sizeof(size));
  std::uint32_t place = copy_in(written, std::string_view(head.data(), head.size()));
  place = copy_in(place, message);
  // Sequentially consistent, so that a reader that is about to sleep sees it or is woken.
  std::atomic_ref(page_->written).store(place);
  system_.futex_wake(&page_->written);
  return true;
}

std::string Mailbox::take() {
  const std::uint32_t taken = page_->taken;
  // Woken, interrupted or too late for sleep: whatever it was, the counter tells.
  while (std::atomic_ref(page_->written).load() == taken) {
    static_cast<void>(system_.futex_wait(&page_->written, taken));
  }
  std::uint32_t size = 0;
  std::array<char, sizeof(size)> head{};
  std::uint32_t place = copy_out(taken, head.data(), head.size());
  std::memcpy(&size, head.data(), sizeof(size));
  std::string message(size, '\0');
  place = copy_out(place, message.data(), size);
  std::atomic_ref(page_->taken).store(place, std::memory_order_release);
  return message;
}

MailboxArena::~MailboxArena() {
  for (void* const block : blocks_)
    ::munmap(block, kBlockBytes);
}

Mailbox MailboxArena::make() {
  if (blocks_.empty() || used_in_last_ == kMailboxesInBlock) {
    blocks_.reserve(blocks_.size() + 1);
    void* const block = ::mmap(nullptr, kBlockBytes, PROT_READ | PROT_WRITE,
                               MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (block == MAP_FAILED) {
      throw PoolError(
          fmt::format("worker pool: mapping {} bytes of shared memory failed with errno {} ({}); "
                      "evaluate fewer "
                      "candidates in one batch",
                      kBlockBytes, errno, std::strerror(errno)));
    }
    blocks_.push_back(block);
    used_in_last_ = 0;
  }
  char* const page = static_cast<char*>(blocks_.back()) + kMailboxBytes * used_in_last_++;
  return {system_, page};
}

}  // namespace varnholt::embedded
