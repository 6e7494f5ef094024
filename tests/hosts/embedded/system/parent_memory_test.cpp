// Memory that children do not have. Method: a real child that touches it, and containers over it.
#include "hosts/embedded/system/parent_memory.hpp"

#include <csignal>
#include <limits>
#include <new>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace varnholt::embedded::test {
namespace {

TEST(ParentMemoryTest, IsThereInTheParentAlone) {
  ParentMemory memory;
  std::pmr::vector<int> numbers(100000, 7, &memory);
  const volatile int* const number = &numbers[50000];
  EXPECT_EQ(*number, 7);
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGSEGV, SIG_DFL);  // A sanitizer has a handler of its own.
    static_cast<void>(*number);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
  numbers.resize(1000000, 8);
  EXPECT_EQ(numbers.front(), 7);
  EXPECT_EQ(numbers.back(), 8);
}

TEST(ParentMemoryTest, RefusesWhatThereIsNot) {
  ParentMemory memory;
  EXPECT_THROW(static_cast<void>(memory.allocate(std::numeric_limits<std::size_t>::max() / 2)),
               std::bad_alloc);
  ParentMemory other;
  EXPECT_TRUE(memory == other) << "what one gave the other may take back";
  EXPECT_FALSE(memory == *std::pmr::new_delete_resource());
}

}  // namespace
}  // namespace varnholt::embedded::test
