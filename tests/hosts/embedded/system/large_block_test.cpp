// A block begins with a large page, is in one where the machine gives any, and is read by children.
// Method: addresses, /proc, and a real child.
#include "hosts/embedded/system/large_block.hpp"

#include <cstdint>
#include <cstring>
#include <utility>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/system/memory_advice.hpp"

namespace varnholt::embedded::test {
namespace {

constexpr std::size_t kMebibyte = 1024 * 1024;

TEST(LargeBlockTest, IsAsLargeAsWantedAndBeginsWithALargePage) {
  for (const std::size_t bytes : {std::size_t{1}, 2 * kMebibyte, 2 * kMebibyte + 1}) {
    const LargeBlock block(bytes);
    EXPECT_GE(block.bytes(), bytes);
    EXPECT_LT(block.bytes(), bytes + 2 * kMebibyte);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.data()) % (2 * kMebibyte), 0U);
    EXPECT_EQ(block.data()[0], std::byte{0});
    EXPECT_EQ(block.data()[block.bytes() - 1], std::byte{0});
  }
}

TEST(LargeBlockTest, LiesInLargePages) {
  if (!read_large_pages().are_given()) GTEST_SKIP() << "this machine gives no large pages";
  const std::uint64_t before = read_large_pages().in_use_bytes;
  const LargeBlock block(16 * kMebibyte);
  std::memset(block.data(), 1, block.bytes());
  const std::uint64_t after = read_large_pages().in_use_bytes;
  if (after == before) GTEST_SKIP() << "there was no large page left";
  EXPECT_GE(after - before, 8 * kMebibyte);
}

TEST(LargeBlockTest, ChildrenReadIt) {
  const LargeBlock block(kMebibyte);
  block.data()[77] = std::byte{42};
  const pid_t child = ::fork();
  if (child == 0) ::_exit(std::to_integer<int>(block.data()[77]));
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 42);
}

TEST(LargeBlockTest, MayBeMoved) {
  LargeBlock first(kMebibyte);
  first.data()[5] = std::byte{7};
  const std::byte* const place = first.data();
  LargeBlock second(std::move(first));
  EXPECT_EQ(second.data(), place);
  LargeBlock third(kMebibyte);
  third = std::move(second);
  EXPECT_EQ(third.data(), place);
  EXPECT_EQ(third.data()[5], std::byte{7});
}

}  // namespace
}  // namespace varnholt::embedded::test
