#include "hosts/embedded/pool/system_calls.hpp"

#include <cerrno>
#include <limits>

#include <dirent.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace varnholt::embedded {
namespace {

constexpr const char* kTaskDirectory = "/proc/self/task";
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

// The slow count, for a kernel that does not tell the number of threads in the link count.
int count_task_entries() {
  DIR* directory = ::opendir(kTaskDirectory);
  if (directory == nullptr) return -1;
  int count = 0;
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') ++count;
  }
  ::closedir(directory);
  return count;
}

}  // namespace

pid_t RealSystemCalls::fork() {
  return ::fork();
}

int RealSystemCalls::pipe2(int (&ends)[2], int flags) {
  return ::pipe2(ends, flags);
}

ssize_t RealSystemCalls::read(int descriptor, void* buffer, std::size_t size) {
  return ::read(descriptor, buffer, size);
}

ssize_t RealSystemCalls::write(int descriptor, const void* bytes, std::size_t size) {
  return ::write(descriptor, bytes, size);
}

int RealSystemCalls::poll(pollfd* entries, nfds_t count, int timeout_milliseconds) {
  return ::poll(entries, count, timeout_milliseconds);
}

int RealSystemCalls::waitid(pid_t pid, siginfo_t* info, int options) {
  return ::waitid(P_PID, static_cast<id_t>(pid), info, options);
}

int RealSystemCalls::pidfd_open(pid_t pid) {
  // The C library of Debian 12 has a wrapper, older ones do not. The descriptor is close-on-exec.
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U));
}

int RealSystemCalls::kill(pid_t pid, int signal) {
  return ::kill(pid, signal);
}

int RealSystemCalls::setpgid(pid_t pid, pid_t group) {
  return ::setpgid(pid, group);
}

int RealSystemCalls::set_parent_death_signal(int signal) {
  return ::prctl(PR_SET_PDEATHSIG, static_cast<unsigned long>(signal), 0UL, 0UL, 0UL);
}

int RealSystemCalls::fcntl(int descriptor, int command, int argument) {
  return ::fcntl(descriptor, command, argument);
}

int RealSystemCalls::setrlimit(int resource, const rlimit& limit) {
  return ::setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

int RealSystemCalls::setpriority(int nice) {
  return ::setpriority(PRIO_PROCESS, 0, nice);
}

int RealSystemCalls::futex_wait(std::uint32_t* word, std::uint32_t value) {
  return static_cast<int>(::syscall(SYS_futex, word, FUTEX_WAIT, value, nullptr, nullptr, 0));
}

int RealSystemCalls::futex_wake(std::uint32_t* word) {
  return static_cast<int>(
      ::syscall(SYS_futex, word, FUTEX_WAKE, std::numeric_limits<int>::max(), nullptr, nullptr, 0));
}

std::int64_t RealSystemCalls::monotonic_nanoseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * kNanosecondsPerSecond + now.tv_nsec;
}

int RealSystemCalls::thread_count() {
  // Linux gives the directory one link a thread besides the two that every directory has, so one
  // call tells the number; it is asked before each fork.
  struct stat status {};
  if (::stat(kTaskDirectory, &status) != 0) return -1;
  const int threads = static_cast<int>(status.st_nlink) - 2;
  return threads >= 1 ? threads : count_task_entries();
}

}  // namespace varnholt::embedded
