// Who holds a lock on a store. Method: the kernel's table as a file of the test's own, and once the
// real one.
#include "hosts/embedded/store/lock_holders.hpp"

#include <array>
#include <fstream>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/store/store_files.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(StoreTest, OnlyThoseWhoKeepOthersOutAreNamed) {
  ASSERT_TRUE(make_private_file(path_));
  ASSERT_TRUE(make_private_file(path_ + "-shm"));
  const ino_t file = identity_of(path_)->inode;
  const ino_t shared = identity_of(path_ + "-shm")->inode;
  const std::filesystem::path proc = folder_ / "proc";
  std::filesystem::create_directories(proc / "101");
  std::ofstream(proc / "101" / "comm") << "sqlite3\n";
  std::ofstream(proc / "locks") << fmt::format(
      "1: POSIX  ADVISORY  WRITE 101 fe:01:{} 120 120\n"
      "2: POSIX  ADVISORY  READ 102 fe:01:{} 1073741826 1073742335\n"
      "3: POSIX  ADVISORY  WRITE {} fe:01:{} 121 121\n"
      "4: FLOCK  ADVISORY  WRITE 104 fe:01:{} 0 EOF\n"
      "5: POSIX  ADVISORY  WRITE 105 fe:01:1 0 EOF\n"
      "6: -> POSIX  ADVISORY  WRITE 106 fe:01:{} 0 EOF\n"
      "7: OFDLCK ADVISORY  WRITE -1 fe:01:{} 0 EOF\n"
      "nonsense\n",
      shared, file, ::getpid(), shared, file, file, file);
  EXPECT_EQ(lock_holders(path_, proc.string()), "process 101 (sqlite3), process 104");
  EXPECT_EQ(lock_holders(path_, (folder_ / "none").string()), "");
}

TEST_F(StoreTest, TheKernelNamesAProcessThatWrites) {
  const SqliteRunStore store(path_);
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    SqliteDatabase other(path_, 0);
    const SqliteTransaction held(other, "holding the lock");
    if (::write(ends[1], "x", 1) != 1) ::_exit(1);
    while (true)
      ::pause();
  }
  char byte = 0;
  ASSERT_EQ(::read(ends[0], &byte, 1), 1);
  const std::string told = lock_holders(path_);
  ::kill(holder, SIGKILL);
  ::waitpid(holder, nullptr, 0);
  ::close(ends[0]);
  ::close(ends[1]);
  // A kernel that hides the table from a container tells nothing.
  EXPECT_THAT(told, AnyOf(IsEmpty(), HasSubstr(fmt::format("process {}", holder))));
}

}  // namespace
}  // namespace varnholt::embedded::test
