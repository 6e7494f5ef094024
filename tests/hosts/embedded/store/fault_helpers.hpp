// Faults for stores: processes that are killed, disks that refuse.
#pragma once

#include <csignal>
#include <cstddef>
#include <exception>
#include <fstream>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace varnholt::embedded::test {

inline constexpr int kFailed = 99;
inline constexpr int kNotPossible = 77;

// Runs `body` in a process of its own and returns its exit status, or minus the signal.
inline int in_process(const std::function<void()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    try {
      body();
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
    ::_exit(::testing::Test::HasFailure() ? kFailed : 0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

inline bool write_text(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  return !file.fail();
}

// Mounts a file system of 512 KiB over the folder, in name spaces of this process alone.
inline bool mount_small_file_system(const std::string& folder) {
  const std::string user = "0 " + std::to_string(::geteuid()) + " 1";
  const std::string group = "0 " + std::to_string(::getegid()) + " 1";
  return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
         write_text("/proc/self/setgroups", "deny") && write_text("/proc/self/uid_map", user) &&
         write_text("/proc/self/gid_map", group) &&
         ::mount("none", folder.c_str(), "tmpfs", 0, "size=512k") == 0;
}

}  // namespace varnholt::embedded::test
