// What the kernel is told about memory that lives as long as a search.
//
// A fork copies the page tables of its parent, 8 bytes for each page that the parent has touched,
// and makes the child take a page fault for each that it touches itself. So what children read lies
// in large pages, and what they do not need is not copied at all. Everything here is advice: where
// the kernel does not take it, memory works as before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace varnholt::embedded {

// Memory that children read is put into large pages (of 2 MiB on most machines), what is touched
// already too, and what else lies in the first and the last of them. A block that fills none of
// them stays as it is.
void prefer_large_pages(const void* begin, std::size_t bytes);

// Memory that only this process reads: its whole pages are not there in processes that are forked
// from now on, and who touches them there is ended by a signal. What is freed must be given back to
// the children before: the allocator hands the same pages out again, for anything.
void keep_from_children(const void* begin, std::size_t bytes);
void give_to_children(const void* begin, std::size_t bytes);

// Gives the whole pages of a block back to the system. What stands in them is lost: they read as
// zeros from then on.
void give_back_contents(void* begin, std::size_t bytes);

// Gives back to the system what was freed and is still held for later.
void give_back_free_memory();

// In a process that computes one thing after the other with large blocks: what is freed stays for
// the next block, and the first `bytes` of it lie in large pages as they are touched. Otherwise
// each large block is mapped anew, and taken page by page.
void keep_freed_memory(std::size_t bytes);

// The same for a worker that computes with panels of so many bytes. Small ones lie in the heap as
// it is.
void keep_freed_panels(std::size_t panel_bytes);

// What the machine does about large pages.
struct LargePages {
  std::size_t page_bytes = 0;      // 0 where the kernel has none.
  std::string enabled;             // "always", "madvise" or "never"; empty where it does not say.
  std::uint64_t in_use_bytes = 0;  // By this process.

  // Whether prefer_large_pages() is listened to.
  [[nodiscard]] bool are_given() const { return enabled == "always" || enabled == "madvise"; }
};

[[nodiscard]] LargePages read_large_pages(
    const std::string& proc = "/proc",
    const std::string& settings = "/sys/kernel/mm/transparent_hugepage");

}  // namespace varnholt::embedded
