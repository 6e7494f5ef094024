// The system calls of the worker pool, behind one thin seam.
//
// Each method is the system call of its name: it returns what the call returns, and -1 with errno
// set where the call fails. Nothing is retried here; who calls decides that. A test derives from
// RealSystemCalls and overrides one method to interrupt, shorten or fail it; because a fork copies
// the object, such an override works in the child as well.
#pragma once

#include <cstddef>
#include <cstdint>

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>

namespace varnholt::embedded {

class SystemCalls {
 public:
  virtual ~SystemCalls() = default;

  virtual pid_t fork() = 0;
  // `ends[0]` is the read end, `ends[1]` the write end.
  virtual int pipe2(int (&ends)[2], int flags) = 0;
  virtual ssize_t read(int descriptor, void* buffer, std::size_t size) = 0;
  virtual ssize_t write(int descriptor, const void* bytes, std::size_t size) = 0;
  virtual int poll(pollfd* entries, nfds_t count, int timeout_milliseconds) = 0;
  // Waits for the process `pid` alone; `options` as waitid(2) takes them.
  virtual int waitid(pid_t pid, siginfo_t* info, int options) = 0;
  virtual int pidfd_open(pid_t pid) = 0;
  // A negative `pid` names a process group.
  virtual int kill(pid_t pid, int signal) = 0;
  virtual int setpgid(pid_t pid, pid_t group) = 0;
  // The signal that the calling process gets when the thread that forked it ends.
  virtual int set_parent_death_signal(int signal) = 0;
  virtual int fcntl(int descriptor, int command, int argument) = 0;
  virtual int setrlimit(int resource, const rlimit& limit) = 0;
  // The nice value of the calling process.
  virtual int setpriority(int nice) = 0;
  // Sleeps while `word`, in memory that processes share, is `value`.
  virtual int futex_wait(std::uint32_t* word, std::uint32_t value) = 0;
  // Wakes all that sleep on `word`.
  virtual int futex_wake(std::uint32_t* word) = 0;

  // CLOCK_MONOTONIC. Every limit of the pool is measured with it; wall time is only data.
  virtual std::int64_t monotonic_nanoseconds() = 0;
  // The threads of this process, counted in /proc/self/task.
  virtual int thread_count() = 0;
};

class RealSystemCalls : public SystemCalls {
 public:
  pid_t fork() override;
  int pipe2(int (&ends)[2], int flags) override;
  ssize_t read(int descriptor, void* buffer, std::size_t size) override;
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override;
  int poll(pollfd* entries, nfds_t count, int timeout_milliseconds) override;
  int waitid(pid_t pid, siginfo_t* info, int options) override;
  int pidfd_open(pid_t pid) override;
  int kill(pid_t pid, int signal) override;
  int setpgid(pid_t pid, pid_t group) override;
  int set_parent_death_signal(int signal) override;
  int fcntl(int descriptor, int command, int argument) override;
  int setrlimit(int resource, const rlimit& limit) override;
  int setpriority(int nice) override;
  int futex_wait(std::uint32_t* word, std::uint32_t value) override;
  int futex_wake(std::uint32_t* word) override;
  std::int64_t monotonic_nanoseconds() override;
  int thread_count() override;
};

}  // namespace varnholt::embedded
