#include "tests/hosts/embedded/pool/process_probe.hpp"

#include <cerrno>
#include <cstdlib>

#include <dirent.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace varnholt::embedded::test {

std::size_t count_open_descriptors() {
  DIR* const directory = ::opendir("/proc/self/fd");
  if (directory == nullptr) std::abort();
  std::size_t count = 0;
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') ++count;
  }
  ::closedir(directory);
  return count - 1;  // Without the one that is reading the directory.
}

bool has_children() {
  siginfo_t info{};
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

bool wait_until_gone(pid_t pid) {
  const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U));
  if (descriptor < 0) return errno == ESRCH;
  pollfd entry{descriptor, POLLIN, 0};
  int ready = 0;
  do {
    ready = ::poll(&entry, 1, 20'000);
  } while (ready < 0 && errno == EINTR);
  ::close(descriptor);
  return ready == 1;
}

int run_forked(const std::function<void()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    try {
      body();
    } catch (...) {
      ::_exit(99);
    }
    ::_exit(::testing::Test::HasFailure() ? 99 : 0);
  }
  int status = -1;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

void ProcessTest::SetUp() {
  ASSERT_FALSE(has_children());
  descriptors_before_ = count_open_descriptors();
}

void ProcessTest::TearDown() {
  EXPECT_FALSE(has_children()) << "a child or a zombie was left";
  EXPECT_EQ(count_open_descriptors(), descriptors_before_) << "a descriptor was left open";
}

}  // namespace varnholt::embedded::test
