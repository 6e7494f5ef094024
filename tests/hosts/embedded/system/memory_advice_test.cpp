// What the kernel is told about memory: what is kept from children is not there in them, and what
// is to lie in large pages does, where the machine has any.
// Method: real children that touch the memory; /proc tells of large pages.
#include "hosts/embedded/system/memory_advice.hpp"

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace varnholt::embedded::test {
namespace {

constexpr std::size_t kMebibyte = 1024 * 1024;

// The signal that ends a child which reads the byte, or 0.
int fate_of_reader(const volatile char* byte) {
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGSEGV, SIG_DFL);  // A sanitizer has a handler of its own.
    static_cast<void>(*byte);
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(MemoryAdvice, WhatIsKeptFromChildrenIsNotThereInThem) {
  std::vector<char> memory(4 * kMebibyte, 'x');
  keep_from_children(memory.data(), memory.size());
  EXPECT_EQ(memory[2 * kMebibyte], 'x');
  EXPECT_NE(fate_of_reader(&memory[2 * kMebibyte]), 0);
  give_to_children(memory.data(), memory.size());
  EXPECT_EQ(fate_of_reader(&memory[2 * kMebibyte]), 0);
}

TEST(MemoryAdvice, PagesThatAreSharedWithOtherMemoryStayInChildren) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const mapped =
      mmap(nullptr, 4 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapped, MAP_FAILED);
  char* const memory = static_cast<char*>(mapped);
  // From the middle of the first page to the middle of the last one.
  keep_from_children(memory + page / 2, 3 * page);
  EXPECT_EQ(fate_of_reader(memory), 0);
  EXPECT_EQ(fate_of_reader(memory + page - 1), 0);
  EXPECT_EQ(fate_of_reader(memory + page), SIGSEGV);
  EXPECT_EQ(fate_of_reader(memory + 3 * page - 1), SIGSEGV);
  EXPECT_EQ(fate_of_reader(memory + 3 * page), 0);
  munmap(mapped, 4 * page);
  // Less than a page is nobody's page alone.
  keep_from_children(&memory, sizeof(memory));
  EXPECT_EQ(fate_of_reader(reinterpret_cast<const char*>(&memory)), 0);
}

TEST(MemoryAdvice, TouchedMemoryComesToLieInLargePages) {
  if (!read_large_pages().are_given()) GTEST_SKIP() << "this machine gives no large pages";
  std::vector<char> memory(64 * kMebibyte, 'x');
  const std::uint64_t before = read_large_pages().in_use_bytes;
  prefer_large_pages(memory.data(), memory.size());
  const std::uint64_t after = read_large_pages().in_use_bytes;
  EXPECT_EQ(memory[kMebibyte], 'x');
  if (after == before) GTEST_SKIP() << "this kernel puts no touched pages together";
  EXPECT_GE(after - before, 32 * kMebibyte);
}

TEST(MemoryAdvice, FreedMemoryIsGivenBack) {
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
  GTEST_SKIP() << "the address sanitizer keeps what was freed";
#endif
  const auto resident_pages = [] {
    std::ifstream statm("/proc/self/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    statm >> size >> resident;
    return resident;
  };
  std::vector<std::vector<char>> blocks;
  // Blocks that are too small to be mapped on their own, the last of which holds up the heap's end.
  for (int i = 0; i < 2000; ++i)
    blocks.emplace_back(32 * 1024, 'x');
  const std::vector<char> last(32 * 1024, 'x');
  const std::uint64_t full = resident_pages();
  blocks.clear();
  give_back_free_memory();
  EXPECT_LT(resident_pages() + 8000, full);
  EXPECT_EQ(last.front(), 'x');
}

// How many pages a process takes that gets and frees a block again and again.
long faults_of_blocks(bool keeps) {
  const pid_t child = fork();
  if (child == 0) {
    if (keeps) keep_freed_memory(16 * kMebibyte);
    for (int round = 0; round < 20; ++round) {
      std::vector<char> block(64 * kMebibyte, 'x');
      static_cast<void>(*static_cast<volatile char*>(block.data()));
    }
    _exit(0);
  }
  int status = 0;
  rusage usage{};
  EXPECT_EQ(wait4(child, &status, 0, &usage), child);
  EXPECT_EQ(status, 0);
  return usage.ru_minflt;
}

TEST(MemoryAdvice, KeptMemoryIsTakenOnce) {
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
  GTEST_SKIP() << "the address sanitizer keeps what was freed";
#endif
  EXPECT_LT(faults_of_blocks(true) * 4, faults_of_blocks(false));
}

TEST(MemoryAdvice, TheMachinesSettingsAreRead) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("varnholt-advice-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder / "self");
  std::ofstream(folder / "hpage_pmd_size") << "2097152\n";
  std::ofstream(folder / "enabled") << "always [madvise] never\n";
  std::ofstream(folder / "self" / "smaps_rollup") << "Rss: 5 kB\nAnonHugePages:     4096 kB\n";
  const LargePages pages = read_large_pages(folder.string(), folder.string());
  EXPECT_EQ(pages.page_bytes, 2 * kMebibyte);
  EXPECT_EQ(pages.enabled, "madvise");
  EXPECT_TRUE(pages.are_given());
  EXPECT_EQ(pages.in_use_bytes, 4 * kMebibyte);
  std::ofstream(folder / "enabled") << "always madvise [never]\n";
  EXPECT_FALSE(read_large_pages(folder.string(), folder.string()).are_given());
  EXPECT_FALSE(read_large_pages("/nowhere", "/nowhere").are_given());
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace varnholt::embedded::test
