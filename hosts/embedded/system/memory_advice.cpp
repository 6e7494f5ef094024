#include "hosts/embedded/system/memory_advice.hpp"

#include <charconv>
#include <cstdlib>
#include <limits>
#include <string_view>

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include "hosts/embedded/system/read_file.hpp"

// Linux 6.1; the headers of Debian 12 are from before.
#ifndef MADV_COLLAPSE
#define MADV_COLLAPSE 25
#endif

namespace varnholt::embedded {
namespace {

constexpr std::size_t kBytesInKilobyte = 1024;

// Panels from this size on are worth their own memory; an expression has so many at a time at most,
// but for rare ones.
constexpr std::size_t kLargePanelBytes = std::size_t{1} << 20;
constexpr std::size_t kKeptPanels = 16;

struct Block {
  void* begin = nullptr;
  std::size_t bytes = 0;
};

// The block between two addresses that lie near `begin`.
Block block_between(const void* begin, std::uintptr_t first, std::uintptr_t end) {
  if (end <= first) return {};
  // Advice changes no byte of the memory.
  char* const bytes = const_cast<char*>(static_cast<const char*>(begin));
  const auto address = reinterpret_cast<std::uintptr_t>(begin);
  return {first < address ? bytes - (address - first) : bytes + (first - address), end - first};
}

// The pages that lie wholly in a block.
Block whole_pages(const void* begin, std::size_t bytes, std::size_t page) {
  const auto address = reinterpret_cast<std::uintptr_t>(begin);
  return block_between(begin, (address + page - 1) / page * page, (address + bytes) / page * page);
}

// The pages that have a byte of a block.
Block touched_pages(const void* begin, std::size_t bytes, std::size_t page) {
  const auto address = reinterpret_cast<std::uintptr_t>(begin);
  return block_between(begin, address / page * page, (address + bytes + page - 1) / page * page);
}

void advise(const Block& block, int advice) {
  if (block.bytes == 0) return;
  // It may be refused, and nothing depends on it.
  static_cast<void>(::madvise(block.begin, block.bytes, advice));
}

std::size_t number_of(std::string_view text) {
  std::size_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::size_t large_page_bytes() {
  static const std::size_t bytes = read_large_pages().page_bytes;
  return bytes;
}

// "always [madvise] never": the word in brackets.
std::string chosen_word(const std::string& text) {
  const std::size_t open = text.find('[');
  const std::size_t close = text.find(']', open + 1);
  if (open == std::string::npos || close == std::string::npos) return {};
  return text.substr(open + 1, close - open - 1);
}

}  // namespace

void give_back_contents(void* begin, std::size_t bytes) {
  static const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  advise(whole_pages(begin, bytes, page), MADV_DONTNEED);
}

void prefer_large_pages(const void* begin, std::size_t bytes) {
  const std::size_t page = large_page_bytes();
  if (page == 0) return;
  if (whole_pages(begin, bytes, page).bytes == 0) return;
  const Block block = touched_pages(begin, bytes, page);
  advise(block, MADV_HUGEPAGE);
  advise(block, MADV_COLLAPSE);
}

void keep_from_children(const void* begin, std::size_t bytes) {
  advise(whole_pages(begin, bytes, static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
         MADV_DONTFORK);
}

void give_to_children(const void* begin, std::size_t bytes) {
  advise(whole_pages(begin, bytes, static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))), MADV_DOFORK);
}

void give_back_free_memory() {
  ::malloc_trim(0);
}

void keep_freed_memory(std::size_t bytes) {
  ::mallopt(M_MMAP_MAX, 0);
  ::mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  // The heap grows by it once, and hands it out from then on.
  void* const room = std::malloc(bytes);
  if (room == nullptr) return;
  if (const std::size_t page = large_page_bytes(); page > 0) {
    advise(whole_pages(room, bytes, page), MADV_HUGEPAGE);
  }
  std::free(room);
}

void keep_freed_panels(std::size_t panel_bytes) {
  if (panel_bytes >= kLargePanelBytes) keep_freed_memory(kKeptPanels * panel_bytes);
}

LargePages read_large_pages(const std::string& proc, const std::string& settings) {
  LargePages pages;
  pages.page_bytes = number_of(read_file(settings + "/hpage_pmd_size").bytes);
  pages.enabled = chosen_word(read_file(settings + "/enabled").bytes);
  const std::string rollup = read_file(proc + "/self/smaps_rollup").bytes;
  constexpr std::string_view kName = "AnonHugePages:";
  if (const std::size_t found = rollup.find(kName); found != std::string::npos) {
    const std::size_t digit = rollup.find_first_of("0123456789", found);
    pages.in_use_bytes = number_of(std::string_view(rollup).substr(digit)) * kBytesInKilobyte;
  }
  return pages;
}

}  // namespace varnholt::embedded
